#pragma once

#include <vornex/Queue.h>

#include <memory>

namespace vornex {

/// Runs tasks one after another, in the order given, on workers of the global queue.
///
/// Thread-safety: safe on any thread. Tasks may outlive the queue.
class SerialQueue {
 public:
  SerialQueue();

  /// Appends the task; returns at once. A task that throws is logged, not propagated.
  void async(Task task);

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace vornex
