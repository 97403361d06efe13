#pragma once

#include <vornex/Types.h>

#include <vector>

namespace vornex {

class TQPredicate;
using PredicatePtr = std::shared_ptr<const TQPredicate>;

/// How the terms of a search are joined.
enum SearchOperator : std::int64_t { kSearchInvalid = -1, kSearchAND = 0, kSearchOR = 1 };

}  // namespace vornex
