#pragma once

#include <vornex/Value.h>

#include <span>
#include <string>
#include <vector>

#include "server/index/Segment.h"

namespace vornex::server {

/// One document to be indexed: its row in the database, its identifier, and at least its indexed keys.
struct IndexedDocument {
  std::int64_t row;
  std::string id;
  Dictionary content;
};

/// Writes the segment of the documents, of which there is at least one and no two have the same identifier.
void writeSegment(std::vector<IndexedDocument> documents, SectionWriter& sections);

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
