#include "import/Thumbnail.h"

#include <vornex/Log.h>
#include <vornex/Types.h>

#include <algorithm>
#include <cmath>

#include "core/Coercion.h"
#include "core/TypeTables.h"
#include "foundation/Files.h"
#include "foundation/Text.h"
#include "platform/Images.h"
#include "platform/Previewer.h"

namespace vornex {

static constexpr int kThumbnailSize = 300;
static constexpr int kPreviewSize = 1600;
// What a JPEG can hold.
static constexpr int kLongestSide = 65500;
static constexpr float kFrameSeconds = 10.0F;

static bool neverHasPicture(const std::string& path) {
  std::string extension = lowercased(pathExtension(path));
  return extension == "wav" || extension == "aiff" || extension == "aif";
}

static ImagePtr previewed(const std::string& path, int maxSize) {
  if (!fileExists(path) || neverHasPicture(path)) return nullptr;
  Result<Image> image = previewImage(path, maxSize);
  return image ? std::make_shared<TQImage>(std::move(*image)) : nullptr;
}

ImagePtr previewOfFile(const std::string& path) {
  return previewed(path, kPreviewSize);
}

/// Stretched so that the shorter side has the size of a thumbnail.
static ImagePtr drawnAsThumbnail(const TQImage& source) {
  double ratio = static_cast<double>(source.width()) / source.height();
  auto side = [](double length) {
    return static_cast<int>(std::clamp<long>(std::lround(length), 1, kLongestSide));
  };
  if (kThumbnailSize / ratio >= kThumbnailSize)
    return source.resizedTo(kThumbnailSize, side(kThumbnailSize / ratio));
  return source.resizedTo(side(kThumbnailSize * ratio), kThumbnailSize);
}

ImagePtr thumbnailOfFile(const std::string& path) {
  if (!fileExists(path) || neverHasPicture(path)) return nullptr;
  if (ImagePtr image = previewed(path, kThumbnailSize)) return image;
  logLine(LogLevel::info, "====== QUICKLOOK FAILED:" + path);
  ImagePtr source = TQImage::albumImageWithURL(path);
  if (!source) source = TQImage::videoImageWithURL(path);
  return source ? drawnAsThumbnail(*source) : nullptr;
}

bool writeThumbnail(const std::string& source, const std::string& thumbnail) {
  if (ImagePtr image = thumbnailOfFile(source)) return image->saveJPEGWithPath(thumbnail);
  if (TypeTables::shared().assetType(pathExtension(source)) != kAssetTypeVideo) return false;
  return TQImage::ffMpegWriteThumbImageWithFrom(source, thumbnail, kFrameSeconds) ||
         TQImage::ffMpegWriteThumbImageWithFrom(source, thumbnail, 0);
}

bool needsPreview(const Dictionary& metadata, std::int64_t importType) {
  const Value* mediaInfo = metadata.find("mediainfo");
  if (!mediaInfo || mediaInfo->isNull()) return false;
  auto length = [&](const char* key) {
    const Value* value = mediaInfo->find(key);
    return value ? coerce::integer(value) : 0;
  };
  std::int64_t width = length("image_width");
  std::int64_t height = length("image_height");
  bool isSmall = width <= kPreviewSize && height <= kPreviewSize && (width != 0 || height != 0);
  return !(isSmall && importType != 0);
}

}  // namespace vornex
