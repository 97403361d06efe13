#pragma once

#include <vornex/Value.h>

#include <cstdint>
#include <optional>
#include <string>

namespace vornex {

/// What the file system tells about a file or folder, links followed.
struct FileFacts {
  std::uint64_t size = 0;
  bool isDirectory = false;
  /// Times are kept within the years that a record can hold, 1 to 9999.
  Date modified;
  /// The time of modification where the file system keeps no time of birth.
  Date created;

  bool operator==(const FileFacts&) const = default;
};

/// Absent when the file cannot be reached.
std::optional<FileFacts> fileFacts(const std::string& path);

/// Tells an item, links not followed, from others that come to be at its path, and from itself once it has
/// been written to. Empty when it cannot be reached.
std::string fileIdentity(const std::string& path);

}  // namespace vornex
