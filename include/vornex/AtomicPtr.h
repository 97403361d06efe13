#pragma once

#include <cstddef>
#include <memory>
#include <mutex>
#include <utility>

namespace vornex {

/// A shared pointer that one thread may replace while others read it. What it points to is not guarded:
/// replace the object, do not change it.
///
/// Thread-safety: safe on any thread.
template <typename T>
class AtomicPtr {
 public:
  AtomicPtr() = default;
  AtomicPtr(std::nullptr_t) {}
  AtomicPtr(const AtomicPtr& other) : pointer_(other.load()) {}
  AtomicPtr& operator=(const AtomicPtr& other) { return *this = other.load(); }
  AtomicPtr& operator=(std::nullptr_t) { return *this = std::shared_ptr<T>(); }
  AtomicPtr& operator=(std::shared_ptr<T> next) {
    std::lock_guard lock(mutex_);
    pointer_.swap(next);
    return *this;
  }

  std::shared_ptr<T> load() const {
    std::lock_guard lock(mutex_);
    return pointer_;
  }
  operator std::shared_ptr<T>() const { return load(); }
  explicit operator bool() const { return load() != nullptr; }
  bool operator==(const std::shared_ptr<T>& other) const { return load() == other; }
  /// The object stays alive to the end of the expression.
  std::shared_ptr<T> operator->() const { return load(); }

 private:
  mutable std::mutex mutex_;
  std::shared_ptr<T> pointer_;
};

}  // namespace vornex
