#pragma once

#include "server/index/Segment.h"
#include "server/query/Predicate.h"
#include "server/query/TimeLimit.h"

namespace vornex::server {

/// What a segment says to a predicate, of the documents that were asked about: those that fulfil it and those
/// whose own text must be looked at. All others do not fulfil it.
struct SegmentAnswer {
  DocumentSet yes;
  DocumentSet open;
};

/// Puts what is cheap to answer before what is dear, so that it narrows the rest. It makes no difference to
/// the answers; once for a search.
void arrangeByCost(Predicate& predicate);

/// Answers from the index alone. Throws TimeIsOver.
SegmentAnswer searchSegment(const Segment& segment, const DocumentSet& documents, const Predicate& predicate,
                            TimeLimit& limit);

}  // namespace vornex::server
