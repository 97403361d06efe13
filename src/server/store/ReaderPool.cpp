#include "server/store/ReaderPool.h"

#include "server/ServerError.h"
#include "server/store/AssetSchema.h"

namespace vornex::server {

Result<Database> ReaderPool::take(Deadline deadline) {
  {
    std::unique_lock lock(mutex_);
    auto available = [&] { return !idle_.empty() || inUse_ < kMaximumReaders; };
    if (!returned_.wait_until(lock, deadline, available))
      return serverFailure(StatusCode::timedOut, "the database is busy");
    ++inUse_;
    if (!idle_.empty()) {
      Database reader = std::move(idle_.back());
      idle_.pop_back();
      return reader;
    }
  }
  Result<Database> reader = openAssetReader(path_);
  if (!reader) {
    std::lock_guard lock(mutex_);
    --inUse_;
    returned_.notify_one();
  }
  return reader;
}

void ReaderPool::giveBack(Database database) {
  std::lock_guard lock(mutex_);
  --inUse_;
  idle_.push_back(std::move(database));
  returned_.notify_one();
}

}  // namespace vornex::server
