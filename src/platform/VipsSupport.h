#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vips/vips8>

#include "foundation/Error.h"

namespace vornex {

/// An image that libvips is ready to read: it found a loader for it that we trust with still images.
struct ImageSource {
  std::string path;      ///< as libvips wants it, without options
  bool drawing = false;  ///< has no pixels of its own: SVG, PDF
};

/// Starts libvips on the first call and says whether it runs. Its warnings go to our log from then on.
bool startVips();

/// Checks that a regular file holds a still image; domain "image".
[[nodiscard]] Result<ImageSource> imageSource(const std::string& path);

/// Checks that the bytes hold a still image; domain "image".
[[nodiscard]] Result<void> checkImageBytes(std::string_view bytes);

/// Opens for reading the header; the pixels are read, in order, when asked for. Takes the loader's options.
/// Throws vips::VError.
vips::VImage openImage(const ImageSource& source, vips::VOption* options = nullptr);

/// Turns what libvips throws into an error of domain "image".
template <typename Function>
auto catchingVips(const std::string& what, Function function) -> Result<decltype(function())> {
  try {
    return function();
  } catch (const vips::VError& error) {
    vips_error_clear();
    return failure("image", 0, what + ": " + error.what());
  }
}

}  // namespace vornex
