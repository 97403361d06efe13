#include "import/Thumbnail.h"

#include <vornex/Log.h>
#include <vornex/TQAsset.h>
#include <vornex/TQLibrary.h>
#include <vornex/Types.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "core/Coercion.h"
#include "core/TypeTables.h"
#include "foundation/Files.h"
#include "foundation/Text.h"
#include "platform/ContainedMedia.h"
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

static ImagePtr pointer(Image image) {
  return std::make_shared<const TQImage>(std::move(image));
}

/// What the previewer gives for these bounds, the largest first; empty when it has nothing.
static std::vector<ImagePtr> previewed(const std::string& path, const std::vector<int>& bounds) {
  std::vector<ImagePtr> pictures;
  if (neverHasPicture(path)) return pictures;
  if (auto images = previewImages(path, bounds)) {
    for (Image& image : *images) pictures.push_back(pointer(std::move(image)));
  }
  return pictures;
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

/// The thumbnail of a file of which the previewer has nothing.
static ImagePtr otherThumbnail(const std::string& path) {
  if (neverHasPicture(path) || !contained::mimeType(path)) return nullptr;
  logLine(LogLevel::info, "====== QUICKLOOK FAILED:" + path);
  ImagePtr source = TQImage::albumImageWithURL(path);
  if (!source) source = TQImage::videoImageWithURL(path);
  return source ? drawnAsThumbnail(*source) : nullptr;
}

/// Of a rate like "24000/1001"; 0 for none.
static double secondsOfFrame(const Dictionary& clip) {
  std::string rate = coerce::string(clip.find("frame_rate")).value_or("");
  double frames = std::strtod(rate.c_str(), nullptr);
  std::size_t slash = rate.find('/');
  double seconds = slash == std::string::npos ? 1 : std::strtod(rate.c_str() + slash + 1, nullptr);
  return frames > 0 ? seconds / frames : 0;
}

/// A tenth of the way into the clip.
static ImagePtr redThumbnail(const std::string& path) {
  std::optional<Dictionary> clip = contained::redInformation(path);
  if (!clip) return nullptr;
  std::int64_t frame = std::max<std::int64_t>(coerce::integer(clip->find("frames")), 0) / 10;
  auto image = contained::videoFrame(path, static_cast<double>(frame) * secondsOfFrame(*clip));
  return image ? drawnAsThumbnail(TQImage(std::move(*image))) : nullptr;
}

ImagePtr previewOfFile(const std::string& path) {
  std::vector<ImagePtr> pictures = previewed(path, {kPreviewSize});
  return pictures.empty() ? nullptr : pictures.front();
}

ImagePtr thumbnailOfFile(const std::string& path) {
  std::vector<ImagePtr> pictures = previewed(path, {kThumbnailSize});
  return pictures.empty() ? otherThumbnail(path) : pictures.front();
}

Pictures picturesOfFile(const std::string& path, bool withPreview) {
  if (lowercased(pathExtension(path)) == "r3d") {
    if (ImagePtr frame = redThumbnail(path)) return {frame, nullptr};
  }
  if (!withPreview) return {thumbnailOfFile(path), nullptr};
  std::vector<ImagePtr> pictures = previewed(path, {kPreviewSize, kThumbnailSize});
  if (pictures.empty()) return {otherThumbnail(path), nullptr};
  return {pictures.back(), pictures.front()};
}

bool writeThumbnail(const std::string& source, const ImagePtr& picture, const std::string& thumbnail) {
  if (picture) return picture->saveJPEGWithPath(thumbnail);
  if (TypeTables::shared().assetType(pathExtension(source)) != kAssetTypeVideo) return false;
  return TQImage::ffMpegWriteThumbImageWithFrom(source, thumbnail, kFrameSeconds) ||
         TQImage::ffMpegWriteThumbImageWithFrom(source, thumbnail, 0);
}

bool writeThumbnail(const std::string& source, const std::string& thumbnail) {
  return writeThumbnail(source, picturesOfFile(source, false).thumbnail, thumbnail);
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

OptionalString neededPreviewPath(const TQLibrary& library, const TQAsset& asset) {
  if (!library.packageFolder || library.libraryType == kLibraryTypeNetwork) return std::nullopt;
  if (!asset.metaDataDictionary || !needsPreview(*asset.metaDataDictionary, asset.importType))
    return std::nullopt;
  if (!asset.previewPath || asset.previewPath->empty()) return std::nullopt;
  return appendPathComponent(*library.packageFolder, *asset.previewPath);
}

}  // namespace vornex
