#pragma once

#include "foundation/Error.h"
#include "foundation/FileDescriptor.h"

namespace vornex::server {

/// The exclusive right to serve a root folder, held as a lock on a file in it. The system gives it up when
/// the process ends, however it ends.
///
/// Thread-safety: none; one owner.
class InstanceLock {
 public:
  /// Makes the lock file and writes this process's ID into it. `itemExists` when another process holds it.
  [[nodiscard]] static Result<InstanceLock> acquire();

 private:
  explicit InstanceLock(FileDescriptor file) : file_(std::move(file)) {}
  FileDescriptor file_;
};

}  // namespace vornex::server
