#pragma once

#include <chrono>

#include "server/index/Segment.h"
#include "server/query/Predicate.h"

namespace vornex::server {

/// What a segment says to a predicate, of the documents that were asked about: those that fulfil it and those
/// whose own text must be looked at. All others do not fulfil it.
struct SegmentAnswer {
  DocumentSet yes;
  DocumentSet open;
};

/// Answers from the index alone. Gives up with `timedOut` after the deadline.
[[nodiscard]] Result<SegmentAnswer> searchSegment(const Segment& segment, const DocumentSet& documents,
                                                  const Predicate& predicate,
                                                  std::chrono::steady_clock::time_point deadline);

}  // namespace vornex::server
