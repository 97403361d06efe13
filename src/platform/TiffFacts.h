#pragma once

#include <string_view>

namespace vornex {

/// What the directories of a file that is built like TIFF, as most camera raws are, tell of its picture.
struct TiffFacts {
  /// 1 to 8, of the first directory.
  int orientation = 1;
  /// Of the largest picture, before it is turned; 0 when none is told.
  int width = 0;
  int height = 0;
};

/// Whatever the bytes are, damaged ones included: what cannot be read is not told. Thread-safe.
TiffFacts tiffFacts(std::string_view bytes);

}  // namespace vornex
