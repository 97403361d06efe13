#pragma once

#include <string>
#include <vector>

#include "foundation/Error.h"

namespace vornex {

// The tag names of a file or folder, kept as the desktops keep them: comma-joined in the extended attribute
// "user.xdg.tags". Thread-safe. Domain "posix"; ENOTSUP where the file system has no extended attributes.

/// The tags in stored order, blanks around them and empty ones dropped. A file without tags gives an empty
/// list.
[[nodiscard]] Result<std::vector<std::string>> fileTags(const std::string& path);

/// Replaces the tags; an empty list removes the attribute. A comma inside a tag separates: "a,b" is read back
/// as two.
[[nodiscard]] Result<void> setFileTags(const std::string& path, const std::vector<std::string>& tags);

}  // namespace vornex
