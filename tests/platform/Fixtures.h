#pragma once

#include <fstream>
#include <string>
#include <vips/vips8>

#include "foundation/Files.h"
#include "platform/Images.h"
#include "platform/Processes.h"

namespace vornex::testing {

/// Red in the upper left quarter, green upper right, blue lower left, white lower right.
inline vips::VImage quarters(int width, int height) {
  Image::fromRgb(1, 1, Data(3)).value();  // starts libvips
  auto area = [&](double red, double green, double blue) {
    return vips::VImage::black(width / 2, height / 2)
        .new_from_image({red, green, blue})
        .cast(VIPS_FORMAT_UCHAR);
  };
  vips::VImage top = area(255, 0, 0).join(area(0, 255, 0), VIPS_DIRECTION_HORIZONTAL);
  vips::VImage bottom = area(0, 0, 255).join(area(255, 255, 255), VIPS_DIRECTION_HORIZONTAL);
  return top.join(bottom, VIPS_DIRECTION_VERTICAL)
      .copy(vips::VImage::option()->set("interpretation", VIPS_INTERPRETATION_sRGB));
}

/// Noise over colour: does not compress to nothing.
inline vips::VImage photo(int width, int height) {
  vips::VImage noise =
      vips::VImage::gaussnoise(width, height, vips::VImage::option()->set("sigma", 20)->set("mean", 0));
  return (quarters(width, height) * 0.6 + 40 + noise)
      .cast(VIPS_FORMAT_UCHAR)
      .copy(vips::VImage::option()->set("interpretation", VIPS_INTERPRETATION_sRGB));
}

inline std::vector<double> pixel(const Image& image, int x, int y) {
  std::string jpeg = image.encodeJpeg().value();
  return vips::VImage::new_from_buffer(jpeg.data(), jpeg.size(), "").getpoint(x, y);
}

/// The colour at a place given as a fraction of the sides: "red", "green", "blue", "white", "black" or
/// "other".
inline std::string colourAt(const Image& image, double x, double y) {
  auto rgb = pixel(image, static_cast<int>(x * image.width()), static_cast<int>(y * image.height()));
  int bits = 0;
  for (double channel : rgb) {
    if (channel > 70 && channel < 180) return "other";
    bits = bits * 2 + (channel >= 180);
  }
  const char* names[] = {"black", "blue", "green", "other", "red", "other", "other", "white"};
  return names[bits];
}

inline void write(const std::string& path, std::string_view bytes) {
  std::ofstream stream(path, std::ios::binary);
  stream << bytes;
}

/// The leading part of another file.
inline void writeTruncated(const std::string& path, const std::string& whole, double part) {
  std::string bytes = readFile(whole).value();
  write(path, std::string_view(bytes).substr(0, static_cast<std::size_t>(double(bytes.size()) * part)));
}

inline bool ffmpeg(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), {"-hide_banner", "-loglevel", "error", "-nostdin", "-y"});
  auto ended = runProcess("ffmpeg", arguments);
  return ended && ended->succeeded();
}

}  // namespace vornex::testing
