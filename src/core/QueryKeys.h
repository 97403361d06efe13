#pragma once

#include <cstddef>
#include <string_view>

namespace vornex {

/// The length in bytes of the character at the front of the UTF-8 text when a key in a query may hold it: a
/// letter, digit or mark of any script, or "_". 0 for any other one, and at the end.
std::size_t keyCharacterLength(std::string_view text);

/// Whether the text is one or more of these characters.
bool isQueryKey(std::string_view text);

}  // namespace vornex
