#pragma once

#include <string_view>

#include "foundation/Error.h"
#include "server/query/Predicate.h"
#include "server/query/TimeLimit.h"

namespace vornex::server {

inline constexpr std::size_t kMaximumPredicateSize = 8 << 20;
/// Keys, constants and parentheses; what a predicate takes in memory is in proportion to them.
inline constexpr std::size_t kMaximumPredicateOperands = 500'000;
inline constexpr int kMaximumPredicateDepth = 256;
/// How many different regular expressions one predicate may hold; plain terms do not count.
inline constexpr std::size_t kMaximumPredicateExpressions = 64;

/// Reads a predicate in its textual format:
///
///     name CONTAINS[cd] "beach" AND (rating >= 3 OR flagged == 1) AND NOT project IN {"a", "b"}
///
/// Operators: = == != <> < <= =< > >= => BETWEEN IN CONTAINS BEGINSWITH ENDSWITH LIKE MATCHES, with the
/// options c, d and n; AND && OR || NOT !; ANY SOME ALL NONE before an operand; TRUEPREDICATE FALSEPREDICATE.
/// AND binds tighter than OR. Operands: keys and paths of keys, SELF; strings in single or double quotes,
/// numbers, TRUE YES FALSE NO, NULL NIL; lists in braces; elements a[0] a[FIRST] a[LAST] a[SIZE]; arithmetic
/// with + - * / **; the collection operators @count @sum @avg @min @max; the functions count sum average min
/// max lowercase uppercase length abs floor ceiling trunc sqrt. Either may stand in parentheses. Keywords in
/// any case; a key that reads like one is written #key. Variables, placeholders, SUBQUERY, CAST, TERNARY,
/// FUNCTION, sets, and all other functions and collection operators are refused.
///
/// A mistake is an error with the code `queryInvalid` whose message begins with its position in bytes.
/// Throws TimeIsOver when the constants in it take too long to work out.
[[nodiscard]] Result<Predicate> parsePredicate(std::string_view text, TimeLimit limit = {});

}  // namespace vornex::server
