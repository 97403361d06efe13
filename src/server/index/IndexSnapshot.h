#pragma once

#include <memory>
#include <string>
#include <vector>

#include "server/index/Segment.h"

namespace vornex::server {

/// A segment and which of its documents are still there.
struct LiveSegment {
  SegmentPtr segment;
  std::shared_ptr<const DocumentSet> live;
};

/// The index of all documents at one moment; each document is live in one segment.
struct IndexSnapshot {
  std::vector<LiveSegment> segments;
  /// Of the last write that is in it; it counts all writes.
  std::int64_t version = 0;
  /// Every document of that write or an earlier one stands in a row up to this.
  std::int64_t lastRow = 0;
};

/// The rows of the documents whose value of an exact field, by its place in indexedFields(), is that number.
std::vector<std::int64_t> rowsWithNumber(const IndexSnapshot& snapshot, std::size_t field, NumberKey number);

/// Names the files that let an index be opened without reading the documents, and the write they are of.
struct CheckpointRecord {
  std::int64_t stamp = 0;
  std::int64_t version = 0;
};

/// A new segment file's path.
std::string newSegmentPath(const std::string& folder);
/// Maps a segment file.
[[nodiscard]] Result<SegmentPtr> openSegment(const std::string& path);

/// Writes the file that names the segments, all of which must be files of the folder. Durable on success.
[[nodiscard]] Result<CheckpointRecord> writeCheckpoint(const std::string& folder,
                                                       const IndexSnapshot& snapshot);
/// Reads it back. An error when a file is missing, damaged or of another version.
[[nodiscard]] Result<IndexSnapshot> readCheckpoint(const std::string& folder, std::int64_t stamp);
/// Removes all files of the folder but those of the checkpoint and the segments of the snapshot.
void removeOtherFiles(const std::string& folder, std::int64_t stamp, const IndexSnapshot& snapshot);

}  // namespace vornex::server
