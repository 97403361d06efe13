#include <atomic>
#include <random>
#include <thread>

#include "server/StoreTest.h"
#include "server/store/Sqlite.h"

namespace vornex::server {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

class AssetStoreTest : public StoreTest {};

TEST_F(AssetStoreTest, KeepsEveryKeyOfADocumentAndNamesItAfresh) {
  const std::string json =
      R"({"name":"a","_id":"mine","trash":false,"filesize":18446744073709551615,)"
      R"("createdate":20240131120000123,"unknown":{"deep":[1,2.5,null,"x\u0000y"]},"tags":[]})";
  std::vector<std::string> ids = create({json, json});
  ASSERT_EQ(ids.size(), 2u);
  EXPECT_NE(ids[0], ids[1]);
  EXPECT_THAT(ids[0], ::testing::MatchesRegex("[0-9a-f]{24}"));
  Value expected = fromJson(json);
  expected.ifDictionary()->set("_id", ids[0]);
  EXPECT_EQ(fromJson(store_->document(ids[0]).value().value()), expected);
  EXPECT_FALSE(store_->document("mine").value().has_value());
  EXPECT_EQ(store_->count().value(), 2);
  EXPECT_THAT(found("unknown.deep CONTAINS 2.5 AND unknown.deep CONTAINS 'x'"), ElementsAre("a", "a"));
}

TEST_F(AssetStoreTest, ReportsBadItemsByPlaceAndStoresTheOthers) {
  Array items{fromJson(R"({"name":"good"})"),
              5,
              fromJson(R"({"type":1})"),
              fromJson(R"({"name":7})"),
              Dictionary{{"name", "big"}, {"blob", std::string(kMaximumDocumentSize, 'x')}},
              fromJson(R"({"name":"last"})")};
  Result<std::vector<Result<std::string>>> created = store_->create(items);
  ASSERT_TRUE(created);
  ASSERT_EQ(created->size(), 6u);
  for (std::size_t bad : {1, 2, 3})
    EXPECT_EQ(codeOf((*created)[bad].error()), StatusCode::invalidRequest) << bad;
  EXPECT_EQ(codeOf((*created)[4].error()), StatusCode::limitExceeded);
  EXPECT_THAT(found("", "name", "name"), ElementsAre("good", "last"));

  std::string good = (*created)[0].value();
  Result<std::vector<Result<std::string>>> updated =
      store_->update({Dictionary{{"_id", good}, {"rating", 3}}, Dictionary{{"_id", "unknown"}},
                      Dictionary{{"rating", 1}}, "text", Dictionary{{"_id", good}, {"name", nullptr}}});
  ASSERT_TRUE(updated);
  EXPECT_EQ((*updated)[0].value(), good);
  EXPECT_EQ(codeOf((*updated)[1].error()), StatusCode::itemNotFound);
  for (std::size_t bad : {2, 3, 4})
    EXPECT_EQ(codeOf((*updated)[bad].error()), StatusCode::invalidRequest) << bad;
  EXPECT_THAT(found("rating == 3"), ElementsAre("good"));

  Result<std::vector<Result<Dictionary>>> removed = store_->remove({good, good, "unknown"});
  ASSERT_TRUE(removed);
  EXPECT_EQ(*(*removed)[0]->find("name"), Value("good"));
  EXPECT_EQ(codeOf((*removed)[1].error()), StatusCode::itemNotFound);
  EXPECT_EQ(codeOf((*removed)[2].error()), StatusCode::itemNotFound);
  EXPECT_EQ(store_->count().value(), 1);
}

TEST_F(AssetStoreTest, TakesNoDocumentThatNobodyCouldRead) {
  auto created = store_->create(std::vector<std::string_view>{
      R"({"name":"good","zero":0E75,"tiny":-1e-999,"long":0.10000000000000000000000000001})",
      R"({"name":"a\udc80"})", R"({"name":"b","custom":{"\udc80":1}})", R"({"name":"c","x":9e308})"});
  ASSERT_TRUE(created);
  for (std::size_t bad : {1, 2, 3}) EXPECT_EQ(codeOf((*created)[bad].error()), StatusCode::invalidRequest);
  EXPECT_THAT((*created)[1].error().message, HasSubstr("UTF-8"));
  EXPECT_THAT((*created)[3].error().message, HasSubstr("too large"));
  EXPECT_THAT(found("zero == 0 AND tiny == 0 AND long == 0.1"), ElementsAre("good"));

  auto cut = store_->create(std::vector<std::string_view>{
      R"({"name":"bad","x":tru})", R"({"_id":7 , "name":"first","n":12345678901234567890123})",
      "{\n \"name\": \"last\", \"n\": 1.50,\r\n \"_id\": {\"a\": [\"}\"]} }",
      R"({ "name":"x","n":{ },"_i\u0064":1})"});
  ASSERT_TRUE(cut);
  EXPECT_EQ(codeOf((*cut)[0].error()), StatusCode::invalidRequest);
  std::vector<std::string> rests = {R"("name":"first","n":12345678901234567890123})",
                                    R"("name":"last","n":1.50})", R"("name":"x","n":{ }})"};
  for (std::size_t i = 1; i <= 3; ++i)
    EXPECT_EQ(store_->document(*(*cut)[i]).value(), "{\"_id\":\"" + *(*cut)[i] + "\"," + rests[i - 1]);

  std::string keys = "{\"name\":\"many\"";
  for (int i = 0; i < 200'000; ++i) keys += ",\"k" + std::to_string(i) + "\":0";
  auto start = std::chrono::steady_clock::now();
  EXPECT_TRUE(store_->create(std::vector<std::string_view>{keys + "}", keys + ",\"k9\":1}"}).value()[1]);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
  EXPECT_THAT(found("k9 == 1"), ElementsAre("many"));

  // Two keys of one digest.
  create({R"({"name":"digests","jAFYbd":1,"LOMPhMGL":2})"});
  EXPECT_THAT(found("jAFYbd == 1 AND LOMPhMGL == 2"), ElementsAre("digests"));
}

TEST_F(AssetStoreTest, MendsAndRemovesDocumentsThatAFormerVersionDamaged) {
  std::vector<std::string> ids =
      create({R"({"name":"half"})", R"({"name":"garbage"})", R"({"name":"whole"})"});
  Database database = Database::open(file(), Database::Mode::existing).value();
  ASSERT_TRUE(
      database.run("UPDATE assets SET document = CAST(replace(document, 'half', 'half' || x'edb280') AS "
                   "TEXT) WHERE id = '" +
                   ids[0] + "'"));
  ASSERT_TRUE(database.run("UPDATE assets SET document = '{' WHERE id = '" + ids[1] + "'"));
  EXPECT_THAT(found("_id IN {'" + ids[0] + "', '" + ids[2] + "'}"), ElementsAre(::testing::_, "whole"));
  EXPECT_TRUE(parseJson(store_->document(ids[0]).value().value()));
  ASSERT_TRUE(
      store_->update({Dictionary{{"_id", ids[0]}, {"rating", 3}}, Dictionary{{"_id", ids[2]}}}).value()[0]);
  EXPECT_EQ(codeOf(store_->update({Dictionary{{"_id", ids[1]}}}).error()), StatusCode::databaseFailed);
  auto removed = store_->remove(ids);
  ASSERT_TRUE(removed);
  for (const auto& asset : *removed) EXPECT_TRUE(asset && asset->find("_id"));
  EXPECT_EQ(store_->count().value(), 0);
}

TEST_F(AssetStoreTest, MergesDictionariesAndReplacesTheRest) {
  std::string id =
      create({R"({"name":"a","tags":["x","y"],"custom":{"a":{"b":1,"c":2},"d":[1]},"n":{"k":1}})"})[0];
  Value change = fromJson(R"({"tags":["z"],"custom":{"a":{"b":9},"e":{"f":1}},"n":5,"_id":")" + id + "\"}");
  ASSERT_TRUE(store_->update({change}).value()[0]);
  EXPECT_EQ(
      fromJson(**store_->document(id)),
      fromJson(R"({"name":"a","tags":["z"],"custom":{"a":{"b":9,"c":2},"d":[1],"e":{"f":1}},"n":5,"_id":")" +
               id + "\"}"));
  EXPECT_THAT(found("custom.a.b == 9 AND tags CONTAINS 'z'"), ElementsAre("a"));
  EXPECT_THAT(found("tags CONTAINS 'x'"), IsEmpty());
}

TEST_F(AssetStoreTest, NarrowsByTextWithoutLosingMatches) {
  // A mark after the searched text changes its last character once the text is composed.
  create({R"({"name":"resume\u0301 of a"})", R"({"name":"plain","tags":["resume","Stra\u00dfe"]})"});
  EXPECT_THAT(found("name BEGINSWITH 'resume'"), ElementsAre("resume\u0301 of a"));
  EXPECT_THAT(found("name LIKE 'resume*'"), ElementsAre("resume\u0301 of a"));
  EXPECT_THAT(found("name CONTAINS 'RESUM\u00c9 OF'"), ElementsAre("resume\u0301 of a"));
  EXPECT_THAT(found("tags CONTAINS 'strasse'"), ElementsAre("plain"));
  EXPECT_THAT(found("tags CONTAINS 'strasse|nothing' AND tags CONTAINS 'resumee?'"), ElementsAre("plain"));
  EXPECT_THAT(found("name CONTAINS 'nothing' OR NOT name CONTAINS 'plain'"),
              ElementsAre("resume\u0301 of a"));
}

TEST_F(AssetStoreTest, OrdersTotallyAndPagesWithoutGaps) {
  std::vector<std::string> documents = {
      R"({"name":"Zebra","x":{"y":true}})", R"({"name":"apple","x":{"y":"B"}})",
      R"({"name":"Äpfel","x":{"y":0.5}})", R"({"name":"10","x":{"y":"a"}})", R"({"name":"none"})"};
  create(documents);
  EXPECT_THAT(found("", "name", "name"), ElementsAre("10", "apple", "none", "Zebra", "Äpfel"));
  EXPECT_THAT(found("", "name", "x.y"), ElementsAre("none", "Äpfel", "Zebra", "10", "apple"));
  EXPECT_THAT(found("", "name", "x.y", false), ElementsAre("apple", "10", "Zebra", "Äpfel", "none"));

  std::vector<std::string> many(53, R"({"name":"same","importdate":1,"type":2,"custom":1})");
  create(many);
  for (const std::string& query : {std::string("type == 2"), std::string("name CONTAINS 's.me'")}) {
    for (const std::string& sortField : {std::string(), std::string("type"), std::string("custom")}) {
      std::vector<std::string> ids;
      for (std::int64_t page = 0; page < 7; ++page) {
        SearchPage part = search({page, 10, query, sortField, true});
        EXPECT_EQ(part.total, 53);
        for (const std::string& document : part.documents)
          ids.push_back(*fromJson(document).find("_id")->ifString());
      }
      EXPECT_EQ(ids.size(), 53u) << query << sortField;
      EXPECT_TRUE(std::is_sorted(ids.begin(), ids.end(), std::less_equal<>())) << query << sortField;
    }
  }
  for (const char* query : {"type == 2", "custom == 1"}) {
    SearchPage beyond = search({std::int64_t{1} << 62, 1000, query, "", true});
    EXPECT_EQ(beyond.total, 53);
    EXPECT_THAT(beyond.documents, IsEmpty());
    EXPECT_EQ(search({0, 0, query, "", true}).total, 53);
  }
  EXPECT_EQ(codeOf(store_->search({-1, 10, "", "", true}).error()), StatusCode::invalidRequest);
  EXPECT_EQ(codeOf(store_->search({0, 10, "name ==", "", true}).error()), StatusCode::queryInvalid);
}

TEST_F(AssetStoreTest, AnswersQueriesOfAnySize) {
  std::vector<std::string> ids = create({R"({"name":"a","group":"g1"})", R"({"name":"b","group":"g2"})"});
  std::string groups, identifiers, mixed, nested = "group == 'g1'";
  for (int i = 0; i < 5000; ++i) {
    groups += "group == 'x" + std::to_string(i) + "' OR ";
    identifiers += "_id MATCHES '" + std::to_string(i) + "' OR ";
    mixed += "type == " + std::to_string(i) + " OR group < '" + std::to_string(i) + "' OR ";
  }
  for (int i = 0; i < 100; ++i) nested = "(type == 7 OR (" + nested + "))";
  EXPECT_THAT(found(groups + "group == 'g2'"), ElementsAre("b"));
  EXPECT_THAT(found(identifiers + "_id MATCHES '" + ids[0] + "'"), ElementsAre("a"));
  EXPECT_THAT(found(mixed + "group == 'g1'"), ElementsAre("a"));
  EXPECT_THAT(found(nested), ElementsAre("a"));
}

TEST_F(AssetStoreTest, GivesUpASearchAtItsTimeLimit) {
  std::string noise;
  for (std::minstd_rand random; noise.size() < 4'000;) noise += random() % 2 == 0 ? 'a' : 'b';
  Array documents;
  for (int i = 0; i < 1'000; ++i)
    documents.push_back(Dictionary{{"name", noise + std::to_string(i)},
                                   {"importdate", i},
                                   {"custom", Array{noise, noise, noise, noise}}});
  ASSERT_TRUE(store_->create(documents));
  std::string list = "{nil";
  for (int i = 0; i < 60'000; ++i) list += "," + std::to_string(i * 3);
  std::string words = "a";
  for (int i = 0; i < 100'000; ++i) words += ",a";
  auto answers = [&](const std::string& query, std::chrono::milliseconds limit) {
    auto start = std::chrono::steady_clock::now();
    Result<SearchPage> page = store_->search({0, 1, query, "", true, limit});
    EXPECT_LT(std::chrono::steady_clock::now() - start, limit + std::chrono::seconds(2))
        << query.substr(0, 50);
    EXPECT_TRUE(page || codeOf(page.error()) == StatusCode::timedOut) << page.error().message;
    return page.has_value();
  };
  std::chrono::milliseconds shortly(300), patiently(4'000);
  EXPECT_FALSE(answers("name CONTAINS 'a[ab]{1000}[cd]'", shortly));
  EXPECT_FALSE(answers("custom CONTAINS[d] 'a[ab]{1000}[cd]'", shortly));
  // Many operands, one of which is dear and of many parts.
  std::string parts = "(b==c", operands;
  for (int i = 0; i < 20'000; ++i) parts += "||a=1";
  for (int i = 0; i < 15'000; ++i) operands += "&&_id=1";
  EXPECT_TRUE(answers(parts + ")" + operands, patiently));
  EXPECT_TRUE(answers("name LIKE[d] '*a*a*a*a*a*c'", patiently));
  EXPECT_TRUE(answers("importdate IN[c] " + list + "}", patiently));
  EXPECT_TRUE(answers("name CONTAINS '" + words + "'", patiently));
}

TEST_F(AssetStoreTest, FindsWhatLiesInAFolder) {
  create({R"({"name":"1","importfrompath":"/Volumes/Disk/Cam A/x.mov"})",
          R"({"name":"2","importfrompath":"/volumes/disk/CAM A/b/y.mov"})",
          R"({"name":"3","importfrompath":"/Volumes/Disk/Cam A2/Cam A"})",
          R"({"name":"4","importfrompath":"/Other/Volumes/Disk/Cam A/"})",
          R"({"name":"5","importfrompath":"Cam A/Volumes//Disk/x"})"});
  auto in = [&](const std::string& part) { return found("importfrompath CONTAINS '" + part + "'"); };
  EXPECT_THAT(in("/Cam A/"), UnorderedElementsAre("1", "2", "4"));
  EXPECT_THAT(in("/Cam A"), UnorderedElementsAre("1", "2", "3", "4"));
  EXPECT_THAT(in("Cam A/"), UnorderedElementsAre("1", "2", "4", "5"));
  EXPECT_THAT(in("/Volumes/Disk/Cam A/"), UnorderedElementsAre("1", "2", "4"));
  EXPECT_THAT(in("/Disk/Cam A/b"), UnorderedElementsAre("2"));
  EXPECT_THAT(in("//"), UnorderedElementsAre("5"));
}

TEST_F(AssetStoreTest, FindsWhatIsTooLongToBeIndexed) {
  const std::string longText(20'000, 'x');
  create({R"({"name":"long","tags":["end )" + longText + R"("],"importfrompath":"/a/)" + longText + "\"}",
          R"({"name":"short","tags":["end"],"importfrompath":"/a/b"})"});
  EXPECT_THAT(found("tags CONTAINS 'end x+$'"), ElementsAre("long"));
  EXPECT_THAT(found("NOT tags CONTAINS 'xxx'"), ElementsAre("short"));
  EXPECT_THAT(found("importfrompath BEGINSWITH '/a/x' OR importfrompath == '/a/b'"),
              UnorderedElementsAre("long", "short"));
  EXPECT_THAT(found("importfrompath != '/a/b'"), ElementsAre("long"));
  EXPECT_THAT(found("importfrompath !=[c] '/A/B'"), ElementsAre("long"));
  EXPECT_FALSE(store_->create({fromJson(R"({"name":")" + longText + "\"}")}).value()[0]);
}

TEST_F(AssetStoreTest, SearchesAreConsistentWhileOthersWrite) {
  std::atomic<bool> done = false;
  std::thread writer([&] {
    for (int i = 0; i < 60; ++i)
      create({R"({"name":"pair","importdate":1})", R"({"name":"pair","importdate":2})"});
    done = true;
  });
  std::vector<std::thread> readers;
  for (int i = 0; i < 6; ++i)
    readers.emplace_back([&] {
      while (!done) {
        SearchPage page = search({0, 1000, "name CONTAINS 'pair'", "importdate", true});
        EXPECT_EQ(page.total % 2, 0);
        EXPECT_EQ(page.documents.size(), static_cast<std::size_t>(page.total));
      }
    });
  writer.join();
  for (std::thread& reader : readers) reader.join();
  EXPECT_EQ(store_->count().value(), 120);
}

}  // namespace
}  // namespace vornex::server
