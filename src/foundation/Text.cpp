#include "foundation/Text.h"

#include <openssl/evp.h>
#include <openssl/rand.h>
#include <unicode/casemap.h>
#include <unicode/coll.h>
#include <unicode/normalizer2.h>
#include <unicode/stringpiece.h>
#include <unicode/unistr.h>
#include <unicode/utf8.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <vector>

namespace vornex {

static std::string hex(const std::uint8_t* bytes, std::size_t count, const char* digits) {
  std::string text;
  text.reserve(count * 2);
  for (std::size_t i = 0; i < count; ++i) {
    text += digits[bytes[i] >> 4];
    text += digits[bytes[i] & 15];
  }
  return text;
}

static std::vector<std::uint8_t> randomBytes(std::size_t count) {
  std::vector<std::uint8_t> bytes(count);
  if (RAND_bytes(bytes.data(), static_cast<int>(count)) != 1)
    throw std::runtime_error("the system's random generator failed");
  return bytes;
}

std::string makeUUID() {
  std::vector<std::uint8_t> bytes = randomBytes(16);
  bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0f) | 0x40);
  bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3f) | 0x80);
  std::string text = hex(bytes.data(), bytes.size(), "0123456789ABCDEF");
  for (std::size_t at : {8, 13, 18, 23}) text.insert(at, 1, '-');
  return text;
}

std::string md5Hex(std::string_view bytes) {
  std::uint8_t digest[EVP_MAX_MD_SIZE];
  unsigned int size = 0;
  if (EVP_Digest(bytes.data(), bytes.size(), digest, &size, EVP_md5(), nullptr) != 1)
    throw std::runtime_error("the MD5 digest is not available");
  return hex(digest, size, "0123456789ABCDEF");
}

std::string randomHex(std::size_t bytes) {
  return hex(randomBytes(bytes).data(), bytes, "0123456789abcdef");
}

// How many bytes from the start are ASCII.
static std::size_t asciiLength(std::string_view text) {
  constexpr std::uint64_t kHighBits = 0x8080808080808080;
  std::size_t i = 0;
  for (std::uint64_t word; i + sizeof word <= text.size(); i += sizeof word) {
    std::memcpy(&word, text.data() + i, sizeof word);
    if (word & kHighBits) break;
  }
  while (i < text.size() && static_cast<unsigned char>(text[i]) < 0x80) ++i;
  return i;
}

static bool isAscii(std::string_view text) {
  return asciiLength(text) == text.size();
}

bool isValidUtf8(std::string_view text) {
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
  auto length = static_cast<std::int32_t>(text.size());
  for (std::int32_t i = 0; i < length;) {
    i += static_cast<std::int32_t>(asciiLength(text.substr(static_cast<std::size_t>(i))));
    while (i < length && bytes[i] >= 0x80) {
      UChar32 c;
      U8_NEXT(bytes, i, length, c);
      if (c < 0) return false;
    }
  }
  return true;
}

static icu::UnicodeString unicode(std::string_view text) {
  return icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<std::int32_t>(text.size())));
}

static std::string utf8(const icu::UnicodeString& text) {
  std::string result;
  text.toUTF8String(result);
  return result;
}

std::string validUtf8(std::string_view text) {
  return isValidUtf8(text) ? std::string(text) : utf8(unicode(text));
}

static std::string asciiLowercased(std::string_view text) {
  std::string result(text);
  for (char& c : result)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return result;
}

std::string foldedText(std::string_view text) {
  if (isAscii(text)) return asciiLowercased(text);
  UErrorCode status = U_ZERO_ERROR;
  const icu::Normalizer2* nfc = icu::Normalizer2::getNFCInstance(status);
  if (U_FAILURE(status)) return asciiLowercased(text);
  // Folding may decompose what was composed, so the composed form is made again afterwards.
  icu::UnicodeString folded = nfc->normalize(unicode(text), status).foldCase();
  icu::UnicodeString composed = nfc->normalize(folded, status);
  return U_FAILURE(status) ? asciiLowercased(text) : utf8(composed);
}

std::string decomposed(std::string_view text) {
  if (isAscii(text)) return std::string(text);
  UErrorCode status = U_ZERO_ERROR;
  const icu::Normalizer2* nfd = icu::Normalizer2::getNFDInstance(status);
  if (U_FAILURE(status)) return std::string(text);
  icu::UnicodeString result = nfd->normalize(unicode(text), status);
  return U_FAILURE(status) ? std::string(text) : utf8(result);
}

std::string lowercased(std::string_view text) {
  if (isAscii(text)) return asciiLowercased(text);
  return utf8(unicode(text).toLower(icu::Locale::getRoot()));
}

std::string trimmedWhitespace(std::string_view text) {
  // UnicodeString::trim() keeps no-break blanks; the white space of the Unicode standard does not.
  icu::UnicodeString all = unicode(text);
  std::int32_t begin = 0;
  std::int32_t end = all.length();
  while (begin < end && u_isUWhiteSpace(all.char32At(begin))) ++begin;
  while (begin < end && u_isUWhiteSpace(all.char32At(end - 1))) --end;
  return utf8(all.tempSubStringBetween(begin, end));
}

static std::unique_ptr<icu::Collator> userCollator() {
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::Collator> collator(icu::Collator::createInstance(status));
  // Some languages pass over blanks and punctuation, the slashes of paths among them.
  if (collator) collator->setAttribute(UCOL_ALTERNATE_HANDLING, UCOL_NON_IGNORABLE, status);
  return U_SUCCESS(status) ? std::move(collator) : nullptr;
}

bool localizedEqual(std::string_view a, std::string_view b) {
  if (a == b) return true;
  if (!isValidUtf8(a) || !isValidUtf8(b)) return false;
  thread_local std::unique_ptr<icu::Collator> collator = userCollator();
  if (!collator) return false;
  UErrorCode compared = U_ZERO_ERROR;
  return collator->compare(unicode(a), unicode(b), compared) == UCOL_EQUAL && U_SUCCESS(compared);
}

std::string base64(std::string_view bytes) {
  std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');
  int length =
      EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                      reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()));
  text.resize(static_cast<std::size_t>(length));
  return text;
}

static bool isAsciiAlphanumeric(char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

std::string percentEncoded(std::string_view text, std::string_view allowed) {
  std::string result;
  for (char c : text) {
    if (isAsciiAlphanumeric(c) || allowed.find(c) != std::string_view::npos) {
      result += c;
      continue;
    }
    auto byte = static_cast<std::uint8_t>(c);
    result += '%';
    result += hex(&byte, 1, "0123456789ABCDEF");
  }
  return result;
}

static int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

std::string percentDecoded(std::string_view text) {
  std::string result;
  for (std::size_t i = 0; i < text.size(); ++i) {
    int high = i + 2 < text.size() && text[i] == '%' ? hexDigit(text[i + 1]) : -1;
    int low = high >= 0 ? hexDigit(text[i + 2]) : -1;
    if (low >= 0) {
      result += static_cast<char>(high * 16 + low);
      i += 2;
    } else {
      result += text[i];
    }
  }
  return result;
}

}  // namespace vornex
