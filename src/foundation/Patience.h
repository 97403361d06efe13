#pragma once

#include <vornex/Queue.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <type_traits>

namespace vornex {

// A look at a file on a lost network disk may never return, and nothing ends the thread that looks. All of
// this is safe on any thread.

/// How long a file may take to answer: half a minute.
std::chrono::milliseconds sourcePatience();
/// How long the first look at a file may take: as long, but two seconds while something else hangs, so that a
/// lost disk with many files is not waited for with every file.
std::chrono::milliseconds lookPatience();
/// For tests: the half minute, and the two seconds in proportion.
void setSourcePatience(std::chrono::milliseconds patience);

/// How much work that was given up is still not done.
int hangingWork();

/// Counts as hanging from when it is given up to its end.
class PatientWork {
 public:
  ~PatientWork();
  void giveUp();

 private:
  std::atomic<bool> givenUp_ = false;
};

/// What the work gives, done on another thread; absent when the time is over, or when `goOn`, asked twice a
/// second, says so. The thread is left to work that is given up, which must own all that it uses. What the
/// work throws is passed on.
template <typename Work>
std::optional<std::invoke_result_t<Work>> patiently(Work work, std::chrono::milliseconds patience,
                                                    const std::function<bool()>& goOn = {}) {
  using namespace std::chrono_literals;
  auto state = std::make_shared<PatientWork>();
  auto task = std::make_shared<std::packaged_task<std::invoke_result_t<Work>()>>(std::move(work));
  auto result = task->get_future();
  // The worker lets go of the task, and of what it holds, before it counts as done.
  GlobalQueue::shared().async([state, task = std::move(task)]() mutable {
    (*task)();
    task.reset();
  });
  auto end = std::chrono::steady_clock::now() + patience;
  while (result.wait_for(std::min<std::chrono::nanoseconds>(500ms, patience)) != std::future_status::ready) {
    if (std::chrono::steady_clock::now() < end && (!goOn || goOn())) continue;
    state->giveUp();
    return std::nullopt;
  }
  return result.get();
}

}  // namespace vornex
