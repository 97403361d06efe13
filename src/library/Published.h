#pragma once

#include <memory>
#include <mutex>
#include <utility>

namespace vornex {

/// A value that readers share and a writer replaces as a whole. Readers never wait for a writer at work.
///
/// Thread-safety: safe on any thread. Writers that build on the present value exclude one another themselves.
template <typename T>
class Published {
 public:
  /// Never null; what it points to never changes.
  std::shared_ptr<const T> read() const {
    std::lock_guard lock(mutex_);
    return value_;
  }

  void publish(T value) {
    auto next = std::make_shared<const T>(std::move(value));
    std::lock_guard lock(mutex_);
    value_.swap(next);
  }

 private:
  mutable std::mutex mutex_;
  std::shared_ptr<const T> value_ = std::make_shared<const T>();
};

}  // namespace vornex
