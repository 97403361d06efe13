#include <fmt/format.h>
#include <gtest/gtest.h>

#include <limits>
#include <locale>
#include <random>

#include "core/Coercion.h"
#include "core/DateNumber.h"

using namespace vornex;

static std::int64_t integer(const Value& value) {
  return coerce::integer(&value);
}
static double real(const Value& value) {
  return coerce::real(&value);
}
static bool boolean(const Value& value) {
  return coerce::boolean(&value);
}

TEST(Coercion, FallbacksForWhatIsNoNumber) {
  EXPECT_EQ(coerce::integer(nullptr), -1);
  EXPECT_EQ(coerce::real(nullptr), -1.0);
  EXPECT_FALSE(coerce::boolean(nullptr));
  for (const Value& value :
       {Value(), Value(Array{1}), Value(Dictionary{{"a", 1}}), Value(Data{1}), Value(Date{})}) {
    EXPECT_EQ(integer(value), -1);
    EXPECT_EQ(real(value), -1.0);
    EXPECT_FALSE(boolean(value));
  }
  Value seven = 7;
  EXPECT_FALSE(coerce::string(&seven));
  EXPECT_FALSE(coerce::string(nullptr));
  EXPECT_TRUE(coerce::array(&seven).empty());
}

TEST(Coercion, ReadsTheLeadingDigitsOfStrings) {
  EXPECT_EQ(integer("7"), 7);
  EXPECT_EQ(integer(" \t-12px"), -12);
  EXPECT_EQ(integer("+5"), 5);
  EXPECT_EQ(integer("+-5"), 0);
  EXPECT_EQ(integer("1e5"), 1);
  for (const char* text : {"none", "", "-", "+", "--5", "\xEF\xBC\x95"}) EXPECT_EQ(integer(text), 0) << text;
  EXPECT_EQ(real("-2.5e1 m"), -25.0);
  EXPECT_EQ(real(".5"), 0.5);
  EXPECT_EQ(real("1e5"), 1e5);
  EXPECT_EQ(real("-"), 0.0);
  EXPECT_EQ(real("nan"), 0.0);
  EXPECT_EQ(real("-infinity"), 0.0);
  for (const char* text : {"Yes", " y", "True", "t", "1", "9x", "-1", " +007"})
    EXPECT_TRUE(boolean(text)) << text;
  for (const char* text : {"No", "false", "0", "", "x1", "-0", "0.5", "-", "- 1"})
    EXPECT_FALSE(boolean(text)) << text;
}

struct DecimalComma : std::numpunct<char> {
  char do_decimal_point() const override { return ','; }
};

TEST(Coercion, NumbersOutOfRangeStopAtTheEndOfIt) {
  constexpr auto kLargest = std::numeric_limits<std::int64_t>::max();
  constexpr auto kSmallest = std::numeric_limits<std::int64_t>::min();
  EXPECT_EQ(integer(1e300), kLargest);
  EXPECT_EQ(integer(-1e300), kSmallest);
  EXPECT_EQ(integer(9223372036854775808.0), kLargest);
  EXPECT_EQ(integer(std::numeric_limits<double>::quiet_NaN()), 0);
  EXPECT_EQ(integer(std::numeric_limits<std::uint64_t>::max()), kLargest);
  EXPECT_EQ(integer("99999999999999999999"), kLargest);
  EXPECT_EQ(integer("-99999999999999999999"), kSmallest);
  EXPECT_EQ(integer(std::string(100'000, '9')), kLargest);
  EXPECT_EQ(real("1e999"), std::numeric_limits<double>::max());
  std::locale::global(std::locale(std::locale::classic(), new DecimalComma));
  EXPECT_EQ(real("-1.5e999x"), -std::numeric_limits<double>::max());
  EXPECT_EQ(real("0.5e-999"), 0.0);
  EXPECT_EQ(real("2.5e-310"), 2.5e-310);
  std::locale::global(std::locale::classic());
  EXPECT_EQ(integer(-2.9), -2);
}

static Date at(std::int64_t microseconds) {
  return Date(std::chrono::microseconds(microseconds));
}

TEST(DateNumber, AgreesWithTheSystemCalendarAndComesBackExactly) {
  constexpr std::int64_t kFirst = -30'610'224'000'000;  // 1000-01-01, milliseconds
  constexpr std::int64_t kEnd = 253'402'300'800'000;    // 10000-01-01
  std::mt19937_64 random(20240305);
  std::uniform_int_distribution<std::int64_t> anyMillisecond(kFirst, kEnd - 1);
  std::vector<std::int64_t> samples = {kFirst, -1, 0, 951'782'400'000, kEnd - 1};
  while (samples.size() < 5000) samples.push_back(anyMillisecond(random));
  const char* zones[] = {"UTC", "Asia/Seoul", "America/St_Johns", "Pacific/Apia"};
  for (std::int64_t sample : samples) {
    ::setenv("TZ", zones[static_cast<std::uint64_t>(sample) % std::size(zones)], 1);
    ::tzset();
    std::int64_t milliseconds = ((sample % 1000) + 1000) % 1000;
    std::time_t seconds = (sample - milliseconds) / 1000;
    std::tm calendar{};
    ::gmtime_r(&seconds, &calendar);
    std::string text =
        fmt::format("{:04}{:02}{:02}{:02}{:02}{:02}{:03}", calendar.tm_year + 1900, calendar.tm_mon + 1,
                    calendar.tm_mday, calendar.tm_hour, calendar.tm_min, calendar.tm_sec, milliseconds);
    ASSERT_EQ(std::to_string(dateNumber(at(sample * 1000 + 999))), text);
    ASSERT_EQ(dateFromDateNumber(dateNumber(at(sample * 1000))), at(sample * 1000));
  }
  ::unsetenv("TZ");
}

TEST(DateNumber, RefusesWhatNoCalendarHas) {
  for (std::int64_t number :
       {std::int64_t{-1}, std::int64_t{0}, std::int64_t{20240305140709}, std::int64_t{202403051407092500},
        std::int64_t{20241305140709250}, std::int64_t{20240005140709250}, std::int64_t{20230229000000000},
        std::int64_t{20240305240000000}, std::int64_t{20240305146000000}, std::int64_t{20240305140760000},
        -std::int64_t{20240305140709250}, std::numeric_limits<std::int64_t>::max()}) {
    EXPECT_FALSE(dateFromDateNumber(number)) << number;
  }
  EXPECT_TRUE(dateFromDateNumber(20240229000000000));
  EXPECT_EQ(dateNumber(Date::max()), 2942470110040054775);
  EXPECT_EQ(dateNumber(Date::min()), 0);
  EXPECT_EQ(dateNumber(Date(std::chrono::sys_days(std::chrono::year(10000) / 1 / 1))), 100000101000000000);
}
