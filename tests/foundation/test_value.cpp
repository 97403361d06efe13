#include <gtest/gtest.h>
#include <vornex/Value.h>

#include <limits>

using namespace vornex;

TEST(Value, KindsStayApart) {
  EXPECT_FALSE(Value(true) == Value(1));
  EXPECT_FALSE(Value("1") == Value(1));
  EXPECT_FALSE(Value(1) == Value(1.0));
  EXPECT_FALSE(Value(true).isNumber());
  EXPECT_EQ(Value(std::uint64_t{7}), Value(7));
  EXPECT_EQ(Value(std::numeric_limits<std::uint64_t>::max()).kind(), Value::Kind::unsignedInteger);
  EXPECT_TRUE(Value(OptionalString()).isNull());
}

// Small and large dictionaries keep different indexes; both must behave alike through inserts, erases and
// copies.
TEST(Dictionary, KeepsOrderAndFindsEveryKeyAtAnySize) {
  for (int size : {3, 24, 25, 200}) {
    Dictionary dictionary;
    for (int i = 0; i < size; ++i) dictionary.set("key" + std::to_string(i), i);
    dictionary.set("key1", "again");
    EXPECT_TRUE(dictionary.erase("key0"));
    EXPECT_FALSE(dictionary.erase("key0"));

    Dictionary copy = dictionary;
    dictionary.clear();
    ASSERT_EQ(copy.size(), static_cast<std::size_t>(size - 1));
    EXPECT_EQ(copy.begin()->first, "key1");
    EXPECT_EQ(*copy.find("key1"), Value("again"));
    for (int i = 2; i < size; ++i) {
      const Value* found = copy.find("key" + std::to_string(i));
      ASSERT_TRUE(found);
      EXPECT_EQ(*found, Value(i));
    }
    EXPECT_FALSE(copy.contains("key0"));
    copy["new"] = 5;
    EXPECT_EQ(*copy.find("new"), Value(5));
  }
}

TEST(Dictionary, IsUsableAfterBeingMovedFrom) {
  Dictionary source;
  for (int i = 0; i < 100; ++i) source.set(std::to_string(i), i);
  Dictionary target = std::move(source);
  source = Dictionary{{"a", 1}};
  source.merge(target);
  EXPECT_EQ(source.size(), 101u);
  EXPECT_EQ(*source.find("99"), Value(99));
}

TEST(Dictionary, EqualityIgnoresOrder) {
  EXPECT_EQ((Dictionary{{"a", 1}, {"b", 2}}), (Dictionary{{"b", 2}, {"a", 1}}));
  EXPECT_FALSE((Dictionary{{"a", 1}}) == (Dictionary{{"a", 1}, {"b", nullptr}}));
}
