#pragma once

#include <cstdint>

namespace vornex {

/// The server's status codes: what a failed request's "Status" and a failed control call carry. 0 is success.
enum class StatusCode : std::int64_t {
  ok = 0,
  internalError = 1,
  databaseFailed = 2,
  invalidRequest = 3,
  noAuthority = 4,
  itemNotFound = 5,
  itemExists = 6,
  limitExceeded = 7,
  databaseNotFound = 8,
  timedOut = 9,
  portInUse = 10,
  serviceStopping = 11,
  unknownOperation = 12,
  hashMismatch = 13,
  clientRefused = 14,
  queryInvalid = 15,
  diskFull = 16,
  authenticationFailed = 26,
  libraryNotShared = 27,
  cannotConnectToHost = 31,
  referenceUnreachable = 35,
  alreadyLoggedIn = 38,
  tooManySessions = 39,
  clientTooOld = 40,
};

/// The domain of the server's errors.
inline constexpr const char* kServerErrorDomain = "VORNEX SERVER";

}  // namespace vornex
