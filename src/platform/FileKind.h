#pragma once

#include <string>

#include "foundation/Error.h"

namespace vornex {

/// The type of a regular file by its name and first bytes, e.g. "application/pdf". Domain "posix"; EINVAL for
/// what is no regular file. Blocks; thread-safe.
[[nodiscard]] Result<std::string> mimeType(const std::string& path);

}  // namespace vornex
