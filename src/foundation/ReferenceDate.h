#pragma once

#include <vornex/Value.h>

#include <cmath>
#include <optional>

namespace vornex {

/// Property lists and archives count seconds from here.
inline constexpr Date kReferenceDate = std::chrono::sys_days(std::chrono::year(2001) / 1 / 1);

/// Absent for what is no number or lies more than a million years away.
inline std::optional<Date> dateFromReferenceSeconds(double seconds) {
  if (!(std::abs(seconds) < 3.2e13)) return std::nullopt;
  return kReferenceDate + std::chrono::microseconds(std::llround(seconds * 1e6));
}

inline double secondsSinceReference(Date date) {
  return std::chrono::duration<double>(date.time_since_epoch() - kReferenceDate.time_since_epoch()).count();
}

}  // namespace vornex
