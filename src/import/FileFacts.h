#pragma once

#include <vornex/TQError.h>
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
};

/// Absent when the file cannot be reached.
std::optional<FileFacts> fileFacts(const std::string& path);

/// The sizes of everything below the folder, folders counted as they report themselves; 0 for anything but a
/// folder. *error, when given, is the last failure; what cannot be read counts nothing.
std::uint64_t sizeForFolderAtPath(const std::string& path, TQErrorPtr* error);

}  // namespace vornex
