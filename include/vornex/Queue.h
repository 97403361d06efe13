#pragma once

#include <functional>
#include <memory>

namespace vornex {

using Task = std::function<void()>;

/// The default-priority concurrent queue: a pool of threads that grows when every worker is blocked, so that
/// tasks may wait for one another, and shrinks again when idle.
///
/// Thread-safety: safe on any thread. A task that throws is logged, not propagated.
class GlobalQueue {
 public:
  /// Made on first use; lives until the process ends.
  static GlobalQueue& shared();

  GlobalQueue();
  /// Waits for running and queued tasks.
  ~GlobalQueue();

  /// Runs the task soon on a worker; returns at once. Throws std::system_error, and the task is not run, when
  /// the system has no thread left.
  void async(Task task);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

/// The queue of the host's main thread. Nothing on it runs until the host pumps it, with run(), with
/// runPending(), or from its own event loop through fileDescriptor().
///
/// Thread-safety: async(), stop() and fileDescriptor() are safe on any thread; run() and runPending() belong
/// to one thread, the main thread.
class MainQueue {
 public:
  /// Made on first use; lives until the process ends.
  static MainQueue& shared();

  MainQueue();
  ~MainQueue();

  /// Appends the task; returns at once. Tasks run in order. A task that throws is logged, not propagated.
  void async(Task task);

  /// Runs tasks until stop() is called; blocks while there are none.
  void run();

  /// Makes the running run(), or the next one, return after the task in hand.
  void stop();

  /// Runs the tasks that are queued now; never blocks. Returns how many ran.
  std::size_t runPending();

  /// Readable (poll, epoll) while tasks wait; owned by the queue: never read or close it.
  int fileDescriptor() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace vornex
