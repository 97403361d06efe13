#pragma once

#include <vornex/Value.h>

#include <chrono>
#include <string>
#include <vector>

#include "foundation/Error.h"
#include "platform/Images.h"

namespace vornex {

// The talk between a process and its media reader, the program vornex-media, over a local stream socket. A
// message is its length (four bytes in the machine's order) and as much JSON. The pixels of pictures follow
// an answer as plain rows. Neither side trusts the other's lengths.

using ChannelDeadline = std::chrono::steady_clock::time_point;

/// What a reader says about a file.
struct MediaAnswer {
  /// Null for a request that has pictures only.
  Value facts;
  std::vector<Image> pictures;
};

/// Paths are bytes, JSON is text: how a path travels.
std::string channelPath(const std::string& path);
std::string pathFromChannel(const std::string& text);

// Domain "decoder": ETIMEDOUT at the deadline, ECONNRESET when the other side has gone, EPROTO for what makes
// no sense.

[[nodiscard]] Result<void> sendRequest(int socket, const Value& request);
[[nodiscard]] Result<Value> receiveRequest(int socket, ChannelDeadline deadline);
[[nodiscard]] Result<void> sendAnswer(int socket, const Result<MediaAnswer>& answer);
/// The inner result is what the reader answered, the outer one whether an answer came.
[[nodiscard]] Result<Result<MediaAnswer>> receiveAnswer(int socket, ChannelDeadline deadline);

}  // namespace vornex
