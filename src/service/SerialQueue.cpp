#include "service/SerialQueue.h"

#include <deque>
#include <mutex>

#include "foundation/RunTask.h"

namespace vornex {

struct SerialQueue::State {
  std::mutex mutex;
  std::deque<Task> tasks;
  bool running = false;

  static void drain(const std::shared_ptr<State>& state) {
    for (;;) {
      Task task;
      {
        std::lock_guard lock(state->mutex);
        state->running = !state->tasks.empty();
        if (!state->running) return;
        task = std::move(state->tasks.front());
        state->tasks.pop_front();
      }
      runTask(std::move(task), "serial queue");
    }
  }
};

SerialQueue::SerialQueue() : state_(std::make_shared<State>()) {}

void SerialQueue::async(Task task) {
  {
    std::lock_guard lock(state_->mutex);
    state_->tasks.push_back(std::move(task));
    if (std::exchange(state_->running, true)) return;
  }
  GlobalQueue::shared().async([state = state_] { State::drain(state); });
}

}  // namespace vornex
