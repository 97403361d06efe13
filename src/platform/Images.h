#pragma once

#include <vornex/Value.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/Error.h"

namespace vornex {

/// A decoded image: 8-bit sRGB, upright, with or without transparency, both sides at least 1 pixel.
///
/// Thread-safety: immutable and cheap to copy; copies share the pixels. Safe on any thread.
class Image {
 public:
  /// From rows of red, green, blue bytes without padding. Domain "image" when the sizes do not fit together.
  [[nodiscard]] static Result<Image> fromRgb(int width, int height, const Data& pixels);
  /// The same with 1 (grey) to 4 (red, green, blue, opacity) bytes for a pixel.
  [[nodiscard]] static Result<Image> fromPixels(int width, int height, int channels, const Data& pixels,
                                                bool isPartial);

  int width() const;
  int height() const;
  int channels() const;
  /// The rows of all pixels without padding; valid as long as a copy of the image lives.
  std::string_view pixels() const;
  /// Whether the source broke off: the rest of the picture is blank.
  bool isPartial() const;

  /// Stretched or shrunk to exactly this size.
  [[nodiscard]] Result<Image> resizedTo(int width, int height) const;
  /// Turned clockwise by a multiple of 90 degrees.
  [[nodiscard]] Result<Image> rotated(int degrees) const;
  /// Shrunk, keeping the aspect ratio, to lie within the bound; an image that does already is returned as it
  /// is.
  [[nodiscard]] Result<Image> fittedWithin(int maxWidth, int maxHeight) const;

  /// Transparency is laid on white. Quality 85, no metadata.
  [[nodiscard]] Result<std::string> encodeJpeg() const;
  /// Writes the JPEG atomically, replacing what is there. Domain "image" or "posix".
  [[nodiscard]] Result<void> saveJpeg(const std::string& path) const;

 private:
  struct Pixels;
  explicit Image(std::shared_ptr<const Pixels> pixels);
  friend struct ImageAccess;

  std::shared_ptr<const Pixels> pixels_;
};

/// Reads a still image (JPEG, PNG, TIFF, WebP, HEIF, AVIF, JPEG XL, JPEG 2000, GIF, SVG, PDF, OpenEXR, PSD,
/// BMP, ICO,
/// ...; the first page or frame) shrunk to lie within the bound, upright by its orientation, colours
/// converted to sRGB by its profile. Smaller bitmaps are not enlarged; drawings (SVG, PDF) are rendered to
/// fill the bound. An image that breaks off is decoded as far as it goes and marked partial; one of which
/// nothing can be decoded is an error. Files that are no still image, over 1000 megapixels, not regular, or
/// that take longer than 30 seconds are errors; domain "image". Blocks; thread-safe.
[[nodiscard]] Result<Image> loadThumbnail(const std::string& path, int maxWidth, int maxHeight);

/// The same in several sizes from one decoding; each bound is for both sides, the largest comes first.
[[nodiscard]] Result<std::vector<Image>> loadThumbnails(const std::string& path,
                                                        const std::vector<int>& bounds);

/// The same for the bytes of an encoded image, at full size; over 200 megapixels is an error.
[[nodiscard]] Result<Image> decodeImage(std::string_view bytes);

struct ImageSize {
  int width = 0;
  int height = 0;
};

/// The size in pixels after the orientation is applied, from the header alone. Domain "image".
[[nodiscard]] Result<ImageSize> imageSize(const std::string& path);

}  // namespace vornex
