#include "platform/VipsSupport.h"

#include <sys/stat.h>
#include <vornex/Log.h>

#include <array>
#include <cerrno>
#include <fstream>

namespace vornex {

namespace {

// libvips keeps this many threads for one image; several images are usually under way at once.
constexpr int kThreadsPerImage = 2;

void logFromVips(const char*, GLogLevelFlags, const char* message, void*) {
  logLine(LogLevel::debug, std::string("libvips: ") + message);
}

bool initialise() {
  if (vips_init("vornex") != 0) {
    logLine(LogLevel::error, std::string("libvips does not start: ") + vips_error_buffer());
    return false;
  }
  auto levels = static_cast<GLogLevelFlags>(G_LOG_LEVEL_WARNING | G_LOG_LEVEL_MESSAGE | G_LOG_LEVEL_INFO);
  g_log_set_handler("VIPS", levels, logFromVips, nullptr);
  vips_concurrency_set(kThreadsPerImage);
  // Thumbnails are made once; remembered operations would only hold memory and open files.
  vips_cache_set_max(0);
  return true;
}

enum class Loader { refused, bitmap, drawing, general };

/// What we let libvips use. The others read numbers as pictures, are for microscopes, or follow odd file
/// names.
Loader loaderKind(std::string_view name) {
  constexpr std::string_view kPrefix = "VipsForeignLoad";
  constexpr std::array<std::string_view, 12> kBitmaps = {"Jpeg", "Png",  "Tiff", "Webp",    "Heif", "Nsgif",
                                                         "Gif",  "Jp2k", "Jxl",  "Openexr", "Ppm",  "Rad"};
  if (!name.starts_with(kPrefix)) return Loader::refused;
  name.remove_prefix(kPrefix.size());
  if (name.starts_with("Svg") || name.starts_with("Pdf")) return Loader::drawing;
  if (name.starts_with("Magick")) return Loader::general;
  bool isBitmap =
      std::any_of(kBitmaps.begin(), kBitmaps.end(), [&](auto known) { return name.starts_with(known); });
  return isBitmap ? Loader::bitmap : Loader::refused;
}

/// The general loader would start outside programs for all sorts of files; it gets these alone.
bool isPlainBitmap(std::string_view head) {
  using namespace std::string_view_literals;
  constexpr std::array kSignatures = {"BM"sv, "8BPS"sv, "\0\0\1\0"sv, "DDS "sv, "icns"sv, "gimp xcf "sv};
  return std::any_of(kSignatures.begin(), kSignatures.end(),
                     [&](auto start) { return head.starts_with(start); });
}

Result<bool> isDrawing(const char* loader, std::string_view head, const std::string& what) {
  Loader kind = loader ? loaderKind(loader) : Loader::refused;
  vips_error_clear();
  if (kind == Loader::refused || (kind == Loader::general && !isPlainBitmap(head))) {
    return failure("image", 0, what + " is not a still image");
  }
  return kind == Loader::drawing;
}

}  // namespace

bool startVips() {
  static const bool running = initialise();
  return running;
}

Result<ImageSource> imageSource(const std::string& path) {
  if (!startVips()) return failure("image", 0, "libvips does not start");
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) return failure("image", errno, "cannot find " + path);
  if (!S_ISREG(status.st_mode)) return failure("image", 0, path + " is not a regular file");

  char head[16] = {};
  std::ifstream stream(path, std::ios::binary);
  stream.read(head, sizeof head);
  // libvips takes a name that ends in a bracket for one with options; empty options say that it has none.
  std::string name = path.ends_with(']') ? path + "[]" : path;
  auto drawing = isDrawing(vips_foreign_find_load(name.c_str()),
                           {head, static_cast<std::size_t>(stream.gcount())}, path);
  if (!drawing) return tl::unexpected(drawing.error());
  return ImageSource{name, *drawing};
}

Result<void> checkImageBytes(std::string_view bytes) {
  if (!startVips()) return failure("image", 0, "libvips does not start");
  if (bytes.empty()) return failure("image", 0, "no bytes");
  auto drawing = isDrawing(vips_foreign_find_load_buffer(bytes.data(), bytes.size()), bytes, "data");
  if (!drawing) return tl::unexpected(drawing.error());
  return {};
}

vips::VImage openImage(const ImageSource& source, vips::VOption* options) {
  if (!options) options = vips::VImage::option();
  return vips::VImage::new_from_file(source.path.c_str(), options->set("access", VIPS_ACCESS_SEQUENTIAL));
}

}  // namespace vornex
