#include "import/AfterASecond.h"

#include <vornex/Log.h>

#include <chrono>
#include <deque>
#include <mutex>
#include <thread>

namespace vornex {

namespace {

using Clock = std::chrono::steady_clock;

struct Waiting {
  Clock::time_point due;
  Task task;
};

struct Line {
  std::mutex mutex;
  /// The first one is being waited for, or runs.
  std::deque<Waiting> tasks;
};

Line& line() {
  // Never destroyed: a worker may still wait when the process ends.
  static Line* const line = new Line;
  return *line;
}

void run(const Task& task) {
  try {
    task();
  } catch (const std::exception& exception) {
    logLine(LogLevel::error, std::string("a delayed task threw: ") + exception.what());
  }
}

void runAll() {
  std::unique_lock lock(line().mutex);
  while (!line().tasks.empty()) {
    Waiting next = std::move(line().tasks.front());
    lock.unlock();
    std::this_thread::sleep_until(next.due);
    run(next.task);
    next.task = nullptr;
    lock.lock();
    line().tasks.pop_front();
  }
}

}  // namespace

void afterASecond(Task task) {
  std::lock_guard lock(line().mutex);
  line().tasks.push_back({Clock::now() + std::chrono::seconds(1), std::move(task)});
  if (line().tasks.size() == 1) GlobalQueue::shared().async(runAll);
}

}  // namespace vornex
