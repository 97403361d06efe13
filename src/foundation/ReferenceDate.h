#pragma once

#include <vornex/Value.h>

#include <algorithm>
#include <cmath>
#include <optional>

namespace vornex {

/// Property lists and archives count seconds from here.
inline constexpr Date kReferenceDate = std::chrono::sys_days(std::chrono::year(2001) / 1 / 1);

/// Absent for what is no number or has no Date, which reaches to some 292,000 years from 1970.
inline std::optional<Date> dateFromReferenceSeconds(double seconds) {
  constexpr double kLimit = 9.22239e12;
  if (!(std::abs(seconds) < kLimit)) return std::nullopt;
  return kReferenceDate + std::chrono::microseconds(std::llround(seconds * 1e6));
}

/// The first thirty years that a Date can tell count as one.
inline double secondsSinceReference(Date date) {
  constexpr Date kEarliest = Date::min() + kReferenceDate.time_since_epoch();
  return std::chrono::duration<double>(std::max(date, kEarliest) - kReferenceDate).count();
}

}  // namespace vornex
