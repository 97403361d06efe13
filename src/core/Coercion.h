#pragma once

#include <vornex/Value.h>

#include <cstdint>

/// Reading loose values: a malformed field gives its fallback and never raises. A null pointer is an absent
/// value.
///
/// Thread-safety: every function is safe on any thread.
namespace vornex::coerce {

/// Strings only; nothing is converted.
OptionalString string(const Value* object);
/// Arrays only, else an empty array.
Array array(const Value* object);
/// Numbers, booleans, and the leading digits of strings (0 without any); -1 for everything else.
/// A number out of range gives the nearest end of the range, a fraction is cut off.
std::int64_t integer(const Value* object);
/// As integer(); -1.0 as fallback. The decimal sign is the point in every locale.
double real(const Value* object);
/// A true boolean, a non-zero number, or a string that begins with Y, y, T, t or a non-zero digit; blanks, a
/// sign and zeros may stand before the digit.
bool boolean(const Value* object);

}  // namespace vornex::coerce
