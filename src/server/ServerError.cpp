#include "server/ServerError.h"

#include <vornex/Log.h>

#include <cerrno>

namespace vornex::server {

StatusCode statusCodeOf(const Error& error) {
  if (error.domain == kServerErrorDomain) return static_cast<StatusCode>(error.code);
  if (error.domain == "posix" && (error.code == ENOSPC || error.code == EDQUOT)) return StatusCode::diskFull;
  return StatusCode::internalError;
}

Error publicError(const Error& error) {
  if (error.domain == kServerErrorDomain) return error;
  logLine(LogLevel::error, fmt::format("{} error {}: {}", error.domain, error.code, error.message));
  StatusCode code = statusCodeOf(error);
  const char* message =
      code == StatusCode::diskFull ? "The disk is full." : "The server failed; its log says why.";
  return {kServerErrorDomain, static_cast<std::int64_t>(code), message};
}

}  // namespace vornex::server
