#pragma once

#include <string>
#include <string_view>

#include "foundation/Error.h"

namespace vornex {

// What lies beside a database D in the shared database folder: "D_restore", the copy that is to take its
// place, ".restoring-D", that copy while it is made, and "D_former_…", a database whose place was taken and
// which is kept.
inline constexpr const char* kStagedSuffix = "_restore";
inline constexpr const char* kUnfinishedPrefix = ".restoring-";
inline constexpr const char* kFormerInfix = "_former_";

/// A name that may become a folder: up to 128 letters, digits, "-", "_" and ".", not starting with a dot,
/// and not the name of another database's copy. Thread-safe.
bool isValidDatabaseName(std::string_view name);

/// The file that makes a folder a database.
inline constexpr const char* kDatabaseFileName = "library.sqlite";

/// Whether the folder holds a database: its file is there and is not empty. Thread-safe.
bool isDatabaseFolder(const std::string& folder);

/// Puts the staged copy of a library's database in the place of the working one, and that one, if there is
/// one, in its: once more, and they are back. Domain "posix". Nobody may have the database open. Thread-safe.
[[nodiscard]] Result<void> exchangeStagedDatabase(const std::string& dbName);

/// Removes the folder of a library's database from the shared database folder. It goes out of the way in one
/// step, so that a removal that is cut short leaves no half database; a missing one is a success. Domain
/// "posix", EINVAL for a name that is not valid. Nobody may have the database open. Thread-safe.
[[nodiscard]] Result<void> removeDatabaseFolder(const std::string& dbName);

/// Says in a database's folder whether it is to be kept when another one takes its place: whoever clears up
/// after a kill sees it. Domain "posix".
[[nodiscard]] Result<void> markFormerDatabase(const std::string& folder, bool isKept);

/// Removes what is staged, or, when it is a former working database that was to be kept, gives it a name of
/// its own, which is returned and logged. A missing one is a success. Domain "posix".
[[nodiscard]] Result<std::string> putStagedDatabaseAway(const std::string& dbName);

/// Removes what removals and copies that were cut short have left; former databases are kept. Thread-safe.
void sweepDatabaseRoot();

}  // namespace vornex
