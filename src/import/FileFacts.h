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
  Date modified;
  /// The time of modification where the file system keeps no time of birth.
  Date created;

  bool operator==(const FileFacts&) const = default;
};

/// Absent when the file cannot be reached.
std::optional<FileFacts> fileFacts(const std::string& path);

}  // namespace vornex
