#pragma once

#include <vornex/TQError.h>

#include "foundation/Error.h"

namespace vornex {

/// A failure from below the SDK as its callers see it: the same domain, code and message. Thread-safe.
TQErrorPtr makeSdkError(const Error& error);

}  // namespace vornex
