#pragma once

#include <array>
#include <atomic>
#include <boost/asio/post.hpp>
#include <boost/asio/thread_pool.hpp>
#include <functional>

#include "server/http/Limits.h"
#include "server/http/Router.h"

namespace vornex::server {

/// The threads that work on requests: a bounded number for each lane, with a bounded queue.
///
/// Thread-safety: safe on any thread.
class Workers {
 public:
  explicit Workers(const Limits& limits)
      : limits_(limits),
        lanes_{Pool(half(limits)), Pool(limits.workers), Pool(half(limits)), Pool(half(limits))} {}

  /// Runs the task on a worker of the lane, then, when the lane has room again, tells so; false when too many
  /// wait there already.
  bool run(Lane lane, std::function<void()> task, std::function<void()> done) {
    Pool& pool = of(lane);
    if (++pool.inFlight > limits_.requestsInFlight) {
      --pool.inFlight;
      return false;
    }
    boost::asio::post(pool.threads, [&pool, task = std::move(task), done = std::move(done)] {
      task();
      --pool.inFlight;
      done();
    });
    return true;
  }

  /// For the pieces of files, each of which follows a request that was let in.
  boost::asio::thread_pool::executor_type fileExecutor() { return of(Lane::file).threads.get_executor(); }

  /// Waits for everything that was given to run.
  void join() {
    for (Pool& pool : lanes_) pool.threads.join();
  }

 private:
  struct Pool {
    explicit Pool(std::size_t count) : threads(count) {}
    boost::asio::thread_pool threads;
    std::atomic<std::size_t> inFlight{0};
  };

  static std::size_t half(const Limits& limits) { return (limits.workers + 1) / 2; }
  Pool& of(Lane lane) { return lanes_[static_cast<std::size_t>(lane)]; }

  const Limits& limits_;
  std::array<Pool, kLanes> lanes_;
};

}  // namespace vornex::server
