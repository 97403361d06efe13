#include "core/DateNumber.h"

#include <chrono>

namespace vornex {

namespace chrono = std::chrono;

std::int64_t dateNumber(Date date) {
  constexpr Date kFirst = chrono::sys_days(chrono::year(1) / 1 / 1);
  // The calendar repeats itself; std::chrono knows the years up to 32767 only.
  constexpr chrono::days kCycle{146097};
  constexpr int kYearsOfCycle = 400;
  if (date < kFirst) return 0;
  auto day = chrono::floor<chrono::days>(date);
  const auto cycles = static_cast<int>(day.time_since_epoch() / kCycle);
  chrono::year_month_day calendar(day - cycles * kCycle);
  chrono::hh_mm_ss time(chrono::floor<chrono::milliseconds>(date - day));
  std::int64_t number = static_cast<int>(calendar.year()) + cycles * kYearsOfCycle;
  number = number * 100 + static_cast<unsigned>(calendar.month());
  number = number * 100 + static_cast<unsigned>(calendar.day());
  number = number * 100 + time.hours().count();
  number = number * 100 + time.minutes().count();
  number = number * 100 + time.seconds().count();
  return number * 1000 + time.subseconds().count();
}

std::optional<Date> dateFromDateNumber(std::int64_t number) {
  constexpr std::int64_t kSmallest = 10'000'000'000'000'000;
  constexpr std::int64_t kLargest = 99'999'999'999'999'999;
  if (number < kSmallest || number > kLargest) return std::nullopt;
  auto takeDigits = [&number](std::int64_t power) {
    auto digits = static_cast<unsigned>(number % power);
    number /= power;
    return digits;
  };
  unsigned milliseconds = takeDigits(1000);
  unsigned seconds = takeDigits(100);
  unsigned minutes = takeDigits(100);
  unsigned hours = takeDigits(100);
  unsigned day = takeDigits(100);
  unsigned month = takeDigits(100);
  chrono::year_month_day calendar(chrono::year(static_cast<int>(number)), chrono::month(month),
                                  chrono::day(day));
  if (!calendar.ok() || hours > 23 || minutes > 59 || seconds > 59) return std::nullopt;
  return chrono::sys_days(calendar) + chrono::hours(hours) + chrono::minutes(minutes) +
         chrono::seconds(seconds) + chrono::milliseconds(milliseconds);
}

}  // namespace vornex
