#pragma once

#include <chrono>
#include <string>

#include "foundation/Error.h"
#include "foundation/FileDescriptor.h"

namespace vornex {

/// The right to change a file, which only one holder has at a time among all processes and threads that ask
/// for it. It ends with the object, or with the process. The lock is kept on an empty hidden file beside,
/// which stays: the file itself may be replaced meanwhile.
///
/// Thread-safety: none; one owner.
class FileLock {
 public:
  /// Waits at most this long for another holder; then ETIMEDOUT. Domain "posix". Where the file system knows
  /// no locks, everybody gets one.
  [[nodiscard]] static Result<FileLock> acquire(
      const std::string& path, std::chrono::milliseconds patience = std::chrono::seconds(10));

 private:
  explicit FileLock(FileDescriptor file) : file_(std::move(file)) {}

  FileDescriptor file_;
};

}  // namespace vornex
