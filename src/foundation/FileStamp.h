#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

#include "foundation/Error.h"

namespace vornex {

/// What tells one state of a file from another without reading it. All zero: there is no file.
struct FileStamp {
  dev_t device = 0;
  ino_t inode = 0;
  off_t size = 0;
  std::int64_t modified = 0;

  bool exists() const { return inode != 0; }
  bool operator==(const FileStamp&) const = default;
};

/// Taken before the file is read, a change in between only makes it be read once more. A missing file, or
/// folder above it, is no failure. Domain "posix".
[[nodiscard]] Result<FileStamp> fileStamp(const std::string& path);

}  // namespace vornex
