#pragma once

namespace vornex::cli {

/// While it lives, the first Ctrl-C (or SIGTERM) is only noted; the second ends the process with exit code
/// 130.
///
/// Thread-safety: one at a time, made and destroyed on one thread; requested() is safe on any.
class InterruptGuard {
 public:
  InterruptGuard();
  /// Restores what the signals did before.
  ~InterruptGuard();
  InterruptGuard(const InterruptGuard&) = delete;
  InterruptGuard& operator=(const InterruptGuard&) = delete;

  static bool requested();
};

}  // namespace vornex::cli
