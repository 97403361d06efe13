#pragma once

#include <vornex/Value.h>

#include <string>

#include "foundation/Error.h"

namespace vornex {

// An alias stands in one folder for an item elsewhere. It is a symbolic link, or, on file systems that have
// none (exFAT and FAT disks, some network mounts), a small file: a line that says so, then an access token of
// the item. All functions are thread-safe and block on the file system only.

/// Makes an alias of the item, which need exist only where a file has to be written. `alias` must not exist.
/// Domain "posix".
[[nodiscard]] Result<void> makeAlias(const std::string& item, const std::string& alias);
/// The same without a symbolic link, on any file system.
[[nodiscard]] Result<void> makeAliasFile(const std::string& item, const std::string& alias);

/// Whether a symbolic link or an alias file is at the path.
bool isAlias(const std::string& path);

/// A symbolic link's destination as stored, possibly relative and dangling; an alias file's item, if it is
/// still the same. Domain "posix": EINVAL for anything that is no alias, and as `resolveAccessToken`.
[[nodiscard]] Result<std::string> resolveAlias(const std::string& path);

}  // namespace vornex
