#pragma once

#include <chrono>
#include <string>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/avutil.h>
}

#include "foundation/Error.h"

namespace vornex {

/// A media file opened by libavformat, its streams known. Reads that file alone, whatever it refers to, and
/// stops at a time limit.
///
/// Thread-safety: none; use it on one thread at a time.
class MediaFile {
 public:
  /// Domain "media". Still images and play lists are refused.
  [[nodiscard]] static Result<std::unique_ptr<MediaFile>> open(const std::string& path);
  ~MediaFile();
  MediaFile(const MediaFile&) = delete;
  MediaFile& operator=(const MediaFile&) = delete;

  AVFormatContext* context() const { return context_; }
  bool late() const { return Clock::now() > deadline_; }

  /// The stream that a player would show or play; null when there is none. An attached picture is no video.
  AVStream* bestStream(AVMediaType type) const;

 private:
  using Clock = std::chrono::steady_clock;

  explicit MediaFile(std::string url);
  static int interrupted(void* file);
  static int openOwnFileOnly(AVFormatContext* context, AVIOContext** io, const char* url, int flags,
                             AVDictionary** options);
  int read();

  std::string url_;
  Clock::time_point deadline_;
  AVFormatContext* context_ = nullptr;
  decltype(AVFormatContext::io_open) openByDefault_ = nullptr;
};

bool isAttachedPicture(const AVStream* stream);

/// Clockwise degrees by which the picture has to be turned for showing: 0, 90, 180 or 270.
int rotationOf(const AVStream* stream);

std::string avErrorText(int code);

}  // namespace vornex
