#pragma once

#include <chrono>
#include <string>

#include "foundation/Error.h"
#include "foundation/FileDescriptor.h"

namespace vornex {

/// The right to change a file, which only one holder has at a time among all processes and threads that ask
/// for it. It ends with the object, or with the process. The lock is kept on a hidden file beside, which
/// stays unless it is removed: the file itself may be replaced meanwhile.
///
/// Thread-safety: none; one owner.
class FileLock {
 public:
  /// Waits at most this long for another holder; then ETIMEDOUT. Domain "posix". Where the file system knows
  /// no locks, everybody gets one.
  [[nodiscard]] static Result<FileLock> acquire(
      const std::string& path, std::chrono::milliseconds patience = std::chrono::seconds(10));

  /// Where the lock of a file is kept.
  static std::string placeOf(const std::string& path);

  /// False where the file system knows no locks.
  bool isExclusive() const { return isExclusive_; }

  /// What a holder has written into the lock's file; it outlives the holder. Empty when there is nothing.
  std::string note() const;
  /// Durable when it returns; a kill meanwhile may leave a part. Domain "posix".
  [[nodiscard]] Result<void> setNote(const std::string& text);

  /// Removes the lock's file. Who waits for the lock gets it, on a new file.
  void removeFile();

 private:
  FileLock(FileDescriptor file, std::string place, bool isExclusive)
      : file_(std::move(file)), place_(std::move(place)), isExclusive_(isExclusive) {}

  FileDescriptor file_;
  std::string place_;
  bool isExclusive_;
};

}  // namespace vornex
