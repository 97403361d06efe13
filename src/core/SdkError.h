#pragma once

#include <vornex/TQError.h>

#include <string>

#include "core/StatusCode.h"
#include "foundation/Error.h"

namespace vornex {

/// A failure from below the SDK as its callers see it: the same domain, code and message. Thread-safe.
TQErrorPtr makeSdkError(const Error& error);

/// An error of the SDK's own domain with the localised message of the key. Thread-safe.
TQErrorPtr localizedError(std::int64_t code, const std::string& key);

/// Whether the service was not there, or went away before it answered. Thread-safe.
inline bool isServiceLost(const Error& error) {
  // The system has an error of that number, too.
  return error.code == static_cast<std::int64_t>(StatusCode::cannotConnectToHost) && error.domain != "posix";
}
inline bool isServiceLost(const TQErrorPtr& error) {
  return error && isServiceLost(Error{error->domain().value_or(""), error->code(), {}});
}

/// The error with what caused it; the error itself when the reason is empty. Thread-safe.
TQErrorPtr withReason(const TQErrorPtr& error, const std::string& reason);

}  // namespace vornex
