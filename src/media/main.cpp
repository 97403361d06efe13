// The program that touches files of unknown origin, on behalf of the processes that must not be harmed by
// them: "vornex-media serve" reads media files and answers on the socket that is its standard input;
// "vornex-media run PROGRAM ARGUMENT..." becomes another program. Both first give up what they do not need.
#include <poll.h>
#include <unistd.h>

#include <cstdio>
#include <functional>
#include <map>
#include <string_view>

#include "platform/Containment.h"
#include "platform/FileKind.h"
#include "platform/Images.h"
#include "platform/Media.h"
#include "platform/MediaChannel.h"
#include "platform/MediaInformation.h"
#include "platform/Xmp.h"

namespace vornex {
namespace {

constexpr int kSocket = STDIN_FILENO;
constexpr int kIdleMilliseconds = 60'000;
constexpr std::chrono::seconds kProcessorTime{120};
constexpr std::chrono::seconds kRequestLimit{10};

Result<MediaAnswer> pictures(Result<std::vector<Image>> images) {
  if (!images) return tl::unexpected(images.error());
  return MediaAnswer{nullptr, std::move(*images)};
}

Result<MediaAnswer> picture(Result<Image> image) {
  if (!image) return tl::unexpected(image.error());
  return MediaAnswer{nullptr, {std::move(*image)}};
}

MediaAnswer facts(std::optional<Dictionary> found) {
  return {found ? Value(std::move(*found)) : Value(), {}};
}

Result<MediaAnswer> type(const std::string& path) {
  auto found = mimeType(path);
  if (!found) return tl::unexpected(found.error());
  return MediaAnswer{*found, {}};
}

Result<MediaAnswer> thumbnails(const std::string& path, const Value& request) {
  std::vector<int> bounds;
  const Value* sizes = request.find("bounds");
  for (const Value& size : sizes && sizes->ifArray() ? *sizes->ifArray() : Array())
    bounds.push_back(static_cast<int>(size.ifInteger() ? *size.ifInteger() : 0));
  return pictures(loadThumbnails(path, bounds));
}

Result<MediaAnswer> artwork(const std::string& path) {
  auto bytes = embeddedArtwork(path);
  if (!bytes) return tl::unexpected(bytes.error());
  return picture(decodeImage({reinterpret_cast<const char*>(bytes->data()), bytes->size()}));
}

Result<MediaAnswer> frame(const std::string& path, const Value& request) {
  const Value* seconds = request.find("seconds");
  return picture(videoFrame(path, seconds && seconds->ifReal() ? *seconds->ifReal() : 0));
}

Result<MediaAnswer> answer(const Value& request) {
  auto text = [&](const char* key) {
    const Value* field = request.find(key);
    return field && field->ifString() ? *field->ifString() : std::string();
  };
  const std::string what = text("read");
  const std::string path = pathFromChannel(text("path"));
  if (what == "type") return type(path);
  if (what == "thumbnails") return thumbnails(path, request);
  if (what == "artwork") return artwork(path);
  if (what == "frame") return frame(path, request);
  if (what == "video") return facts(videoInformation(path));
  if (what == "audio") return facts(audioInformation(path));
  if (what == "image") return facts(imageInformation(path));
  if (what == "red") return facts(redInformation(path));
  if (what == "xmp") return facts(xmpMetadata(path));
  return failure("decoder", 0, "unknown request: " + what);
}

bool waitForRequest() {
  pollfd watched{kSocket, POLLIN, 0};
  return ::poll(&watched, 1, kIdleMilliseconds) > 0;
}

int serve() {
  while (waitForRequest()) {
    auto request = receiveRequest(kSocket, std::chrono::steady_clock::now() + kRequestLimit);
    if (!request) break;
    allowProcessorTime(kProcessorTime);
    if (!sendAnswer(kSocket, answer(*request))) break;
  }
  return 0;
}

int run(char** words) {
  ::execv(words[0], words);
  std::perror(words[0]);
  return 127;
}

}  // namespace
}  // namespace vornex

int main(int count, char** words) {
  const std::string_view mode = count > 1 ? words[1] : "";
  const bool runs = mode == "run" && count > 2;
  if (!runs && mode != "serve") {
    std::fputs("usage: vornex-media serve | run PROGRAM [ARGUMENT...]\n", stderr);
    return 2;
  }
  vornex::ProcessLimits limits;
  if (runs) limits.processorTime = vornex::kProcessorTime;
  if (auto contained = vornex::containProcess(limits); !contained) {
    std::fprintf(stderr, "vornex-media: %s\n", contained.error().message.c_str());
    return 1;
  }
  // Nothing that a decoder does at its end is wanted.
  if (!runs) ::_exit(vornex::serve());
  return vornex::run(words + 2);
}
