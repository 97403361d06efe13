#include "platform/ContainedMedia.h"

#include <vornex/Log.h>

#include <filesystem>

#include "platform/MediaChannel.h"
#include "platform/MediaWorkers.h"

namespace vornex::contained {

/// The reader's working folder is its own.
static std::string absolutePath(const std::string& path) {
  std::error_code error;
  std::string absolute = std::filesystem::absolute(path, error).string();
  return error ? path : absolute;
}

static Result<MediaAnswer> ask(const char* what, const std::string& path, Dictionary request = {}) {
  request.set("read", what);
  request.set("path", channelPath(absolutePath(path)));
  Result<MediaAnswer> answer = MediaWorkers::shared().ask(request);
  if (!answer && answer.error().domain == "decoder")
    logLine(LogLevel::warning, fmt::format("{} of {}: {}", what, path, answer.error().message));
  return answer;
}

static Result<Image> onePicture(Result<MediaAnswer> answer) {
  if (!answer) return tl::unexpected(answer.error());
  if (answer->pictures.empty()) return failure("decoder", 0, "no picture came");
  return std::move(answer->pictures.front());
}

static std::optional<Dictionary> facts(const char* what, const std::string& path) {
  Result<MediaAnswer> answer = ask(what, path);
  Dictionary* found = answer ? answer->facts.ifDictionary() : nullptr;
  return found ? std::make_optional(std::move(*found)) : std::nullopt;
}

Result<std::string> mimeType(const std::string& path) {
  Result<MediaAnswer> answer = ask("type", path);
  if (!answer) return tl::unexpected(answer.error());
  const std::string* type = answer->facts.ifString();
  return type ? Result<std::string>(*type) : failure("decoder", 0, "no type came");
}

Result<std::vector<Image>> loadThumbnails(const std::string& path, const std::vector<int>& bounds) {
  Array sizes(bounds.begin(), bounds.end());
  Result<MediaAnswer> answer = ask("thumbnails", path, {{"bounds", std::move(sizes)}});
  if (!answer) return tl::unexpected(answer.error());
  if (answer->pictures.size() != bounds.size()) return failure("decoder", 0, "pictures are missing");
  return std::move(answer->pictures);
}

Result<Image> artwork(const std::string& path) {
  return onePicture(ask("artwork", path));
}

Result<Image> videoFrame(const std::string& path, double seconds) {
  return onePicture(ask("frame", path, {{"seconds", seconds}}));
}

std::optional<Dictionary> videoInformation(const std::string& path) {
  return facts("video", path);
}

std::optional<Dictionary> audioInformation(const std::string& path) {
  return facts("audio", path);
}

std::optional<Dictionary> imageInformation(const std::string& path) {
  return facts("image", path);
}

std::optional<Dictionary> redInformation(const std::string& path) {
  return facts("red", path);
}

std::optional<Dictionary> xmpMetadata(const std::string& path) {
  return facts("xmp", path);
}

}  // namespace vornex::contained
