#pragma once

#include <vornex/Value.h>

#include <string>

#include "foundation/Error.h"
#include "platform/Images.h"

namespace vornex {

// Moving pictures and sound. Every function opens the file anew, reads nothing but that file whatever it
// refers to, gives up after 30 seconds with each opening of the file, blocks meanwhile, and is thread-safe.
// Domain "media".

enum class MediaKind {
  none,   ///< no media file, or nothing in it that can be told apart
  audio,  ///< sound, maybe with artwork
  video,  ///< moving pictures, maybe with sound
};

MediaKind mediaKind(const std::string& path);

/// The frame shown at that time (the last one when the video is shorter), upright and in display aspect.
/// An error when the file has no video that can be decoded.
[[nodiscard]] Result<Image> videoFrame(const std::string& path, double seconds);

/// The bytes of the first embedded picture (cover art) that decodes as an image. An error when there is none.
[[nodiscard]] Result<Data> embeddedArtwork(const std::string& path);

}  // namespace vornex
