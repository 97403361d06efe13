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

/// What a tag is read back as: the parts between its commas, none of them empty, without blanks around them.
std::vector<std::string> storedTags(const std::string& tag);

/// Replaces the tags; an empty list removes the attribute. See storedTags.
[[nodiscard]] Result<void> setFileTags(const std::string& path, const std::vector<std::string>& tags);

}  // namespace vornex
