#include <fmt/format.h>
#include <unistd.h>
#include <vornex/Log.h>
#include <vornex/Queue.h>
#include <vornex/TQImage.h>

#include <cstdlib>
#include <filesystem>

#include "foundation/Files.h"
#include "foundation/Text.h"
#include "import/Thumbnail.h"
#include "platform/ContainedMedia.h"
#include "platform/Images.h"
#include "platform/Processes.h"

namespace vornex {

static constexpr int kFrameBound = 300;

TQImage::TQImage(Image image) : image_(std::make_shared<const Image>(std::move(image))) {}

int TQImage::width() const {
  return image_->width();
}
int TQImage::height() const {
  return image_->height();
}

static ImagePtr pointer(Result<Image> image) {
  return image ? std::make_shared<const TQImage>(std::move(*image)) : nullptr;
}

ImagePtr TQImage::resizedTo(int width, int height) const {
  return pointer(image_->resizedTo(width, height));
}

void TQImage::previewWithPath(std::string path, Completion completion) {
  GlobalQueue::shared().async(
      [path = std::move(path), completion = std::move(completion)] { completion(previewOfFile(path)); });
}

void TQImage::thumbnailWithPath(std::string path, Completion completion) {
  GlobalQueue::shared().async(
      [path = std::move(path), completion = std::move(completion)] { completion(thumbnailOfFile(path)); });
}

ImagePtr TQImage::albumImageWithURL(const std::string& path) {
  return pointer(contained::artwork(path));
}

ImagePtr TQImage::videoImageWithURL(const std::string& path) {
  return pointer(contained::videoFrame(path, 0));
}

bool TQImage::saveJPEGWithPath(const std::string& path) const {
  Result<void> saved = image_->saveJpeg(path);
  if (!saved) logLine(LogLevel::warning, "saveJPEGWithPath: " + saved.error().message);
  return saved.has_value();
}

std::string TQImage::ffMpegPath() {
  if (const char* path = std::getenv("VORNEX_FFMPEG"); path && *path) return path;
  std::error_code error;
  std::string program = std::filesystem::read_symlink("/proc/self/exe", error).string();
  std::string prefix = deletingLastPathComponent(deletingLastPathComponent(program));
  std::string installed = appendPathComponent(prefix, "libexec/vornex/ffmpeg");
  if (fileExists(installed)) return installed;
  return findProgram("ffmpeg").value_or(installed);
}

/// A folder of our own below the temporary folder; removed with everything in it.
class ScratchFolder {
 public:
  ScratchFolder() : path_(std::filesystem::temp_directory_path().string() + "/vornex-XXXXXX") {
    if (!::mkdtemp(path_.data())) path_.clear();
  }
  ~ScratchFolder() {
    std::error_code ignored;
    if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  bool exists() const { return !path_.empty(); }
  std::string file(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

static std::vector<std::string> frameArguments(const std::string& source, const std::string& image,
                                               float seconds) {
  std::vector<std::string> arguments;
  if (seconds != 0) arguments = {"-ss", fmt::format("{:.6f}", seconds)};
  std::string scale = fmt::format("scale='if(gt(a,4/3),{0},-2)':'if(gt(a,4/3),-2,{0})'", kFrameBound);
  for (const std::string& argument :
       {std::string("-i"), source, std::string("-f"), std::string("image2"), std::string("-vf"), scale,
        std::string("-vframes"), std::string("1"), std::string("-y"), image})
    arguments.push_back(argument);
  return arguments;
}

/// Logs why there is no frame; gives false.
static bool ffmpegFailed(const std::string& reason) {
  logLine(LogLevel::error, "TQFFMpegWriteStillImage ffmpeg exception : " + reason);
  return false;
}

bool TQImage::ffMpegWriteThumbImageWithFrom(const OptionalString& source, const OptionalString& toFile,
                                            float seconds) {
  if (!source || !toFile) {
    logLine(LogLevel::warning,
            fmt::format("TQFFMpegWriteStillImage path not invalid. sourcePath={} imagePath={}",
                        source.value_or("(null)"), toFile.value_or("(null)")));
    return false;
  }
  // The look is contained, as everything that waits for the source here.
  if (!contained::mimeType(*source)) {
    logLine(LogLevel::warning, "TQFFMpegWriteStillImage file not exist. sourcePath=" + *source);
    return false;
  }
  std::string program = ffMpegPath();
  if (!fileExists(program)) {
    logLine(LogLevel::warning, "TQFFMpegWriteStillImage ffmpeg not exist. path=" + program);
    return false;
  }
  try {
    // ffmpeg reads patterns in the names it writes to, and leaves half a file when it is killed: let it write
    // to a plain name elsewhere.
    ScratchFolder scratch;
    if (!scratch.exists()) return ffmpegFailed("no temporary folder");
    std::string frame = scratch.file("frame.jpg");
    Result<ProcessResult> run = runContained(program, frameArguments(*source, frame, seconds));
    if (!run) return ffmpegFailed(run.error().message);
    if (run->timedOut) return ffmpegFailed("no end in time for " + *source);
    if (run->signal != 0) return ffmpegFailed(fmt::format("signal {} for {}", run->signal, *source));
    Result<std::string> bytes = readFile(frame);
    if (!bytes || bytes->empty()) return false;
    Result<void> written = writeFileAtomically(*toFile, *bytes);
    if (!written) logLine(LogLevel::warning, "TQFFMpegWriteStillImage: " + written.error().message);
    return written.has_value();
  } catch (const std::exception& exception) {
    return ffmpegFailed(exception.what());
  }
}

}  // namespace vornex
