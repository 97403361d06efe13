#include "platform/MediaChannel.h"

#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "foundation/Json.h"
#include "foundation/Text.h"

namespace vornex {

namespace {

constexpr std::uint32_t kMaxMessage = 64u << 20;
constexpr std::int64_t kMaxSide = 65'500;
constexpr std::int64_t kMaxPixels = 100'000'000;

tl::unexpected<Error> channelFailure(int reason, const std::string& what) {
  return failure("decoder", reason, what + ": " + std::strerror(reason));
}

Result<void> sendBytes(int socket, const char* bytes, std::size_t size) {
  while (size > 0) {
    ssize_t sent = ::send(socket, bytes, size, MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) continue;
    if (sent < 0) return channelFailure(ECONNRESET, "media channel");
    bytes += sent;
    size -= static_cast<std::size_t>(sent);
  }
  return {};
}

Result<void> receiveBytes(int socket, char* bytes, std::size_t size, ChannelDeadline deadline) {
  while (size > 0) {
    auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) return channelFailure(ETIMEDOUT, "media channel");
    pollfd watched{socket, POLLIN, 0};
    int ready = ::poll(&watched, 1, static_cast<int>(std::min<long long>(left.count(), 60'000)));
    if (ready < 0 && errno != EINTR) return channelFailure(errno, "media channel");
    if (ready <= 0) continue;
    ssize_t received = ::recv(socket, bytes, size, MSG_DONTWAIT);
    if (received < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    if (received <= 0) return channelFailure(ECONNRESET, "media channel");
    bytes += received;
    size -= static_cast<std::size_t>(received);
  }
  return {};
}

Result<void> sendMessage(int socket, const Value& message) {
  std::string text = writeJson(message);
  auto length = static_cast<std::uint32_t>(text.size());
  if (text.size() > kMaxMessage) return channelFailure(EPROTO, "media channel");
  std::string bytes(reinterpret_cast<const char*>(&length), sizeof length);
  bytes += text;
  return sendBytes(socket, bytes.data(), bytes.size());
}

Result<Value> receiveMessage(int socket, ChannelDeadline deadline) {
  std::uint32_t length = 0;
  auto received = receiveBytes(socket, reinterpret_cast<char*>(&length), sizeof length, deadline);
  if (!received) return tl::unexpected(received.error());
  if (length > kMaxMessage) return channelFailure(EPROTO, "media channel");
  std::string text(length, '\0');
  received = receiveBytes(socket, text.data(), text.size(), deadline);
  if (!received) return tl::unexpected(received.error());
  auto message = parseJson(text);
  if (!message) return channelFailure(EPROTO, "media channel");
  return *message;
}

std::int64_t integer(const Value& value, const char* key) {
  const Value* field = value.find(key);
  const std::int64_t* number = field ? field->ifInteger() : nullptr;
  return number ? *number : 0;
}

std::string text(const Value& value, const char* key) {
  const Value* field = value.find(key);
  const std::string* string = field ? field->ifString() : nullptr;
  return string ? *string : "";
}

Value pictureHeader(const Image& picture) {
  return Dictionary{{"width", picture.width()},
                    {"height", picture.height()},
                    {"channels", picture.channels()},
                    {"partial", picture.isPartial()}};
}

Result<Image> receivePicture(int socket, const Value& header, ChannelDeadline deadline) {
  std::int64_t width = integer(header, "width");
  std::int64_t height = integer(header, "height");
  std::int64_t channels = integer(header, "channels");
  bool isSane = width >= 1 && width <= kMaxSide && height >= 1 && height <= kMaxSide && channels >= 1 &&
                channels <= 4 && width * height <= kMaxPixels;
  if (!isSane) return channelFailure(EPROTO, "media channel");
  Data pixels(static_cast<std::size_t>(width * height * channels));
  auto received = receiveBytes(socket, reinterpret_cast<char*>(pixels.data()), pixels.size(), deadline);
  if (!received) return tl::unexpected(received.error());
  return Image::fromPixels(static_cast<int>(width), static_cast<int>(height), static_cast<int>(channels),
                           pixels, header.find("partial") && *header.find("partial") == Value(true));
}

}  // namespace

std::string channelPath(const std::string& path) {
  return percentEncoded(path, "/-._~ ");
}

std::string pathFromChannel(const std::string& text) {
  return percentDecoded(text);
}

Result<void> sendRequest(int socket, const Value& request) {
  return sendMessage(socket, request);
}

Result<Value> receiveRequest(int socket, ChannelDeadline deadline) {
  return receiveMessage(socket, deadline);
}

Result<void> sendAnswer(int socket, const Result<MediaAnswer>& answer) {
  if (!answer) {
    const Error& error = answer.error();
    return sendMessage(socket, Dictionary{{"error", Dictionary{{"domain", error.domain},
                                                               {"code", error.code},
                                                               {"message", validUtf8(error.message)}}}});
  }
  Array headers;
  for (const Image& picture : answer->pictures) headers.push_back(pictureHeader(picture));
  auto sent = sendMessage(socket, Dictionary{{"facts", answer->facts}, {"pictures", std::move(headers)}});
  for (const Image& picture : answer->pictures) {
    std::string_view pixels = picture.pixels();
    if (sent) sent = sendBytes(socket, pixels.data(), pixels.size());
  }
  return sent;
}

Result<Result<MediaAnswer>> receiveAnswer(int socket, ChannelDeadline deadline) {
  auto message = receiveMessage(socket, deadline);
  if (!message) return tl::unexpected(message.error());
  if (const Value* error = message->find("error")) {
    return Result<MediaAnswer>(
        failure(text(*error, "domain"), integer(*error, "code"), text(*error, "message")));
  }
  MediaAnswer answer;
  if (const Value* facts = message->find("facts")) answer.facts = *facts;
  const Value* pictures = message->find("pictures");
  const Array* headers = pictures ? pictures->ifArray() : nullptr;
  for (const Value& header : headers ? *headers : Array()) {
    auto picture = receivePicture(socket, header, deadline);
    if (!picture) return tl::unexpected(picture.error());
    answer.pictures.push_back(std::move(*picture));
  }
  return Result<MediaAnswer>(std::move(answer));
}

}  // namespace vornex
