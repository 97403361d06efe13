#pragma once

#include <vornex/Value.h>

#include <string>

#include "foundation/Error.h"

namespace vornex {

/// The permission of a file that holds passwords.
inline constexpr unsigned kCredentialFileMode = 0600;

/// Writes a property list that holds passwords: atomically, readable by this user only.
[[nodiscard]] Result<void> writeCredentialFile(const std::string& path, const Value& value);

}  // namespace vornex
