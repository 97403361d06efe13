// Date numbers of 10,000 dates in both directions, beside the C library's calendar doing the same work.

#include <cstdlib>
#include <ctime>

#include "Ratio.h"
#include "core/DateNumber.h"

using namespace vornex;

static std::vector<Date> dates() {
  std::vector<Date> result;
  for (std::int64_t i = 0; i < 10'000; ++i) result.emplace_back(std::chrono::milliseconds(i * 170'000'003));
  return result;
}

static std::vector<std::int64_t> numbers() {
  std::vector<std::int64_t> result;
  for (Date date : dates()) result.push_back(dateNumber(date));
  return result;
}

static void dateNumberFromDate(benchmark::State& state) {
  std::vector<Date> all = dates();
  for (auto _ : state)
    for (Date date : all) benchmark::DoNotOptimize(dateNumber(date));
}
BENCHMARK(dateNumberFromDate);

static void gmtimeAndStrftime(benchmark::State& state) {
  std::vector<Date> all = dates();
  for (auto _ : state) {
    for (Date date : all) {
      std::int64_t milliseconds = date.time_since_epoch().count() / 1000;
      std::time_t seconds = milliseconds / 1000;
      std::tm calendar{};
      ::gmtime_r(&seconds, &calendar);
      char text[32];
      std::size_t length = std::strftime(text, sizeof text, "%Y%m%d%H%M%S", &calendar);
      fmt::format_to_n(text + length, 4, "{:03}{}", milliseconds % 1000, '\0');
      benchmark::DoNotOptimize(std::strtoll(text, nullptr, 10));
    }
  }
}
BENCHMARK(gmtimeAndStrftime);

static void dateFromNumber(benchmark::State& state) {
  std::vector<std::int64_t> all = numbers();
  for (auto _ : state)
    for (std::int64_t number : all) benchmark::DoNotOptimize(dateFromDateNumber(number));
}
BENCHMARK(dateFromNumber);

static void strptimeAndTimegm(benchmark::State& state) {
  std::vector<std::int64_t> all = numbers();
  for (auto _ : state) {
    for (std::int64_t number : all) {
      std::string text = fmt::format("{}", number / 1000);
      std::tm calendar{};
      ::strptime(text.c_str(), "%Y%m%d%H%M%S", &calendar);
      benchmark::DoNotOptimize(::timegm(&calendar) * 1000 + number % 1000);
    }
  }
}
BENCHMARK(strptimeAndTimegm);

int main(int argc, char** argv) {
  return bench::runWithRatios(
      argc, argv, {{"dateNumberFromDate", "gmtimeAndStrftime"}, {"dateFromNumber", "strptimeAndTimegm"}});
}
