#pragma once

#include <vornex/TQImage.h>
#include <vornex/Value.h>

#include <cstdint>
#include <string>

namespace vornex {

// The pictures of an imported file. Everything here blocks and is safe on any thread.

/// See TQImage::previewWithPath and thumbnailWithPath.
ImagePtr previewOfFile(const std::string& path);
ImagePtr thumbnailOfFile(const std::string& path);

struct Pictures {
  ImagePtr thumbnail;
  ImagePtr preview;
};

/// Both; a RED clip's thumbnail is a frame of it. Without a preview its place stays null.
Pictures picturesOfFile(const std::string& path, bool withPreview);

/// Writes the thumbnail of the file: the picture, or for a video that gave none a frame by ffmpeg. False when
/// there is none to be had or it could not be written.
bool writeThumbnail(const std::string& source, const ImagePtr& picture, const std::string& thumbnail);
bool writeThumbnail(const std::string& source, const std::string& thumbnail);

/// Whether an image of an asset with this metadata needs a preview of its own: a reference always does, a
/// copied image only when a side is longer than 1600 pixels or its size is unknown. False without
/// "mediainfo".
bool needsPreview(const Dictionary& metadata, std::int64_t importType);

/// Where the preview that the asset of a local library needs belongs; absent when it needs none.
OptionalString neededPreviewPath(const TQLibrary& library, const TQAsset& asset);

}  // namespace vornex
