#include "server/http/ByteRange.h"

#include <algorithm>
#include <charconv>
#include <optional>

namespace vornex::server {
namespace {

std::string_view trimmed(std::string_view text) {
  std::size_t first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

std::optional<std::uint64_t> number(std::string_view text) {
  std::uint64_t value = 0;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || error != std::errc() || end != text.data() + text.size()) return {};
  return value;
}

}  // namespace

ByteRange parseByteRange(std::string_view header, std::uint64_t fileSize) {
  const ByteRange whole{ByteRange::Kind::whole, 0, fileSize};
  constexpr std::string_view kUnit = "bytes=";
  if (!header.starts_with(kUnit)) return whole;
  std::string_view range = trimmed(header.substr(kUnit.size()));
  std::size_t dash = range.find('-');
  if (dash == std::string_view::npos) return whole;
  std::string_view firstText = trimmed(range.substr(0, dash));
  std::string_view lastText = trimmed(range.substr(dash + 1));
  auto first = number(firstText);
  auto last = number(lastText);
  if ((!firstText.empty() && !first) || (!lastText.empty() && !last) || (!first && !last)) return whole;

  if (!first) {  // the last so many bytes
    if (*last == 0 || fileSize == 0) return {ByteRange::Kind::unsatisfiable, 0, 0};
    std::uint64_t length = std::min(*last, fileSize);
    return {ByteRange::Kind::part, fileSize - length, length};
  }
  if (last && *last < *first) return whole;
  if (*first >= fileSize) return {ByteRange::Kind::unsatisfiable, 0, 0};
  std::uint64_t end = last ? std::min(*last, fileSize - 1) : fileSize - 1;
  return {ByteRange::Kind::part, *first, end - *first + 1};
}

bool namesETag(std::string_view header, std::string_view etag) {
  if (trimmed(header) == "*") return true;
  while (!header.empty()) {
    std::size_t comma = header.find(',');
    std::string_view candidate = trimmed(header.substr(0, comma));
    if (candidate.starts_with("W/")) candidate.remove_prefix(2);
    if (candidate == etag) return true;
    header.remove_prefix(comma == std::string_view::npos ? header.size() : comma + 1);
  }
  return false;
}

}  // namespace vornex::server
