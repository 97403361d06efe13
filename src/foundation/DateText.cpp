#include "foundation/DateText.h"

#include <fmt/format.h>

namespace vornex {

std::string dateText(Date date) {
  using namespace std::chrono;
  auto day = floor<days>(date);
  year_month_day calendar(day);
  hh_mm_ss time(date - day);
  std::string text = fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}", int(calendar.year()),
                                 unsigned(calendar.month()), unsigned(calendar.day()), time.hours().count(),
                                 time.minutes().count(), time.seconds().count());
  if (auto fraction = time.subseconds().count(); fraction != 0) {
    std::string digits = fmt::format("{:06}", fraction);
    digits.erase(digits.find_last_not_of('0') + 1);
    text += "." + digits;
  }
  return text + "Z";
}

}  // namespace vornex
