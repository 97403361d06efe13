#pragma once

#include <string>
#include <utility>

#include "core/StatusCode.h"
#include "foundation/Error.h"

namespace vornex::server {

/// A failure that a client is told about as it is.
inline tl::unexpected<Error> serverFailure(StatusCode code, std::string message) {
  return failure(kServerErrorDomain, static_cast<std::int64_t>(code), std::move(message));
}

/// The status code that a failure is reported under: its own, or for failures of lower floors the one that
/// fits.
StatusCode statusCodeOf(const Error& error);

/// The failure as clients see it: details of lower floors (paths, system errors) are logged and replaced.
Error publicError(const Error& error);

}  // namespace vornex::server
