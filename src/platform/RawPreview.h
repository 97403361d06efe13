#pragma once

#include <string>

#include "foundation/Error.h"

namespace vornex {

/// Whether the name is that of a camera's raw file.
bool isCameraRaw(const std::string& path);

/// The picture that a camera has put into its raw file for showing.
struct RawPreview {
  /// The bytes of a JPEG; something may follow its end.
  std::string jpeg;
  int width = 0;
  int height = 0;
  /// Of the picture that the raw file holds, before it is turned; of this one where the file tells no more.
  int fullWidth = 0;
  int fullHeight = 0;
  /// As the raw file tells it, 1 to 8. The JPEG may tell its own as well.
  int orientation = 1;
};

/// The largest one in the file. Domain "image". Blocks; thread-safe.
[[nodiscard]] Result<RawPreview> rawPreview(const std::string& path);

}  // namespace vornex
