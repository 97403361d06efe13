#pragma once

#include <string>
#include <string_view>

namespace vornex::server {

/// Which differences between texts a comparison overlooks.
struct TextOptions {
  bool caseInsensitive = false;
  bool diacriticInsensitive = false;

  bool any() const { return caseInsensitive || diacriticInsensitive; }
};

/// The text as it compares under the options; unchanged without any. Invalid UTF-8 becomes U+FFFD.
std::string normalizedText(std::string_view text, TextOptions options);

/// The canonical composition (NFC).
std::string composedText(std::string_view text);

/// In capitals, whatever the language.
std::string uppercased(std::string_view text);

/// Whether the part stands anywhere in the text, in time linear in both.
bool containsText(std::string_view text, std::string_view part);

bool isAsciiText(std::string_view text);

/// Where the last code point of valid UTF-8 begins; 0 for an empty text.
std::size_t lastCodePoint(std::string_view text);
std::size_t codePointCount(std::string_view text);

}  // namespace vornex::server
