#pragma once

#include <vornex/TQError.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include "core/HttpExchange.h"

namespace vornex {

/// One request to a library's server.
struct ServerRequest {
  std::string url;
  std::string userID;
  std::string userPassword;
  std::string method;
  /// JSON; absent sends no body.
  std::optional<std::string> body;
  /// From the start to the last byte of the answer.
  std::chrono::milliseconds timeLimit{30'000};
  /// In bytes; a longer answer is an error.
  std::size_t answerLimit = std::size_t{256} << 20;
};

/// What came of it. Without an error the response is the decoded answer, null for HTTP status 204. With one
/// it is null, except for an answer that reports on single "items".
struct ServerReply {
  Value response;
  TQErrorPtr error;
};

/// Sends the request with HTTP Basic credentials and the device's identity and waits for the end. Connections
/// are kept and used again. Redirects are not followed; no proxy stands before a loopback address. The errors
/// are those listed at TQVornexUtil::requestURL. Thread-safe.
ServerReply sendServerRequest(ServerRequest request);

/// The same without blocking; `done` is called once, on another thread, and must neither block nor throw.
void sendServerRequest(ServerRequest request, std::function<void(ServerReply reply)> done);

/// What an answer says.
ServerReply replyFromAnswer(const HttpAnswer& answer);

/// Whether an error of this URL may be announced: not when "login" is anywhere in its path.
bool announcesErrors(const std::string& url);

}  // namespace vornex
