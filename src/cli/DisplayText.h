#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace vornex::cli {

/// Columns that the text takes on a terminal, counted by grapheme cluster: combining marks take none, East
/// Asian wide characters and emoji two.
std::size_t displayWidth(std::string_view text);

/// The text as it may be shown on a terminal: invalid UTF-8 replaced, and control characters, line breaks and
/// direction overrides written as escapes, so that a file name can neither break a line nor steer the
/// terminal.
std::string printable(std::string_view text);

/// The longest beginning that fits into `width` columns with an ellipsis, or the whole text when it fits.
std::string shortened(std::string_view text, std::size_t width);

/// The same for paths and other texts whose end tells more than their beginning.
std::string shortenedAtStart(std::string_view text, std::size_t width);

/// Blanks appended (or put in front) up to `width` columns; a wider text stays as it is.
std::string padded(std::string text, std::size_t width, bool rightAligned = false);

}  // namespace vornex::cli
