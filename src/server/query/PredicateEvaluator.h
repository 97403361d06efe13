#pragma once

#include <vornex/Value.h>

#include "server/query/Predicate.h"
#include "server/query/TimeLimit.h"

namespace vornex::server {

/// Whether the document fulfils the predicate.
///
/// - A key that is missing, or null, equals nil; every other comparison with it is false, `!=` too.
/// - A boolean counts as the number 1 or 0. Numbers compare by value, strings byte by byte unless options say
///   otherwise; values of different sorts are unequal and neither less nor greater.
/// - The text operators look at strings, and at the strings in an array: one that matches is enough. CONTAINS
///   with a right side that is no string asks for an equal element. A string that is no constant is plain
///   text to CONTAINS, a pattern still to LIKE and MATCHES; one that is no usable pattern matches nothing.
/// - `a IN b`: an equal element of the array b, or a part of the string b.
/// - `a BETWEEN b`: b is an array of two.
/// - ANY and ALL ask the elements of an array; any other value counts as an array of itself.
///
/// Throws TimeIsOver.
bool holds(const Predicate& predicate, const Dictionary& document, TimeLimit& limit);

/// Whether a value that is no array fulfils the comparison, whose right side is a constant; null stands for a
/// key that is missing. Throws TimeIsOver.
bool holds(const Comparison& comparison, const Value* left, TimeLimit& limit);

}  // namespace vornex::server
