#include <vornex/Log.h>
#include <vornex/Queue.h>

#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <thread>

#include "foundation/RunTask.h"

namespace vornex {

using namespace std::chrono_literals;

// Workers are threads of the pool. A task that finds no idle worker gets a new one at once, so a task can
// never wait for a worker that is blocked on it; idle workers above the base number leave after a while.
struct GlobalQueue::State {
  static constexpr std::size_t kBaseWorkers = 4;
  static constexpr auto kIdleTime = 5s;

  std::mutex mutex;
  std::condition_variable work;
  std::condition_variable ended;
  std::deque<Task> tasks;
  std::size_t workers = 0;
  std::size_t idle = 0;
  bool stopping = false;

  void runWorker() {
    std::unique_lock lock(mutex);
    for (;;) {
      if (tasks.empty() && !awaitTask(lock)) break;
      Task task = std::move(tasks.front());
      tasks.pop_front();
      lock.unlock();
      runTask(std::move(task), "global queue");
      lock.lock();
    }
    --workers;
    // Notified under the lock: the queue may be destroyed as soon as the last worker has left it.
    ended.notify_all();
  }

  // Whether there is a task; false tells the worker to leave.
  bool awaitTask(std::unique_lock<std::mutex>& lock) {
    ++idle;
    auto wanted = [this] { return !tasks.empty() || stopping; };
    while (!wanted()) {
      if (workers <= kBaseWorkers)
        work.wait(lock, wanted);
      else if (!work.wait_for(lock, kIdleTime, wanted))
        break;
    }
    --idle;
    return !tasks.empty();
  }
};

GlobalQueue& GlobalQueue::shared() {
  // Never destroyed: workers may run while the process ends.
  static GlobalQueue* queue = new GlobalQueue;
  return *queue;
}

GlobalQueue::GlobalQueue() : state_(std::make_unique<State>()) {}

GlobalQueue::~GlobalQueue() {
  std::unique_lock lock(state_->mutex);
  state_->stopping = true;
  state_->work.notify_all();
  state_->ended.wait(lock, [this] { return state_->workers == 0; });
}

void GlobalQueue::async(Task task) {
  std::lock_guard lock(state_->mutex);
  bool needsWorker = state_->tasks.size() >= state_->idle;
  // Whoever is told that there is no thread to be had must not find the task done later all the same.
  if (needsWorker) std::thread([state = state_.get()] { state->runWorker(); }).detach();
  if (needsWorker) ++state_->workers;
  state_->tasks.push_back(std::move(task));
  if (!needsWorker) state_->work.notify_one();
}

}  // namespace vornex
