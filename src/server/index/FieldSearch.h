#pragma once

#include "server/index/Segment.h"
#include "server/index/SegmentSearch.h"
#include "server/query/Predicate.h"
#include "server/query/TimeLimit.h"

namespace vornex::server {

/// How much work answering a comparison of a text field takes, beyond a look at the vocabulary.
bool needsTexts(const TextPattern& pattern);

/// The answers of one field to a comparison with a constant, without regard to modifiers where they make no
/// difference. Only documents in `scope` are asked about; of others the answer may say anything. They throw
/// TimeIsOver.

SegmentAnswer searchText(const TextField& field, const Comparison& comparison, const DocumentSet& scope,
                         TimeLimit& limit);
SegmentAnswer searchExact(const Segment& segment, std::size_t field, const Comparison& comparison,
                          const DocumentSet& scope, TimeLimit& limit);
SegmentAnswer searchDigests(const ExactField& field, bool isPath, const Comparison& comparison,
                            const DocumentSet& scope);
SegmentAnswer searchIdentifiers(const Segment& segment, const Comparison& comparison, TimeLimit& limit);

// Long lists of alternatives ask for one text each: these add to what was found already, which is cheaper
// than an answer of their own. They give false, and add nothing, for comparisons of any other sort.

bool addIdentifier(const Segment& segment, const Comparison& comparison, DocumentSet& found);
bool addExactText(const ExactField& field, const Comparison& comparison, DocumentSet& found);

}  // namespace vornex::server
