#include "server/query/TextNormalization.h"

#include <unicode/locid.h>
#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include <cstring>

#include "foundation/Text.h"

namespace vornex::server {

bool isAsciiText(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

bool containsText(std::string_view text, std::string_view part) {
  return part.empty() || ::memmem(text.data(), text.size(), part.data(), part.size()) != nullptr;
}

static icu::UnicodeString unicode(std::string_view text) {
  return icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<std::int32_t>(text.size())));
}

static icu::UnicodeString normalized(const icu::Normalizer2* form, const icu::UnicodeString& text) {
  UErrorCode status = U_ZERO_ERROR;
  icu::UnicodeString result = form->normalize(text, status);
  return U_SUCCESS(status) ? result : text;
}

static const icu::Normalizer2* composition() {
  UErrorCode status = U_ZERO_ERROR;
  return icu::Normalizer2::getNFCInstance(status);
}

static const icu::Normalizer2* decomposition() {
  UErrorCode status = U_ZERO_ERROR;
  return icu::Normalizer2::getNFDInstance(status);
}

std::string composedText(std::string_view text) {
  if (isAsciiText(text)) return std::string(text);
  std::string result;
  normalized(composition(), unicode(text)).toUTF8String(result);
  return result;
}

std::string uppercased(std::string_view text) {
  std::string result;
  unicode(text).toUpper(icu::Locale::getRoot()).toUTF8String(result);
  return result;
}

static std::string withoutMarks(std::string_view text) {
  icu::UnicodeString decomposed = normalized(decomposition(), unicode(text));
  icu::UnicodeString bare;
  for (std::int32_t i = 0; i < decomposed.length(); i = decomposed.moveIndex32(i, 1)) {
    UChar32 c = decomposed.char32At(i);
    if (u_charType(c) != U_NON_SPACING_MARK) bare.append(c);
  }
  std::string result;
  normalized(composition(), bare).toUTF8String(result);
  return result;
}

std::string normalizedText(std::string_view text, TextOptions options) {
  if (options.diacriticInsensitive && !isAsciiText(text)) {
    std::string bare = withoutMarks(text);
    return options.caseInsensitive ? foldedText(bare) : bare;
  }
  return options.caseInsensitive ? foldedText(text) : std::string(text);
}

std::size_t lastCodePoint(std::string_view text) {
  std::size_t at = text.size();
  while (at > 0 && (static_cast<unsigned char>(text[--at]) & 0xc0) == 0x80) {
  }
  return at;
}

std::size_t codePointCount(std::string_view text) {
  return static_cast<std::size_t>(std::count_if(
      text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xc0) != 0x80; }));
}

}  // namespace vornex::server
