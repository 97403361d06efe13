#pragma once

#include <unistd.h>

#include <utility>

namespace vornex {

/// Owns a file descriptor.
///
/// Thread-safety: none; one owner.
class FileDescriptor {
 public:
  FileDescriptor() = default;
  explicit FileDescriptor(int descriptor) : descriptor_(descriptor) {}
  FileDescriptor(FileDescriptor&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    if (this != &other) {
      close();
      descriptor_ = std::exchange(other.descriptor_, -1);
    }
    return *this;
  }
  ~FileDescriptor() { close(); }

  explicit operator bool() const { return descriptor_ >= 0; }
  int get() const { return descriptor_; }
  int release() { return std::exchange(descriptor_, -1); }

  /// The result of close(2); 0 when nothing is owned.
  int close() { return descriptor_ >= 0 ? ::close(std::exchange(descriptor_, -1)) : 0; }

 private:
  int descriptor_ = -1;
};

}  // namespace vornex
