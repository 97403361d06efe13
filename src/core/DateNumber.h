#pragma once

#include <vornex/Value.h>

#include <cstdint>
#include <optional>
#include <string>

namespace vornex {

/// The date number of a point in time: the decimal digits are its UTC calendar time yyyyMMddHHmmssSSS (17
/// digits for the years 1000 to 9999, more for later ones, milliseconds truncated). 0 before the year 1.
/// Thread-safe.
std::int64_t dateNumber(Date date);

/// The point in time of a date number; absent when the digits are not one: anything but 17 digits, or a
/// month, day or time that no calendar has. Thread-safe.
std::optional<Date> dateFromDateNumber(std::int64_t number);

}  // namespace vornex
