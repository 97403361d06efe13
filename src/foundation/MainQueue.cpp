#include <fcntl.h>
#include <poll.h>
#include <unistd.h>
#include <vornex/Queue.h>

#include <cerrno>
#include <deque>
#include <mutex>
#include <system_error>

#include "foundation/FileDescriptor.h"
#include "foundation/RunTask.h"

namespace vornex {

// A pipe, not an eventfd, so that the same code serves macOS. It holds one byte while tasks or a stop wait.
struct MainQueue::State {
  std::mutex mutex;
  std::deque<Task> tasks;
  bool stopping = false;
  bool signalled = false;
  FileDescriptor readEnd;
  FileDescriptor writeEnd;

  State() {
    int ends[2];
    if (::pipe(ends) != 0) throw std::system_error(errno, std::generic_category(), "main queue");
    readEnd = FileDescriptor(ends[0]);
    writeEnd = FileDescriptor(ends[1]);
    for (int end : ends) {
      ::fcntl(end, F_SETFD, FD_CLOEXEC);
      ::fcntl(end, F_SETFL, O_NONBLOCK);
    }
  }

  // Called with the mutex held.
  void signal() {
    if (signalled) return;
    signalled = true;
    char byte = 0;
    while (::write(writeEnd.get(), &byte, 1) < 0 && errno == EINTR) {
    }
  }

  // Called with the mutex held.
  void drain() {
    if (!signalled) return;
    signalled = false;
    char byte;
    while (::read(readEnd.get(), &byte, 1) < 0 && errno == EINTR) {
    }
  }

  bool next(Task& task) {
    std::lock_guard lock(mutex);
    if (tasks.empty()) return false;
    task = std::move(tasks.front());
    tasks.pop_front();
    if (tasks.empty() && !stopping) drain();
    return true;
  }

  bool takeStop() {
    std::lock_guard lock(mutex);
    if (!stopping) return false;
    stopping = false;
    if (tasks.empty()) drain();
    return true;
  }

  void await() {
    pollfd waiting{readEnd.get(), POLLIN, 0};
    while (::poll(&waiting, 1, -1) < 0 && errno == EINTR) {
    }
  }
};

MainQueue& MainQueue::shared() {
  // Never destroyed: other threads may append while the process ends.
  static MainQueue* queue = new MainQueue;
  return *queue;
}

MainQueue::MainQueue() : state_(std::make_unique<State>()) {}
MainQueue::~MainQueue() = default;

void MainQueue::async(Task task) {
  std::lock_guard lock(state_->mutex);
  state_->tasks.push_back(std::move(task));
  state_->signal();
}

void MainQueue::run() {
  Task task;
  while (!state_->takeStop()) {
    if (state_->next(task))
      runTask(std::move(task), "main queue");
    else
      state_->await();
  }
}

void MainQueue::stop() {
  std::lock_guard lock(state_->mutex);
  state_->stopping = true;
  state_->signal();
}

std::size_t MainQueue::runPending() {
  std::size_t waiting;
  {
    std::lock_guard lock(state_->mutex);
    waiting = state_->tasks.size();
  }
  std::size_t ran = 0;
  for (Task task; ran < waiting && state_->next(task); ++ran) runTask(std::move(task), "main queue");
  return ran;
}

int MainQueue::fileDescriptor() const {
  return state_->readEnd.get();
}

}  // namespace vornex
