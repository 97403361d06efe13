#include "platform/MediaWorkers.h"

#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <vornex/Queue.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <thread>

#include "foundation/FileDescriptor.h"
#include "platform/Processes.h"

namespace vornex {

namespace {

// A reader gives up by itself after 30 seconds with an opened file; what opens it twice may be cut short
// here.
constexpr std::chrono::seconds kTimeLimit{45};
constexpr const char* kProgram = "vornex-media";

/// Two files under way and one whose facts are asked for keep a small machine busy.
std::size_t maxWorkers() {
  static const std::size_t count = std::clamp<std::size_t>(std::thread::hardware_concurrency() + 1, 3, 8);
  return count;
}

}  // namespace

class MediaWorkers::Worker {
 public:
  static Result<std::unique_ptr<Worker>> start(const std::string& program) {
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
      return posixFailure(errno, "cannot make a socket");
    FileDescriptor mine(ends[0]), theirs(ends[1]);
    auto process = startProcess(program, {"serve"}, theirs.get());
    if (!process) return tl::unexpected(process.error());
    return std::unique_ptr<Worker>(new Worker(*process, std::move(mine)));
  }

  ~Worker() {
    ::kill(process_, SIGKILL);
    // A process that hangs in the kernel, on a lost network disk say, is not gone yet.
    auto reap = [process = process_] {
      while (::waitpid(process, nullptr, 0) < 0 && errno == EINTR) {
      }
    };
    try {
      GlobalQueue::shared().async(reap);
    } catch (const std::exception&) {
      // Without a thread to wait on, it is reaped if it is gone already.
      ::waitpid(process_, nullptr, WNOHANG);
    }
  }
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;

  bool hasServed() const { return served_; }

  bool isAlive() const {
    pollfd watched{socket_.get(), POLLIN, 0};
    return ::poll(&watched, 1, 0) == 0;
  }

  Result<Result<MediaAnswer>> ask(const Dictionary& request, std::chrono::milliseconds timeLimit) {
    auto deadline = std::chrono::steady_clock::now() + timeLimit;
    if (auto sent = sendRequest(socket_.get(), request); !sent) return tl::unexpected(sent.error());
    auto answer = receiveAnswer(socket_.get(), deadline);
    served_ = served_ || answer;
    return answer;
  }

 private:
  Worker(pid_t process, FileDescriptor socket) : process_(process), socket_(std::move(socket)) {}

  const pid_t process_;
  const FileDescriptor socket_;
  bool served_ = false;
};

/// A place among the workers, given back at the end of the scope.
struct MediaWorkers::Place {
  MediaWorkers& workers;
  std::unique_ptr<Worker> worker;
  ~Place() { workers.giveBack(std::move(worker)); }
};

MediaWorkers& MediaWorkers::shared() {
  // Never destroyed: its processes end when this one does.
  static auto* const workers = new MediaWorkers(mediaProgram(), kTimeLimit);
  return *workers;
}

MediaWorkers::MediaWorkers(std::string program, std::chrono::milliseconds timeLimit)
    : program_(std::move(program)), timeLimit_(timeLimit) {}

MediaWorkers::~MediaWorkers() = default;

Result<MediaAnswer> MediaWorkers::ask(const Dictionary& request) {
  Place place{*this, takeIdle()};
  try {
    return askWorker(place.worker, request);
  } catch (const std::bad_alloc&) {
    // The answer was read in part: its reader must not be used again.
    place.worker.reset();
    return failure("decoder", ENOMEM, "no memory for what the reader has answered");
  }
}

/// Leaves the worker null when it must not be used again.
Result<MediaAnswer> MediaWorkers::askWorker(std::unique_ptr<Worker>& worker, const Dictionary& request) {
  for (;;) {
    if (!worker) {
      auto started = Worker::start(program_);
      if (!started) return failure("decoder", started.error().code, started.error().message);
      worker = std::move(*started);
    }
    bool isUsed = worker->hasServed();
    auto answer = worker->ask(request, timeLimit_);
    if (answer) return std::move(*answer);
    worker.reset();
    // One that has served may have gone for its own reasons: memory used up, or idle for too long.
    bool mayTryAgain = isUsed && answer.error().code == ECONNRESET;
    if (!mayTryAgain) return tl::unexpected(answer.error());
  }
}

/// Waits for a place; null when a process has to be started.
std::unique_ptr<MediaWorkers::Worker> MediaWorkers::takeIdle() {
  std::vector<std::unique_ptr<Worker>> dead;
  std::unique_lock lock(mutex_);
  freed_.wait(lock, [this] { return busy_ < maxWorkers(); });
  ++busy_;
  while (!idle_.empty()) {
    std::unique_ptr<Worker> worker = std::move(idle_.back());
    idle_.pop_back();
    if (worker->isAlive()) return worker;
    dead.push_back(std::move(worker));
  }
  return nullptr;
}

void MediaWorkers::giveBack(std::unique_ptr<Worker> worker) {
  std::lock_guard lock(mutex_);
  --busy_;
  if (worker) idle_.push_back(std::move(worker));
  freed_.notify_one();
}

std::string mediaProgram() {
  if (const char* chosen = std::getenv("VORNEX_MEDIA"); chosen && *chosen) return chosen;
  return findOwnProgram(kProgram).value_or(kProgram);
}

}  // namespace vornex
