#include "platform/RawPreview.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string_view>

#include "foundation/Files.h"
#include "foundation/Text.h"

namespace vornex {

namespace {

constexpr std::size_t kMaxRaw = std::size_t{1} << 30;

/// Reads numbers of either byte order; outside the text they are 0.
class ByteReader {
 public:
  ByteReader(std::string_view bytes, bool bigEndian) : bytes_(bytes), bigEndian_(bigEndian) {}

  unsigned two(std::size_t at) const { return number(at, 2); }
  unsigned four(std::size_t at) const { return number(at, 4); }

 private:
  unsigned number(std::size_t at, std::size_t count) const {
    if (at > bytes_.size() || bytes_.size() - at < count) return 0;
    unsigned value = 0;
    for (std::size_t i = 0; i < count; ++i) {
      auto byte = static_cast<unsigned char>(bytes_[at + (bigEndian_ ? i : count - 1 - i)]);
      value = value << 8 | byte;
    }
    return value;
  }

  std::string_view bytes_;
  bool bigEndian_;
};

struct JpegSize {
  int width;
  int height;
};

/// The size of the 8-bit picture that begins here; absent for anything else, also for the lossless kind in
/// which cameras store the sensor's values.
std::optional<JpegSize> jpegSize(std::string_view bytes) {
  ByteReader reader(bytes, true);
  for (std::size_t at = 2; at + 9 < bytes.size();) {
    unsigned marker = reader.two(at);
    unsigned length = reader.two(at + 2);
    if (marker < 0xFFC0 || length < 2) return std::nullopt;
    bool isFrame = marker <= 0xFFCF && marker != 0xFFC4 && marker != 0xFFC8 && marker != 0xFFCC;
    if (isFrame) {
      bool isPicture = marker <= 0xFFC2 && bytes[at + 4] == 8;
      JpegSize size{static_cast<int>(reader.two(at + 7)), static_cast<int>(reader.two(at + 5))};
      return isPicture && size.width > 0 && size.height > 0 ? std::make_optional(size) : std::nullopt;
    }
    at += 2 + length;
  }
  return std::nullopt;
}

/// The orientation in the first directory of a file that is built like TIFF, as most raw files are.
int tiffOrientation(std::string_view bytes) {
  constexpr unsigned kOrientation = 0x0112;
  bool bigEndian = bytes.starts_with("MM");
  if (!bigEndian && !bytes.starts_with("II")) return 1;
  ByteReader reader(bytes, bigEndian);
  std::size_t directory = reader.four(4);
  for (unsigned entry = 0; entry < reader.two(directory); ++entry) {
    std::size_t at = directory + 2 + std::size_t{entry} * 12;
    unsigned value = reader.two(at + 8);
    if (reader.two(at) == kOrientation) return value >= 1 && value <= 8 ? static_cast<int>(value) : 1;
  }
  return 1;
}

}  // namespace

bool isCameraRaw(const std::string& path) {
  constexpr std::array kExtensions = {"3fr", "arw", "cr2", "cr3", "crw", "dcr", "dng", "erf",
                                      "fff", "iiq", "kdc", "mef", "mos", "mrw", "nef", "nrw",
                                      "orf", "pef", "raf", "rw2", "rwl", "sr2", "srf", "srw"};
  return std::find(kExtensions.begin(), kExtensions.end(), lowercased(pathExtension(path))) !=
         kExtensions.end();
}

Result<RawPreview> rawPreview(const std::string& path) {
  auto content = readFile(path, kMaxRaw);
  if (!content) return failure("image", content.error().code, content.error().message);
  std::string_view bytes = *content;
  RawPreview best;
  std::size_t start = 0;
  for (std::size_t at = 0; (at = bytes.find("\xFF\xD8\xFF", at)) != std::string_view::npos; at += 3) {
    auto size = jpegSize(bytes.substr(at));
    bool isLarger = size && std::int64_t{size->width} * size->height > std::int64_t{best.width} * best.height;
    if (!isLarger) continue;
    best.width = size->width;
    best.height = size->height;
    start = at;
  }
  if (best.width == 0) return failure("image", 0, path + " holds no picture for showing");
  best.orientation = tiffOrientation(bytes);
  best.jpeg = content->substr(start);
  return best;
}

}  // namespace vornex
