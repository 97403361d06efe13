#include <gtest/gtest.h>

#include "foundation/Json.h"

using namespace vornex;

static Value parsed(std::string_view text) {
  Result<Value> value = parseJson(text);
  EXPECT_TRUE(value) << text << ": " << (value ? "" : value.error().message);
  return value.value_or(Value());
}

TEST(Json, NumbersKeepTheirKindAndTheirDigits) {
  EXPECT_EQ(parsed("20240305140709250"), Value(std::int64_t{20240305140709250}));
  EXPECT_EQ(parsed("-9223372036854775808"), Value(std::numeric_limits<std::int64_t>::min()));
  EXPECT_EQ(parsed("18446744073709551615"), Value(std::numeric_limits<std::uint64_t>::max()));
  EXPECT_EQ(parsed("18446744073709551616"), Value(18446744073709551616.0));
  EXPECT_EQ(parsed("1.0"), Value(1.0));
  EXPECT_EQ(parsed("1e-999"), Value(0.0));
  EXPECT_EQ(parsed("0E75"), Value(0.0));
  EXPECT_EQ(parsed("true"), Value(true));
}

TEST(Json, RefusesWhatIsNotOneDocument) {
  std::string deep(600, '[');
  for (std::string text : {std::string(""), std::string("{"), std::string("[1,]"), std::string("{\"a\":1} x"),
                           std::string("nul"), std::string("\"\xff\""), std::string("01"),
                           std::string("1e999"), std::string("1\0x", 3), std::string("{\"a\" 1}"),
                           std::string("\"\\udc00\""), deep + std::string(600, ']')}) {
    Result<Value> value = parseJson(text);
    ASSERT_FALSE(value) << text;
    EXPECT_EQ(value.error().domain, "json");
  }
}

TEST(Json, RoundTripsEveryKind) {
  Value value =
      Dictionary{{"null", nullptr},
                 {"text", "line\nquote\" back\\ \x01 \xEA\xB0\x80 \xF0\x9F\x8E\xAC"},
                 {"numbers", Array{1, -2.5, 1e300, 20.0, std::numeric_limits<std::uint64_t>::max()}},
                 {"empty", Dictionary{}},
                 {"flags", Array{true, false}}};
  EXPECT_EQ(parsed(writeJson(value)), value);
  EXPECT_EQ(parsed(writeJson(value, JsonStyle::pretty)), value);
}

TEST(Json, PrettyFormIsThatOfTheOtherClients) {
  EXPECT_EQ(writeJson(Dictionary{{"items", Array{Dictionary{{"a", 1}}, "x"}}, {"none", Array{}}},
                      JsonStyle::pretty),
            "{\n  \"items\" : [\n    {\n      \"a\" : 1\n    },\n    \"x\"\n  ],\n  \"none\" : [\n\n  ]\n}");
}

TEST(Json, WritesWhatJsonCannotHold) {
  EXPECT_EQ(writeJson(Value(std::numeric_limits<double>::quiet_NaN())), "null");
  EXPECT_EQ(writeJson(Value("a\xff")), "\"a\xEF\xBF\xBD\"");
  EXPECT_EQ(writeJson(Value(Date(std::chrono::microseconds(1500000)))), "\"1970-01-01T00:00:01.5Z\"");
  EXPECT_EQ(writeJson(Value(Data{1, 2, 3, 4})), "\"AQIDBA==\"");
}

TEST(Json, TheLastOfEqualKeysCounts) {
  EXPECT_EQ(parsed("{\"a\":1,\"a\":2}"), Value(Dictionary{{"a", 2}}));
}
