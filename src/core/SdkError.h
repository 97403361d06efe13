#pragma once

#include <vornex/TQError.h>

#include <string>

#include "foundation/Error.h"

namespace vornex {

/// A failure from below the SDK as its callers see it: the same domain, code and message. Thread-safe.
TQErrorPtr makeSdkError(const Error& error);

/// The error with what caused it; the error itself when the reason is empty. Thread-safe.
TQErrorPtr withReason(const TQErrorPtr& error, const std::string& reason);

}  // namespace vornex
