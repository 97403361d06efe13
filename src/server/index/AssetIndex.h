#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <set>
#include <thread>

#include "server/index/IndexSnapshot.h"
#include "server/index/SegmentWriter.h"

namespace vornex::server {

/// The search index of one library, kept in step with its database by the store, which tells it each write.
///
/// What is written becomes a small segment of its own; segments are merged, small ones at once and large ones
/// on a thread of the index, so that there are never many. Segments from some megabytes on are files. From
/// time to time, and when asked, a checkpoint names the files of a moment.
///
/// Thread-safety: safe on any thread; writes are serialised.
class AssetIndex {
 public:
  /// Tells the database that the files of the checkpoint are those that count. Called on the index's thread.
  using Record = std::function<Result<void>(const CheckpointRecord&)>;

  /// The folder for its files.
  explicit AssetIndex(std::string folder);
  /// Ends the thread; what is not in a checkpoint is lost.
  ~AssetIndex();

  const std::string& folder() const { return folder_; }
  std::shared_ptr<const IndexSnapshot> snapshot() const;

  /// Takes over the state of a checkpoint.
  void restore(IndexSnapshot snapshot);
  /// Removes the documents in the rows. Goes through the whole index.
  void removeRows(const std::set<std::int64_t>& rows);

  /// A write to come, which nobody sees before it is published. Others wait until it is destroyed.
  class Change {
   public:
    void publish();

   private:
    friend class AssetIndex;
    Change(AssetIndex& index, std::unique_lock<std::mutex> lock, std::shared_ptr<const IndexSnapshot> next)
        : index_(&index), lock_(std::move(lock)), next_(std::move(next)) {}
    AssetIndex* index_;
    std::unique_lock<std::mutex> lock_;
    std::shared_ptr<const IndexSnapshot> next_;
  };

  /// Prepares the state after a write: without the documents of the identifiers, with those of a segment,
  /// which is null when none are added.
  [[nodiscard]] Change prepare(const std::vector<std::string>& removed, SegmentPtr added,
                               std::int64_t version);

  /// Merges until nothing is left to merge.
  [[nodiscard]] Result<void> mergeAll();

  /// Starts the thread that merges and writes checkpoints.
  void start(Record record);
  /// Ends the thread and writes a checkpoint if there was a write since the last one.
  void stop();

 private:
  struct Job {
    std::vector<LiveSegment> parts;
    bool toFile = false;
  };

  void swap(std::shared_ptr<const IndexSnapshot> next);
  void mergeSmall(IndexSnapshot& next) const;
  std::optional<Job> nextJob(bool quiet);
  [[nodiscard]] Result<void> run(const Job& job);
  void finish(const Job& job, const DocumentMaps& maps, SegmentPtr merged);
  void work();
  [[nodiscard]] Result<void> checkpoint();

  const std::string folder_;

  /// Held while the next state is made.
  mutable std::mutex changing_;
  std::set<const Segment*> merging_;

  mutable std::mutex mutex_;
  std::shared_ptr<const IndexSnapshot> current_ = std::make_shared<const IndexSnapshot>();
  std::condition_variable wake_;
  bool stopping_ = false;
  bool changed_ = false;

  Record record_;
  std::int64_t recordedVersion_ = -1;
  std::int64_t changesSinceCheckpoint_ = 0;
  std::thread thread_;
};

}  // namespace vornex::server
