#include "platform/Images.h"

#include "foundation/Files.h"
#include "platform/RawPreview.h"
#include "platform/VipsSupport.h"

namespace vornex {

using vips::VImage;

struct Image::Pixels {
  VImage image;
  bool partial = false;
};

struct ImageAccess {
  static Image make(VImage image, bool partial) {
    return Image(std::make_shared<const Image::Pixels>(Image::Pixels{std::move(image), partial}));
  }
};

namespace {

constexpr int kJpegQuality = 85;
constexpr double kMegapixel = 1e6;
constexpr double kMaxThumbnailSource = 1000 * kMegapixel;
constexpr double kMaxDecoded = 200 * kMegapixel;
constexpr std::chrono::seconds kTimeLimit{30};

using Clock = std::chrono::steady_clock;

void stopWhenLate(VipsImage* image, VipsProgress*, void* deadline) {
  if (Clock::now() > *static_cast<Clock::time_point*>(deadline)) vips_image_set_kill(image, TRUE);
}

Clock::time_point timeLimit() {
  return Clock::now() + kTimeLimit;
}

/// Computes the pixels of a pipeline; gives up at the deadline.
VImage computed(const VImage& image, Clock::time_point deadline = timeLimit()) {
  vips_image_set_progress(image.get_image(), TRUE);
  gulong handler = g_signal_connect(image.get_image(), "eval", G_CALLBACK(stopWhenLate), &deadline);
  struct Disconnect {
    const VImage& image;
    gulong handler;
    ~Disconnect() {
      g_signal_handler_disconnect(image.get_image(), handler);
      vips_image_set_progress(image.get_image(), FALSE);
    }
  } disconnect{image, handler};
  return image.copy_memory();
}

/// 8-bit sRGB with three bands, or four with transparency.
VImage inSrgb(VImage image) {
  if (image.interpretation() != VIPS_INTERPRETATION_sRGB) image = image.colourspace(VIPS_INTERPRETATION_sRGB);
  if (image.format() != VIPS_FORMAT_UCHAR) image = image.cast(VIPS_FORMAT_UCHAR);
  if (image.bands() > 4) image = image.extract_band(0, VImage::option()->set("n", 4));
  return image;
}

/// Whether every pixel is the same: all that remains of a picture of which nothing could be decoded.
bool isBlank(const VImage& image) {
  for (int band = 0; band < image.bands(); ++band) {
    VImage one = image.extract_band(band);
    if (one.min() != one.max()) return false;
  }
  return true;
}

/// Decodes strictly; a source that is broken, again as far as it goes. `load` gets the loader's tolerance.
template <typename Load>
Result<Image> decodeTolerantly(const std::string& what, Load load) {
  auto deadline = timeLimit();
  auto whole = catchingVips(what, [&] { return computed(inSrgb(load(VIPS_FAIL_ON_ERROR)), deadline); });
  if (whole) return ImageAccess::make(*whole, false);
  auto part = catchingVips(what, [&] { return computed(inSrgb(load(VIPS_FAIL_ON_NONE)), deadline); });
  if (!part) return tl::unexpected(part.error());
  auto blank = catchingVips(what, [&] { return isBlank(*part); });
  if (!blank || *blank) return tl::unexpected(whole.error());
  return ImageAccess::make(*part, true);
}

Result<void> checkPixels(const VImage& image, double limit, const std::string& what) {
  double pixels = double(image.width()) * image.height();
  if (pixels > limit) {
    return failure("image", 0, fmt::format("{} is too large: {} x {}", what, image.width(), image.height()));
  }
  return {};
}

/// How to shrink the image with this header. Only colours that are no sRGB are converted: the way through a
/// profile costs time, and without one it would shift them.
vips::VOption* thumbnailOptions(const VImage& header, int maxHeight, VipsSize size, VipsFailOn tolerance) {
  auto* options = VImage::option()->set("height", maxHeight)->set("size", size)->set("fail_on", tolerance);
  bool managed =
      header.get_typeof(VIPS_META_ICC_NAME) != 0 || header.interpretation() == VIPS_INTERPRETATION_CMYK;
  return managed ? options->set("export_profile", "srgb") : options;
}

/// By how much a JPEG can be shrunk while it is decoded, in the frequencies, and still fill the bound; 1 for
/// everything else. libvips by itself shrinks less and scales the many pixels that are left.
int shrinkOfDecoder(const VImage& header, int maxWidth, int maxHeight) {
  bool isJpeg = header.get_typeof("vips-loader") != 0 &&
                std::string_view(header.get_string("vips-loader")).starts_with("jpegload");
  if (!isJpeg) return 1;
  int width = header.width();
  int height = header.height();
  if (vips_image_get_orientation_swap(header.get_image())) std::swap(width, height);
  double shrink = std::max(double(width) / maxWidth, double(height) / maxHeight);
  // The decoder rounds down, and fails when nothing is left of a side.
  shrink = std::min(shrink, double(std::min(width, height)));
  return shrink >= 8 ? 8 : shrink >= 4 ? 4 : shrink >= 2 ? 2 : 1;
}

/// Averages blocks of pixels, of which twice as many are left as are wanted: the last step makes them sharp.
/// Transparent pixels must not mix with others.
VImage coarselyShrunk(const VImage& image, int width, int height) {
  int factor = std::min(image.width() / width, image.height() / height) / 2;
  return factor < 2 || image.has_alpha() ? image : image.shrink(factor, factor);
}

}  // namespace

Image::Image(std::shared_ptr<const Pixels> pixels) : pixels_(std::move(pixels)) {}

Result<Image> Image::fromRgb(int width, int height, const Data& pixels) {
  return fromPixels(width, height, 3, pixels, false);
}

Result<Image> Image::fromPixels(int width, int height, int channels, const Data& pixels, bool isPartial) {
  if (!startVips()) return failure("image", 0, "libvips does not start");
  bool fits = width >= 1 && height >= 1 && channels >= 1 && channels <= 4 &&
              pixels.size() == std::size_t(width) * std::size_t(height) * std::size_t(channels);
  if (!fits) {
    return failure("image", 0,
                   fmt::format("{} bytes are no picture of {} x {}", pixels.size(), width, height));
  }
  return catchingVips("image from pixels", [&] {
    VipsImage* copied = vips_image_new_from_memory_copy(pixels.data(), pixels.size(), width, height, channels,
                                                        VIPS_FORMAT_UCHAR);
    if (!copied) throw vips::VError();
    VImage copy(copied);
    auto space = channels < 3 ? VIPS_INTERPRETATION_B_W : VIPS_INTERPRETATION_sRGB;
    return ImageAccess::make(copy.copy(VImage::option()->set("interpretation", space)), isPartial);
  });
}

int Image::width() const {
  return pixels_->image.width();
}

int Image::height() const {
  return pixels_->image.height();
}

int Image::channels() const {
  return pixels_->image.bands();
}

std::string_view Image::pixels() const {
  return {static_cast<const char*>(pixels_->image.data()),
          std::size_t(width()) * std::size_t(height()) * std::size_t(channels())};
}

bool Image::isPartial() const {
  return pixels_->partial;
}

Result<Image> Image::resizedTo(int width, int height) const {
  if (width < 1 || height < 1) return failure("image", 0, fmt::format("no size: {} x {}", width, height));
  return catchingVips("resize", [&] {
    VImage resized = coarselyShrunk(pixels_->image, width, height)
                         .thumbnail_image(width, VImage::option()
                                                     ->set("height", height)
                                                     ->set("size", VIPS_SIZE_FORCE)
                                                     ->set("no_rotate", true));
    return ImageAccess::make(computed(inSrgb(resized)), pixels_->partial);
  });
}

Result<Image> Image::fittedWithin(int maxWidth, int maxHeight) const {
  if (maxWidth < 1 || maxHeight < 1)
    return failure("image", 0, fmt::format("no size: {} x {}", maxWidth, maxHeight));
  double shrink = std::max({1.0, double(width()) / maxWidth, double(height()) / maxHeight});
  if (shrink == 1.0) return *this;
  auto shrunk = [&](int side) { return std::max(1, static_cast<int>(side / shrink + 0.5)); };
  return resizedTo(shrunk(width()), shrunk(height()));
}

Result<Image> Image::rotated(int degrees) const {
  if (degrees % 90 != 0) return failure("image", 0, fmt::format("no right angle: {}", degrees));
  auto angle = static_cast<VipsAngle>(((degrees / 90) % 4 + 4) % 4);
  if (angle == VIPS_ANGLE_D0) return *this;
  return catchingVips(
      "rotate", [&] { return ImageAccess::make(computed(pixels_->image.rot(angle)), pixels_->partial); });
}

Result<std::string> Image::encodeJpeg() const {
  return catchingVips("encode JPEG", [&] {
    VImage image = pixels_->image;
    if (image.has_alpha())
      image = image.flatten(VImage::option()->set("background", std::vector<double>{255, 255, 255}));
    VipsBlob* blob = image.jpegsave_buffer(VImage::option()->set("Q", kJpegQuality)->set("strip", true));
    std::size_t size = 0;
    const void* bytes = vips_blob_get(blob, &size);
    std::string encoded(static_cast<const char*>(bytes), size);
    vips_area_unref(VIPS_AREA(blob));
    return encoded;
  });
}

Result<void> Image::saveJpeg(const std::string& path) const {
  auto encoded = encodeJpeg();
  if (!encoded) return tl::unexpected(encoded.error());
  return writeFileAtomically(path, *encoded);
}

/// Clockwise degrees for an orientation; mirrored ones count as what they are turned.
static int degreesOf(int orientation) {
  if (orientation == 3 || orientation == 4) return 180;
  if (orientation == 5 || orientation == 6) return 90;
  return orientation == 7 || orientation == 8 ? 270 : 0;
}

/// The picture for showing in a camera's raw file.
static Result<Image> loadRawPreview(const std::string& path, int maxWidth, int maxHeight) {
  auto preview = rawPreview(path);
  if (!preview) return tl::unexpected(preview.error());
  if (auto checked = checkImageBytes(preview->jpeg); !checked) return tl::unexpected(checked.error());
  auto ownOrientation = catchingVips(path, [&] {
    return vips_image_get_orientation(
        VImage::new_from_buffer(preview->jpeg.data(), preview->jpeg.size(), "").get_image());
  });
  int degrees = ownOrientation.value_or(1) > 1 ? 0 : degreesOf(preview->orientation);
  return decodeImage(preview->jpeg)
      .and_then([&](const Image& image) { return image.rotated(degrees); })
      .and_then([&](const Image& image) { return image.fittedWithin(maxWidth, maxHeight); });
}

Result<Image> loadThumbnail(const std::string& path, int maxWidth, int maxHeight) {
  if (maxWidth < 1 || maxHeight < 1)
    return failure("image", 0, fmt::format("no size: {} x {}", maxWidth, maxHeight));
  // libvips would take the sensor's values, or a stamp of a picture, for the picture.
  if (isCameraRaw(path)) {
    if (auto preview = loadRawPreview(path, maxWidth, maxHeight)) return preview;
  }
  auto source = imageSource(path);
  if (!source) return tl::unexpected(source.error());
  auto header = catchingVips(path, [&] { return openImage(*source); });
  if (!header) return tl::unexpected(header.error());
  if (!source->drawing) {
    if (auto fits = checkPixels(*header, kMaxThumbnailSource, path); !fits)
      return tl::unexpected(fits.error());
  }
  VipsSize size = source->drawing ? VIPS_SIZE_BOTH : VIPS_SIZE_DOWN;
  int shrink = shrinkOfDecoder(*header, maxWidth, maxHeight);
  return decodeTolerantly(path, [&](VipsFailOn tolerance) {
    if (shrink > 1)
      return openImage(*source, VImage::option()->set("shrink", shrink)->set("fail_on", tolerance))
          .thumbnail_image(maxWidth, thumbnailOptions(*header, maxHeight, size, tolerance));
    return VImage::thumbnail(source->path.c_str(), maxWidth,
                             thumbnailOptions(*header, maxHeight, size, tolerance));
  });
}

Result<std::vector<Image>> loadThumbnails(const std::string& path, const std::vector<int>& bounds) {
  std::vector<Image> images;
  for (int bound : bounds) {
    auto image =
        images.empty() ? loadThumbnail(path, bound, bound) : images.back().fittedWithin(bound, bound);
    if (!image) return tl::unexpected(image.error());
    images.push_back(std::move(*image));
  }
  return images;
}

Result<Image> decodeImage(std::string_view bytes) {
  if (auto checked = checkImageBytes(bytes); !checked) return tl::unexpected(checked.error());
  auto blob = std::unique_ptr<VipsBlob, void (*)(VipsBlob*)>(
      vips_blob_new(nullptr, bytes.data(), bytes.size()),
      [](VipsBlob* area) { vips_area_unref(VIPS_AREA(area)); });
  auto header =
      catchingVips("image data", [&] { return VImage::new_from_buffer(bytes.data(), bytes.size(), ""); });
  if (!header) return tl::unexpected(header.error());
  if (auto fits = checkPixels(*header, kMaxDecoded, "image data"); !fits) return tl::unexpected(fits.error());
  return decodeTolerantly("image data", [&](VipsFailOn tolerance) {
    return VImage::thumbnail_buffer(blob.get(), VIPS_MAX_COORD,
                                    thumbnailOptions(*header, VIPS_MAX_COORD, VIPS_SIZE_DOWN, tolerance));
  });
}

Result<ImageSize> imageSize(const std::string& path) {
  auto source = imageSource(path);
  if (!source) return tl::unexpected(source.error());
  return catchingVips(path, [&] {
    VImage image = openImage(*source);
    ImageSize size{image.width(), image.height()};
    if (vips_image_get_orientation_swap(image.get_image())) std::swap(size.width, size.height);
    return size;
  });
}

}  // namespace vornex
