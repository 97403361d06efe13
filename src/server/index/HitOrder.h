#pragma once

#include <optional>
#include <vector>

#include "server/index/Segment.h"

namespace vornex::server {

/// What a search found in one segment.
struct SegmentHits {
  SegmentPtr segment;
  DocumentSet hits;
};

/// One document of one of the segments of a search.
struct Hit {
  std::size_t segment;
  std::uint32_t document;

  bool operator==(const Hit&) const = default;
};

struct HitRange {
  std::int64_t offset;
  std::int64_t count;
  bool ascending;
};

/// Whether pages can be ordered by the key without reading documents: "_id" and the ordered fields, as long
/// as the index knows what each document has.
bool isIndexOrder(std::string_view key, const std::vector<SegmentHits>& segments);

/// The hits at those places in the order by the key as SearchRequest describes it, of `total` ones; fewer at
/// the end.
std::vector<Hit> hitsInOrder(const std::vector<SegmentHits>& segments, std::int64_t total,
                             std::string_view key, HitRange range);

}  // namespace vornex::server
