#include "server/query/ScalarOrder.h"

#include <algorithm>
#include <cmath>

namespace vornex::server {

namespace {

std::partial_ordering compareNumbers(std::int64_t a, double b) {
  constexpr double kLimit = 9223372036854775808.0;
  if (b >= kLimit) return std::partial_ordering::less;
  if (b < -kLimit) return std::partial_ordering::greater;
  double whole = std::trunc(b);
  auto order = a <=> static_cast<std::int64_t>(whole);
  return order != 0 ? std::partial_ordering(order) : 0.0 <=> b - whole;
}

std::partial_ordering compareNumbers(Number a, Number b) {
  const std::int64_t* integerA = std::get_if<std::int64_t>(&a);
  const std::int64_t* integerB = std::get_if<std::int64_t>(&b);
  if (integerA && integerB) return *integerA <=> *integerB;
  if (integerA) return compareNumbers(*integerA, std::get<double>(b));
  if (integerB) return 0 <=> compareNumbers(*integerB, std::get<double>(a));
  return std::get<double>(a) <=> std::get<double>(b);
}

int rank(const Value& value) {
  if (value.isNumber() || value.ifBool()) return 0;
  return value.ifString() ? 1 : 2;
}

bool precedes(const Value& a, const Value& b) {
  int rankOfA = rank(a);
  int rankOfB = rank(b);
  return rankOfA != rankOfB ? rankOfA < rankOfB : compareScalars(a, b) < 0;
}

}  // namespace

std::optional<Number> numberOf(const Value& value) {
  if (const bool* boolean = value.ifBool()) return std::int64_t{*boolean};
  if (const std::int64_t* integer = value.ifInteger()) return *integer;
  if (const std::uint64_t* integer = value.ifUnsigned()) return static_cast<double>(*integer);
  if (const double* real = value.ifReal()) return *real;
  return std::nullopt;
}

std::partial_ordering compareScalars(const Value& a, const Value& b) {
  std::optional<Number> numberA = numberOf(a);
  std::optional<Number> numberB = numberOf(b);
  if (numberA && numberB) return compareNumbers(*numberA, *numberB);
  const std::string* textA = a.ifString();
  const std::string* textB = b.ifString();
  if (!textA || !textB) return std::partial_ordering::unordered;
  return *textA <=> *textB;
}

void sortList(Array& list) {
  std::sort(list.begin(), list.end(), precedes);
}

bool isInSortedList(const Value& scalar, const Array& list) {
  return std::binary_search(list.begin(), othersInSortedList(list), scalar, precedes);
}

Array::const_iterator othersInSortedList(const Array& list) {
  return std::partition_point(list.begin(), list.end(), [](const Value& value) { return rank(value) < 2; });
}

}  // namespace vornex::server
