#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <fstream>

#include "foundation/Files.h"
#include "foundation/PropertyList.h"
#include "foundation/ReferenceDate.h"
#include "support/TemporaryFolder.h"

using namespace vornex;
using vornex::testing::TemporaryFolder;

static Value everyKind() {
  return Dictionary{{"text", "a < b & \"c\" \xEA\xB0\x80\nline"},
                    {"negative", -7},
                    {"large", std::int64_t{20240305140709250}},
                    {"real", 2.5},
                    {"flag", true},
                    {"data", Data{0, 255, 10}},
                    {"date", Date(std::chrono::sys_days(std::chrono::year(2024) / 3 / 5))},
                    {"empty", ""},
                    {"list", Array{1, Dictionary{{"deep", Array{}}}}}};
}

TEST(PropertyList, RoundTripsInBothFormats) {
  for (PropertyListFormat format : {PropertyListFormat::xml, PropertyListFormat::binary}) {
    Result<std::string> bytes = writePropertyList(everyKind(), format);
    ASSERT_TRUE(bytes);
    EXPECT_EQ(bytes->starts_with("bplist"), format == PropertyListFormat::binary);
    Result<Value> value = parsePropertyList(*bytes);
    ASSERT_TRUE(value);
    EXPECT_EQ(*value, everyKind());
  }
}

TEST(PropertyList, KeepsWhatXmlCannotCarry) {
  for (const Value& value :
       {Value("bell \x07 and\rreturn"), Value(std::string("a\0b", 3)),
        Value(Date{std::chrono::hours(-500'000)}), Value(std::numeric_limits<std::uint64_t>::max())}) {
    Result<std::string> bytes = writePropertyList(Dictionary{{"value", value}});
    ASSERT_TRUE(bytes);
    EXPECT_EQ(*parsePropertyList(*bytes).value_or(Value()).find("value"), value);
  }
}

TEST(PropertyList, RefusesWhatItCannotHoldOrRead) {
  EXPECT_FALSE(writePropertyList(Dictionary{{"nothing", nullptr}}));
  for (const char* bytes :
       {"", "x", "<plist><dict><key>a</key>", "bplist00", "bplist00\xff\xff\xff\xff", "{}"})
    EXPECT_FALSE(parsePropertyList(bytes)) << bytes;
}

TEST(PropertyList, FilesAreReadAsDictionaries) {
  TemporaryFolder folder;
  ASSERT_TRUE(writePropertyListFile(folder / "list.plist", everyKind()));
  Result<Dictionary> read = readDictionaryFile(folder / "list.plist");
  ASSERT_TRUE(read);
  EXPECT_EQ(Value(*read), everyKind());

  ASSERT_TRUE(writePropertyListFile(folder / "array.plist", Array{1}));
  EXPECT_FALSE(readDictionaryFile(folder / "array.plist"));
  EXPECT_EQ(readDictionaryFile(folder / "missing.plist").error().domain, "posix");
}

// Other systems must be able to read what is written here: Python's reader stands for them.
TEST(PropertyList, PythonReadsBothFormats) {
  if (std::system("python3 -c 'import plistlib' 2>/dev/null") != 0) GTEST_SKIP() << "no python3";
  TemporaryFolder folder;
  for (PropertyListFormat format : {PropertyListFormat::xml, PropertyListFormat::binary}) {
    ASSERT_TRUE(writeFileAtomically(folder / "p.plist", *writePropertyList(everyKind(), format)));
    std::string check = "python3 -c \"import plistlib,datetime; d=plistlib.load(open('" + folder.path() +
                        "/p.plist','rb')); assert d['negative']==-7 and d['large']==20240305140709250 and "
                        "d['real']==2.5 and d['flag'] is True and d['data']==bytes([0,255,10]) and "
                        "d['date']==datetime.datetime(2024,3,5) and d['list'][1]=={'deep':[]} and "
                        "d['text'].endswith(chr(0xAC00)+chr(10)+'line')\"";
    EXPECT_EQ(std::system(check.c_str()), 0);
  }
}

// Hostile binary lists: a container that holds itself, and twenty levels of arrays that each hold the next
// one ten times.
TEST(PropertyList, RefusesCyclesAndBombs) {
  auto list = [](const std::vector<std::string>& objects) {
    std::string bytes = "bplist00";
    std::string offsets;
    for (const std::string& object : objects) {
      offsets += static_cast<char>(bytes.size() >> 8);
      offsets += static_cast<char>(bytes.size());
      bytes += object;
    }
    std::string trailer(32, '\0');
    trailer[6] = 2;
    trailer[7] = 1;
    trailer[15] = static_cast<char>(objects.size());
    trailer[30] = static_cast<char>(bytes.size() >> 8);
    trailer[31] = static_cast<char>(bytes.size());
    return bytes + offsets + trailer;
  };
  EXPECT_TRUE(parsePropertyList(list({std::string("\xa1\x01"), std::string("\x10\x05")})));
  EXPECT_FALSE(parsePropertyList(list({std::string("\xa1\x00", 2)})));
  EXPECT_FALSE(parsePropertyList(list({std::string("\xa1\x07")})));
  std::vector<std::string> bomb;
  for (char level = 1; level <= 20; ++level) bomb.push_back("\xaa" + std::string(10, level));
  bomb.push_back("\x09");
  EXPECT_FALSE(parsePropertyList(list(bomb)));
}

TEST(PropertyList, DatesReachToTheLastThatFits) {
  constexpr double kLimit = 9.22239e12;
  const double inside = std::nextafter(kLimit, 0);
  for (double seconds : {inside, -inside}) {
    auto date = dateFromReferenceSeconds(seconds);
    ASSERT_TRUE(date);
    EXPECT_NEAR(secondsSinceReference(*date), seconds, 0.01);
  }
  for (double seconds : {kLimit, -kLimit, 3e13, 1e300, HUGE_VAL, std::nan("")})
    EXPECT_FALSE(dateFromReferenceSeconds(seconds)) << seconds;
  for (Date date : {Date::min(), Date::max()})
    EXPECT_TRUE(writePropertyList(date, PropertyListFormat::binary)) << "does not overflow";
}
