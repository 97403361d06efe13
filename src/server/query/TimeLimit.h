#pragma once

#include <chrono>
#include <cstddef>

namespace vornex::server {

/// Thrown when a search has no time left. Whoever gave it its limit catches it; it goes no further.
struct TimeIsOver {};

/// The time that a search may take. Loops say beforehand what they are about to do, in steps that take ten
/// nanoseconds at worst, such as the look at one byte; now and then the clock is asked.
///
/// Thread-safety: one thread at a time.
class TimeLimit {
 public:
  using Clock = std::chrono::steady_clock;

  /// Without an end.
  TimeLimit() = default;
  explicit TimeLimit(Clock::time_point deadline) : deadline_(deadline) {}

  /// Throws TimeIsOver when the time is over, or too short for so many steps.
  void spend(std::size_t steps) {
    steps_ += steps + 1;
    if (steps_ >= kStepsBetweenLooks) look();
  }

 private:
  static constexpr std::size_t kStepsBetweenLooks = 65'536;
  static constexpr std::chrono::nanoseconds kStep{10};

  void look() {
    auto left = deadline_ - Clock::now();
    if (left / kStep < static_cast<Clock::rep>(steps_)) throw TimeIsOver();
    steps_ = 0;
  }

  Clock::time_point deadline_ = Clock::time_point::max();
  std::size_t steps_ = 0;
};

}  // namespace vornex::server
