#pragma once

#include <vornex/Value.h>

#include <span>
#include <string>
#include <vector>

#include "server/index/Segment.h"

namespace vornex::server {

/// The longest text, and list of texts, that is indexed. Documents with longer ones are looked at themselves.
inline constexpr std::size_t kMaximumIndexedText = std::size_t{16} << 10;

/// One document to be indexed: its row in the database, its identifier, and what it has under each of
/// indexedKeys(), in their order; null for what it has not. Of values that are not indexed only that they are
/// there is kept.
struct IndexedDocument {
  IndexedDocument(std::int64_t row, std::string id, std::vector<Value> values);

  std::int64_t row;
  std::string id;
  std::vector<Value> values;
};

/// What a document has under each of indexedKeys().
std::vector<Value> indexedValues(const Dictionary& document);

/// The segment of the documents, in memory; null without any. No two have the same identifier.
SegmentPtr makeSegment(std::vector<IndexedDocument> documents);

/// What was written, as a segment in memory.
SegmentPtr inMemory(SectionWriter& sections);

/// A segment to be merged and which of its documents are still there.
struct SegmentPart {
  SegmentPtr segment;
  const DocumentSet* live;
};

/// For each part, what number each of its documents has in the merged segment; kNoCode for those left out.
using DocumentMaps = std::vector<std::vector<std::uint32_t>>;

/// Writes one segment with the documents of all parts that are still there, of which there is at least one.
DocumentMaps mergeSegments(std::span<const SegmentPart> parts, SectionWriter& sections);

}  // namespace vornex::server
