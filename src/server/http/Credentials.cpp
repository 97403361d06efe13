#include "server/http/Credentials.h"

#include <openssl/evp.h>

#include <vector>

#include "foundation/Text.h"

namespace vornex::server {
namespace {

constexpr std::size_t kLongestHeader = 4096;

std::optional<std::string> decodedBase64(std::string_view text) {
  if (text.empty() || text.size() % 4 != 0 || text.size() > kLongestHeader) return {};
  std::vector<unsigned char> bytes(text.size() / 4 * 3);
  int length = EVP_DecodeBlock(bytes.data(), reinterpret_cast<const unsigned char*>(text.data()),
                               static_cast<int>(text.size()));
  if (length < 0) return {};
  // The decoder counts padding as zero bytes.
  std::size_t padding = text.ends_with("==") ? 2 : text.ends_with("=") ? 1 : 0;
  return std::string(bytes.begin(), bytes.begin() + length - static_cast<std::ptrdiff_t>(padding));
}

}  // namespace

std::optional<Credentials> parseBasicCredentials(std::string_view header) {
  std::size_t blank = header.find(' ');
  if (blank == std::string_view::npos || lowercased(header.substr(0, blank)) != "basic") return {};
  auto text = decodedBase64(trimmedWhitespace(header.substr(blank + 1)));
  if (!text) return {};
  std::size_t colon = text->rfind(':');
  if (colon == std::string::npos || !isValidUtf8(*text)) return {};
  return Credentials{text->substr(0, colon), text->substr(colon + 1)};
}

}  // namespace vornex::server
