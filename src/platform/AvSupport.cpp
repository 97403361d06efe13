#include "platform/AvSupport.h"

#include <gio/gio.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <memory>

extern "C" {
#include <libavutil/display.h>
}

#include <vornex/Log.h>

namespace vornex {

namespace {

constexpr std::chrono::seconds kTimeLimit{30};

void logFromAv(void* source, int level, const char* format, va_list arguments) {
  if (level > AV_LOG_ERROR) return;
  char line[1024];
  int isPrefix = 1;
  av_log_format_line2(source, level, format, arguments, line, sizeof line, &isPrefix);
  std::string text(line);
  while (text.ends_with('\n')) text.pop_back();
  logLine(LogLevel::debug, "libav: " + text);
}

void routeLogOnce() {
  static const bool routed = [] {
    av_log_set_callback(logFromAv);
    return true;
  }();
  (void)routed;
}

/// Formats that are not media: still images, text art, and lists of other files.
bool isRefusedFormat(std::string_view name) {
  constexpr std::array<std::string_view, 14> kRefused = {"image2", "gif",    "apng", "tty",   "hls",
                                                         "dash",   "concat", "sdp",  "rtsp",  "imf",
                                                         "lrc",    "srt",    "ass",  "webvtt"};
  return name.ends_with("_pipe") || std::find(kRefused.begin(), kRefused.end(), name) != kRefused.end();
}

}  // namespace

std::string avErrorText(int code) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(code, text, sizeof text);
  return text;
}

MediaFile::MediaFile(std::string url) : url_(std::move(url)), deadline_(Clock::now() + kTimeLimit) {}

MediaFile::~MediaFile() {
  avformat_close_input(&context_);
}

int MediaFile::interrupted(void* file) {
  return static_cast<MediaFile*>(file)->late() ? 1 : 0;
}

int MediaFile::openOwnFileOnly(AVFormatContext* context, AVIOContext** io, const char* url, int flags,
                               AVDictionary** options) {
  auto* file = static_cast<MediaFile*>(context->opaque);
  if (file->url_ != url || (flags & AVIO_FLAG_WRITE)) return AVERROR(EPERM);
  return file->openByDefault_(context, io, url, flags, options);
}

/// Whether the name alone promises sound or moving pictures.
static bool isNamedAsMedia(const std::string& path) {
  std::unique_ptr<char, void (*)(void*)> type(g_content_type_guess(path.c_str(), nullptr, 0, nullptr),
                                              g_free);
  std::string_view name = type ? type.get() : "";
  return name.starts_with("video/") || name.starts_with("audio/");
}

int MediaFile::read() {
  context_ = avformat_alloc_context();
  if (!context_) return AVERROR(ENOMEM);
  context_->interrupt_callback = {interrupted, this};
  context_->opaque = this;
  openByDefault_ = context_->io_open;
  context_->io_open = openOwnFileOnly;
  if (int status = avformat_open_input(&context_, url_.c_str(), nullptr, nullptr); status < 0) return status;
  if (isRefusedFormat(context_->iformat->name)) return AVERROR_INVALIDDATA;
  // The best guess may be a bad one: any bytes look like some format.
  bool isGuess = context_->probe_score <= AVPROBE_SCORE_RETRY;
  if (isGuess && !isNamedAsMedia(url_)) return AVERROR_INVALIDDATA;
  return avformat_find_stream_info(context_, nullptr);
}

Result<std::unique_ptr<MediaFile>> MediaFile::open(const std::string& path) {
  routeLogOnce();
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) return failure("media", errno, "cannot find " + path);
  if (!S_ISREG(status.st_mode)) return failure("media", 0, path + " is not a regular file");
  std::unique_ptr<MediaFile> file(new MediaFile("file:" + path));
  if (int code = file->read(); code < 0) return failure("media", code, path + ": " + avErrorText(code));
  return file;
}

AVStream* MediaFile::bestStream(AVMediaType type) const {
  int index = av_find_best_stream(context_, type, -1, -1, nullptr, 0);
  if (index >= 0 && !isAttachedPicture(context_->streams[index])) return context_->streams[index];
  // Without a decoder it cannot be played, but it is there.
  for (unsigned i = 0; i < context_->nb_streams; ++i) {
    AVStream* stream = context_->streams[i];
    if (stream->codecpar->codec_type == type && !isAttachedPicture(stream)) return stream;
  }
  return nullptr;
}

bool isAttachedPicture(const AVStream* stream) {
  return (stream->disposition & (AV_DISPOSITION_ATTACHED_PIC | AV_DISPOSITION_TIMED_THUMBNAILS)) != 0;
}

int rotationOf(const AVStream* stream) {
  std::size_t size = 0;
  const std::uint8_t* matrix = av_stream_get_side_data(stream, AV_PKT_DATA_DISPLAYMATRIX, &size);
  if (!matrix || size < 9 * sizeof(std::int32_t)) return 0;
  std::int32_t copy[9];
  std::memcpy(copy, matrix, sizeof copy);
  double counterclockwise = av_display_rotation_get(copy);
  if (!std::isfinite(counterclockwise)) return 0;
  int quarters = static_cast<int>(std::lround(-counterclockwise / 90.0));
  return ((quarters % 4) + 4) % 4 * 90;
}

}  // namespace vornex
