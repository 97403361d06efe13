#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "foundation/Error.h"

namespace vornex {

/// One HTTP request, before anything is known about its meaning.
struct HttpExchange {
  std::string url;
  std::string method;
  std::string userName;
  std::string password;
  /// "Name: value" each.
  std::vector<std::string> headers;
  std::optional<std::string> body;
  std::chrono::milliseconds timeLimit;
  std::size_t answerLimit;
};

struct HttpAnswer {
  long status = 0;
  std::string contentType;
  std::string body;
};

/// The parts of a URL that decide how it is treated.
struct UrlParts {
  /// "scheme host:port", the same for every spelling of a server.
  std::string server;
  std::string host;
  /// Still percent-encoded.
  std::string path;
};

/// Absent for anything but a well-formed http or https URL.
std::optional<UrlParts> parseHttpUrl(const std::string& url);

/// Codes of failures that are not curl's own.
inline constexpr std::int64_t kUnusableRequest = -1;
inline constexpr std::int64_t kAnswerTooLong = -2;
/// There was no room for the request to the server in time.
inline constexpr std::int64_t kNeverSent = -3;

/// Runs the request and blocks until its answer is complete, whatever its status. Domain "curl" on failure;
/// code kUnusableRequest when nothing can be sent for such a URL or method. Thread-safe.
[[nodiscard]] Result<HttpAnswer> exchangeHttp(HttpExchange exchange);

/// The same without blocking. One thread carries the requests of the whole process, a few to each server at a
/// time; the others wait for their turn, up to four times their time limit, which starts when they are sent.
/// `done` is called once, on that thread or another one, and must not block; what it throws is logged.
/// Thread-safe.
void exchangeHttp(HttpExchange exchange, std::function<void(Result<HttpAnswer> answer)> done);

}  // namespace vornex
