#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vornex/TQProject.h>
#include <vornex/TQSearchManager.h>

#include "core/DateNumber.h"

namespace vornex {
namespace {

using ::testing::ElementsAre;

TQSearchManager& manager() {
  return TQSearchManager::sharedManager();
}

struct ParseCase {
  const char* text;
  std::vector<std::string> terms;
  std::int64_t operatorType;
  std::int64_t errorCode;
};

// Part of the test's name, which takes few characters.
void PrintTo(const ParseCase& parseCase, std::ostream* out) {
  *out << "operator " << parseCase.operatorType;
}

class SearchString : public ::testing::TestWithParam<ParseCase> {};

TEST_P(SearchString, IsSplitIntoTermsAndOperator) {
  const ParseCase& expected = GetParam();
  int calls = 0;
  manager().parseSearchString(expected.text, [&](std::optional<TQSearchManager::Terms> terms,
                                                 std::int64_t operatorType, const TQErrorPtr& error) {
    ++calls;
    EXPECT_EQ(error ? error->code() : 0, expected.errorCode);
    EXPECT_EQ(operatorType, expected.operatorType);
    EXPECT_EQ(terms.has_value(), expected.errorCode == 0);
    if (terms) {
      EXPECT_EQ(*terms, expected.terms);
    }
  });
  EXPECT_EQ(calls, 1);
}

INSTANTIATE_TEST_SUITE_P(Plain, SearchString,
                         ::testing::Values(ParseCase{"", {}, 1, 0}, ParseCase{"   ", {""}, 1, 0},
                                           ParseCase{"cat", {"cat"}, 1, 0},
                                           ParseCase{"cat dog", {"cat", "dog"}, 0, 0},
                                           ParseCase{"  cat\t\ndog ", {"cat", "dog"}, 0, 0},
                                           ParseCase{"cat\u3000dog", {"cat", "dog"}, 0, 0},
                                           ParseCase{"Übung für 日本", {"Übung", "für", "日本"}, 0, 0},
                                           ParseCase{"a+b", {"a\\+b"}, 1, 0}, ParseCase{"a.b", {"a.b"}, 1, 0},
                                           ParseCase{"$^*()[]|", {"\\$\\^\\*\\(\\)\\[\\]\\|"}, 1, 0},
                                           ParseCase{"bad\xff", {"bad\uFFFD"}, 1, 0}));

INSTANTIATE_TEST_SUITE_P(Operators, SearchString,
                         ::testing::Values(ParseCase{"cat OR a", {"cat", "a"}, 1, 0},
                                           ParseCase{"cat OR dog", {"cat", "dog"}, 1, 0},
                                           ParseCase{"cat or dog", {"cat", "dog"}, 1, 0},
                                           ParseCase{"cat | dog", {"cat", "dog"}, 1, 0},
                                           ParseCase{"cat aNd dog", {"cat", "dog"}, 0, 0},
                                           ParseCase{"one two OR three", {"one two", "three"}, 1, 0},
                                           ParseCase{"sand AND oregano", {"sand", "oregano"}, 0, 0},
                                           ParseCase{"cat AND dog OR fox", {}, -1, 10015},
                                           ParseCase{"cat And dog or fox", {"cat And dog", "fox"}, 1, 0}));

INSTANTIATE_TEST_SUITE_P(Quotes, SearchString,
                         ::testing::Values(ParseCase{R"("red car" blue)", {"red car", "blue"}, 0, 0},
                                           ParseCase{R"(cat OR "red car")", {"cat", "red car"}, 1, 0},
                                           ParseCase{R"("red car" OR a)", {"red car", "a"}, 1, 0},
                                           ParseCase{R"(cat OR "red car" )", {"cat", "red car"}, 1, 0},
                                           ParseCase{R"( "red car" OR a)", {"red car", "a"}, 1, 0},
                                           ParseCase{R"("red car" OR a OR b)", {}, -1, 10013},
                                           ParseCase{R"("one" "two" "three")", {"one", "two", "three"}, 0, 0},
                                           ParseCase{R"("this OR that")", {"this OR that"}, 0, 0},
                                           ParseCase{R"(""red car"")", {"red car"}, 0, 0},
                                           ParseCase{R"("a" OR "b")", {"a", "OR", "b"}, 0, 0},
                                           ParseCase{R"("a" "b" OR c)", {"a", "b", "c"}, 1, 0},
                                           ParseCase{R"("a" c++)", {"a", R"(c\\+\\+)"}, 0, 0},
                                           ParseCase{R"(cat "dog" OR fox)", {}, -1, 10015},
                                           ParseCase{R"(a AND b "c" d OR e "f")", {}, -1, 10015},
                                           ParseCase{R"("")", {""}, 1, 0},
                                           ParseCase{R"(a " b)", {}, -1, 10014},
                                           ParseCase{R"("a" "b)", {}, -1, 10014}));

TEST(SearchString, SplitsBySeparatorsAlone) {
  EXPECT_EQ(manager().matchORSearchString("cat dog"), std::nullopt);
  // The alternative to OR is a bar or a double quote between blanks, nothing else.
  EXPECT_EQ(manager().matchORSearchString("a \" b | c , d"), (TQSearchManager::Terms{"a", "b", "c , d"}));
  EXPECT_EQ(manager().matchSpaceSearchString("  "), TQSearchManager::Terms());
  EXPECT_EQ(manager().matchSearchStringsFromString("a1b22c", "[0-9]+"),
            (TQSearchManager::Terms{"a", "b", "c"}));
  EXPECT_EQ(manager().matchSearchStringsFromString("abc", "["), std::nullopt);
}

// The text of queries

PredicatePtr equal(const char* key, const Value& value) {
  return TQPredicate::comparisonPredicate(key, value, kPredicateEqual);
}

TEST(Predicate, WritesComparisons) {
  auto text = [](const Value& constant, std::int64_t operatorType = kPredicateEqual, unsigned options = 0) {
    PredicatePtr predicate = TQPredicate::comparisonPredicate("k", constant, operatorType, options);
    return predicate ? predicate->predicateFormat() : "none";
  };
  EXPECT_EQ(text(true), "k == 1");
  EXPECT_EQ(text(false), "k == 0");
  EXPECT_EQ(text(20240305140709250), "k == 20240305140709250");
  EXPECT_EQ(text(20.0), "k == 20");
  EXPECT_EQ(text(-0.25), "k == -0.25");
  EXPECT_EQ(text(nullptr), "k == nil");
  EXPECT_EQ(text(R"(a\b"c'é)"), R"(k == "a\\b\"c'é")");
  EXPECT_EQ(text(Array{"a", 1}, kPredicateIn), R"(k IN {"a", 1})");
  EXPECT_EQ(text("x", kPredicateContains, kPredicateCaseInsensitive | kPredicateDiacriticInsensitive),
            R"(k CONTAINS[cd] "x")");
  EXPECT_EQ(text("x", kPredicateMatches), R"(k MATCHES "x")");
  EXPECT_EQ(equal("exif.in.2nd", 1)->predicateFormat(), "exif.#in.#2nd == 1");
  for (const char* unwritable : {"", "a b", "a..b", "trash == 1 OR x", "a\"", "a."})
    EXPECT_FALSE(equal(unwritable, 1)) << unwritable;
  EXPECT_EQ(text(1, kPredicateLessThanOrEqual), "k <= 1");
  EXPECT_EQ(text(1, kPredicateGreaterThanOrEqual), "k >= 1");
  for (const Value& unwritable :
       {Value(Data{1}), Value(Dictionary()), Value(0.0 / 0.0), Value(Array{nullptr})})
    EXPECT_EQ(text(unwritable), "none");
  EXPECT_EQ(text(1, 7), "none");
}

TEST(Predicate, WritesCompounds) {
  auto a = equal("a", 0), b = equal("b", 1), c = equal("c", 2);
  auto conjunction = [](std::vector<PredicatePtr> parts) {
    return TQPredicate::andPredicateWithSubpredicates(parts);
  };
  auto disjunction = [](std::vector<PredicatePtr> parts) {
    return TQPredicate::orPredicateWithSubpredicates(parts);
  };
  auto negation = [](const PredicatePtr& part) {
    return TQPredicate::notPredicateWithSubpredicate(part)->predicateFormat();
  };
  EXPECT_EQ(conjunction({a, b, c})->predicateFormat(), "a == 0 AND b == 1 AND c == 2");
  EXPECT_EQ(disjunction({a})->predicateFormat(), "a == 0");
  EXPECT_EQ(conjunction({a, disjunction({b, c})})->predicateFormat(), "a == 0 AND (b == 1 OR c == 2)");
  EXPECT_EQ(conjunction({disjunction({a}), disjunction({}), b})->predicateFormat(),
            "(a == 0) AND (FALSEPREDICATE) AND b == 1");
  EXPECT_EQ(conjunction({})->predicateFormat(), "TRUEPREDICATE");
  EXPECT_EQ(negation(a), "NOT a == 0");
  EXPECT_EQ(negation(disjunction({a, b})), "NOT (a == 0 OR b == 1)");
  EXPECT_FALSE(conjunction({a, nullptr}));
}

// Queries

std::string text(const PredicatePtr& predicate) {
  return predicate ? predicate->predicateFormat() : "none";
}

TEST(Query, LooksForTermsInTheSearchFields) {
  EXPECT_EQ(text(manager().createQueryWithSearchString("cat")),
            R"(name CONTAINS "cat" OR tags CONTAINS "cat" OR fileext CONTAINS "cat")");
  manager().setSearchFields({"name", "note"});
  EXPECT_EQ(text(manager().createQueryWithSearchStrings({"a", "b"}, kSearchOR)),
            R"((name CONTAINS "a" OR note CONTAINS "a") OR (name CONTAINS "b" OR note CONTAINS "b"))");
  EXPECT_EQ(text(manager().createQueryWithSearchStrings({"a"}, kSearchInvalid)), "none");
  EXPECT_EQ(text(manager().createANDQueryWithSearchStrings({"a", "b"}, "f")),
            R"(f CONTAINS "a" OR f CONTAINS "b")");
  EXPECT_EQ(text(manager().createNoteQueryWithSearchStrings({"a", "b"}, kSearchAND)),
            R"(note CONTAINS "a" AND note CONTAINS "b")");
}

TEST(Query, NamesTypesOnlyWhenSomeTakePart) {
  EXPECT_EQ(text(manager().createAssetTypeQuery()), "none");
  for (const char* key : {"video", "audio", "document", "extra"}) manager().setSearchAssetTypeKey(key, false);
  EXPECT_EQ(text(manager().createAssetTypeQuery()), "type == 2");
  manager().setSearchAssetTypeKey("new", true);
  EXPECT_EQ(text(manager().createAssetTypeQuery()), "type == 2 OR type == -1");
  manager().setSearchAssetTypes(std::map<std::string, bool>{{"image", false}});
  EXPECT_EQ(text(manager().createAssetTypeQuery()), "none");
  EXPECT_EQ(TQSearchManager::searchKeyFromAssetType(4), "extra");
  EXPECT_EQ(TQSearchManager::searchKeyFromAssetType(5), "video");
  EXPECT_EQ(TQSearchManager::assetTypeFromSearchKey("Image"), -1);
}

TEST(Query, BuildsTheOthers) {
  EXPECT_EQ(text(manager().createQueryWithWantReview(false)), "wantreview == 1");
  EXPECT_EQ(text(manager().createQueryWithReviewerID("jo")),
            R"(extensis.ApprovedBy == "jo" AND wantreview == 1)");
  EXPECT_EQ(text(manager().createQueryWithReviewerID(std::nullopt)), "none");
  EXPECT_EQ(text(manager().createQueryWithReviewStatus(2)), "JobStatus == 2 AND wantreview == 1");
  EXPECT_EQ(text(manager().createAssetsPredicate({"x", "y"})), R"(_id MATCHES "x" OR _id MATCHES "y")");
  EXPECT_EQ(text(manager().createFCPXEventPredicate({})), "FALSEPREDICATE");
  EXPECT_EQ(text(manager().createQueryWithGroup(std::nullopt, "group")), "none");
  EXPECT_EQ(text(TQSearchManager::createPredicateWithKey("k", nullptr, kPredicateEqual)), "none");
  Date day = *dateFromDateNumber(20240305000000000);
  EXPECT_EQ(text(manager().createQueryFromDate(day, day + std::chrono::milliseconds(5))),
            "importdate >= 20240305000000000 AND importdate <= 20240305000000005");
  EXPECT_EQ(manager().sortParamWithSortField("", false), (Dictionary{{"ascending", false}}));
  EXPECT_EQ(manager().sortParamWithSortField("name", true),
            (Dictionary{{"sortfield", "name"}, {"ascending", true}}));
}

TEST(Query, CountsDaysBackFromNow) {
  auto boundary = [](std::int64_t days) {
    std::string format = text(manager().createQueryWithDays(days));
    return dateFromDateNumber(std::stoll(format.substr(format.rfind(' ')))).value();
  };
  auto distance = boundary(0) - boundary(7);
  EXPECT_NEAR(std::chrono::duration<double>(distance).count(), 7 * 86400, 5);
  EXPECT_EQ(text(manager().createQueryWithDays(std::numeric_limits<std::int64_t>::max())), "importdate >= 0");
}

TEST(Query, CollectsGroupsBeforeTheirChildren) {
  auto node = [](const char* id) { return TQProject::projectWithID(id, id, "db", kProjectTypeGroup); };
  ProjectPtr root = node("1"), inner = node("2"), leaf = node("3"), last = node("4");
  inner->childGroups = {leaf};
  root->childGroups = {inner, last};
  EXPECT_THAT(manager().groupIDs(root), ElementsAre("1", "2", "3", "4"));
  EXPECT_THAT(manager().groupIDs(leaf), ElementsAre("3"));
}

}  // namespace
}  // namespace vornex
