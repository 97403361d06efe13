#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <type_traits>
#include <vector>

#include "server/store/Sqlite.h"

namespace vornex::server {

/// A few connections for reading, opened when they are first needed and kept.
///
/// Thread-safety: safe on any thread; a caller waits while all connections are in use, until its deadline.
class ReaderPool {
 public:
  static constexpr std::size_t kMaximumReaders = 4;

  using Deadline = std::chrono::steady_clock::time_point;

  explicit ReaderPool(std::string path) : path_(std::move(path)) {}

  /// Calls `work(Database&)`, which returns a Result, with a connection nobody else uses. `timedOut` when
  /// there is none by the deadline.
  template <typename Work>
  std::invoke_result_t<Work, Database&> use(Deadline deadline, Work work) {
    Result<Database> reader = take(deadline);
    if (!reader) return tl::unexpected(reader.error());
    Lease lease{*this, *reader};
    return work(lease.database);
  }

 private:
  // Gives the connection back, whatever happens.
  struct Lease {
    ReaderPool& pool;
    Database& database;
    ~Lease() { pool.giveBack(std::move(database)); }
  };

  [[nodiscard]] Result<Database> take(Deadline deadline);
  void giveBack(Database database);

  const std::string path_;
  std::mutex mutex_;
  std::condition_variable returned_;
  std::vector<Database> idle_;
  std::size_t inUse_ = 0;
};

}  // namespace vornex::server
