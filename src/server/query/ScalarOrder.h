#pragma once

#include <vornex/Value.h>

#include <compare>
#include <optional>
#include <variant>

namespace vornex::server {

/// Integers beyond 64 signed bits count as doubles, as they do in the database.
using Number = std::variant<std::int64_t, double>;

/// Of numbers, and booleans as 1 and 0.
std::optional<Number> numberOf(const Value& value);

/// Numbers by value, booleans as 1 and 0, and strings byte by byte; everything else is unordered.
std::partial_ordering compareScalars(const Value& a, const Value& b);

/// Puts a list's elements in the order that isInSortedList needs: numbers, strings, all others.
void sortList(Array& list);
/// Whether the sorted list has an element that compares as equal to a number or string.
bool isInSortedList(const Value& scalar, const Array& list);
/// The elements of a sorted list that are neither numbers nor strings begin here.
Array::const_iterator othersInSortedList(const Array& list);

}  // namespace vornex::server
