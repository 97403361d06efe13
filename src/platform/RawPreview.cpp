#include "platform/RawPreview.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

#include "foundation/Files.h"
#include "foundation/Text.h"
#include "platform/ByteReader.h"
#include "platform/TiffFacts.h"

namespace vornex {

namespace {

constexpr std::size_t kMaxRaw = std::size_t{1} << 30;

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

/// Most raw files are built like TIFF; those that are made of boxes have such a directory in one of them.
TiffFacts rawFacts(std::string_view bytes) {
  constexpr std::string_view kBox = "CMT1";
  if (bytes.size() < 12 || bytes.substr(4, 7) != "ftypcrx") return tiffFacts(bytes);
  std::size_t box = bytes.find(kBox);
  return box == std::string_view::npos ? TiffFacts() : tiffFacts(bytes.substr(box + kBox.size()));
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
  TiffFacts facts = rawFacts(bytes);
  best.orientation = facts.orientation;
  bool tellsMore = std::int64_t{facts.width} * facts.height > std::int64_t{best.width} * best.height;
  best.fullWidth = tellsMore ? facts.width : best.width;
  best.fullHeight = tellsMore ? facts.height : best.height;
  best.jpeg = content->substr(start);
  return best;
}

}  // namespace vornex
