#pragma once

#include <string>
#include <string_view>

namespace vornex {

/// A fresh random UUID (RFC 4122 version 4), upper case.
std::string makeUUID();
/// 32 upper-case hexadecimal digits.
std::string md5Hex(std::string_view bytes);
/// Of the given number of random bytes from the system's generator, as lower-case hexadecimal digits.
std::string randomHex(std::size_t bytes);

bool isValidUtf8(std::string_view text);
/// Invalid sequences replaced by U+FFFD.
std::string validUtf8(std::string_view text);
/// Unicode full case folding of the NFC form, for matching without regard to case or composition.
std::string foldedText(std::string_view text);
/// The canonically decomposed form (NFD): equal for texts that differ in composition only.
std::string decomposed(std::string_view text);
std::string lowercased(std::string_view text);
std::string trimmedWhitespace(std::string_view text);
/// Whether the texts are equal under the user's collation ("localizedCompare" giving "same"), in which blanks
/// and punctuation always count. What is not valid UTF-8 is equal to the same bytes only.
bool localizedEqual(std::string_view a, std::string_view b);

std::string base64(std::string_view bytes);
/// Bytes other than ASCII letters, digits and those in `allowed` become %XX.
std::string percentEncoded(std::string_view text, std::string_view allowed);
/// Undoes percent-encoding; a malformed escape is kept as it is.
std::string percentDecoded(std::string_view text);

}  // namespace vornex
