#pragma once

#include <string_view>

#include "foundation/Error.h"
#include "server/query/Predicate.h"

namespace vornex::server {

inline constexpr std::size_t kMaximumPredicateSize = 1 << 20;
inline constexpr int kMaximumPredicateDepth = 256;
/// How many different regular expressions one predicate may hold; plain terms do not count.
inline constexpr std::size_t kMaximumPredicateExpressions = 64;

/// Reads a predicate in its textual format:
///
///     name CONTAINS[cd] "beach" AND (rating >= 3 OR flagged == 1) AND NOT project IN {"a", "b"}
///
/// Operators: = == != <> < <= =< > >= => BETWEEN IN CONTAINS BEGINSWITH ENDSWITH LIKE MATCHES; AND && OR ||
/// NOT !; ANY SOME ALL NONE before a key. AND binds tighter than OR. Constants: strings in single or double
/// quotes, numbers, TRUE YES FALSE NO, NULL NIL, and lists of them in braces. Keywords in any case; a key
/// that reads like one is written #key.
///
/// A mistake is an error with the code `queryInvalid` whose message begins with its position in bytes.
[[nodiscard]] Result<Predicate> parsePredicate(std::string_view text);

}  // namespace vornex::server
