#pragma once

#include <vornex/Types.h>

namespace vornex {

class Image;
class TQImage;
using ImagePtr = std::shared_ptr<const TQImage>;

/// A decoded picture, and the ways to get one for a file: by the previewer, from a sound's artwork, from a
/// video.
///
/// Thread-safety: immutable; every operation is safe on any thread.
class TQImage {
 public:
  /// Null when there is no picture.
  using Completion = std::function<void(ImagePtr image)>;

  explicit TQImage(Image image);

  /// A picture of at most 1600 x 1600 pixels, made by the previewer alone. Returns at once; called back on a
  /// worker thread.
  static void previewWithPath(std::string path, Completion completion);

  /// A small picture. Returns at once; called back on a worker thread. From the previewer it is at most 300 x
  /// 300 pixels; where the previewer has none, from the artwork or else the first frame, with a shorter side
  /// of 300. Null for the sound files that never have one (wav, aiff, aif).
  static void thumbnailWithPath(std::string path, Completion completion);

  /// The artwork of a sound file. Null without one. Blocks.
  static ImagePtr albumImageWithURL(const std::string& path);
  /// The first frame of a video. Null without one. Blocks.
  static ImagePtr videoImageWithURL(const std::string& path);

  /// The ffmpeg program: `$VORNEX_FFMPEG`, else the one installed with the SDK, else the one in $PATH. It
  /// need not exist.
  static std::string ffMpegPath();
  /// Has ffmpeg write the frame at that time as a picture that is about 300 pixels wide (over 4:3) or high.
  /// Replaces the file atomically. False, and logged, on failure. Blocks until the program ends.
  static bool ffMpegWriteThumbImageWithFrom(const OptionalString& source, const OptionalString& toFile,
                                            float seconds);

  /// Writes a JPEG atomically. False, and logged, on failure.
  bool saveJPEGWithPath(const std::string& path) const;

  /// Stretched or shrunk to exactly this size; null when that fails.
  ImagePtr resizedTo(int width, int height) const;

  int width() const;
  int height() const;

 private:
  std::shared_ptr<const Image> image_;
};

}  // namespace vornex
