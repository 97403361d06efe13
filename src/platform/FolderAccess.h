#pragma once

#include <vornex/Value.h>

#include <string>

#include "foundation/Error.h"

namespace vornex {

// A token remembers a folder or file that the user chose: its path, and which item was there (volume or
// mounted source, inode and time of birth, as far as the file system keeps them). It holds no secret and
// grants nothing; it tells whether the same item is still there and open to us. Tokens are made to be stored;
// their first entry is a version. Both functions are thread-safe and block on the file system only.

/// The path is made absolute and freed of doubled slashes and "."; links in it, and ".." behind them, are
/// kept. Domain "posix": nothing there, or no permission to read
/// it (and, for a folder, to search it).
[[nodiscard]] Result<Data> makeAccessToken(const std::string& path);

/// The path of the token. Domain "posix": ENOENT when nothing is there any more, ESTALE when something else
/// has taken its place, EACCES when it may no longer be read. Domain "access" for bytes that are no token or
/// are of a later version.
[[nodiscard]] Result<std::string> resolveAccessToken(const Data& token);

}  // namespace vornex
