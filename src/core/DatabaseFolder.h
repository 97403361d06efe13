#pragma once

#include <string>
#include <string_view>

#include "foundation/Error.h"

namespace vornex {

/// A name that may become a folder: up to 128 letters, digits, "-", "_" and ".", not starting with a dot.
/// Thread-safe.
bool isValidDatabaseName(std::string_view name);

/// Removes the folder of a library's database from the shared database folder. It goes out of the way in one
/// step, so that a removal that is cut short leaves no half database; a missing one is a success. Domain
/// "posix", EINVAL for a name that is not valid. Nobody may have the database open. Thread-safe.
[[nodiscard]] Result<void> removeDatabaseFolder(const std::string& dbName);

/// Removes what removals that were cut short have left. Thread-safe.
void finishDatabaseRemovals();

}  // namespace vornex
