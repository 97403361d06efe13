#include <fcntl.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <thread>

#include "foundation/Files.h"
#include "server/StoreTest.h"

namespace vornex::server {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

class StoreDurabilityTest : public StoreTest {
 protected:
  /// Closes the store, changes its file and expects that opening fails and leaves the file as it is.
  void expectRefused(const std::string& bytes, const std::string& message) {
    store_.reset();
    ASSERT_TRUE(writeFileAtomically(file(), bytes));
    Result<std::unique_ptr<AssetStore>> opened = openSQLiteAssetStore(folder());
    ASSERT_FALSE(opened);
    EXPECT_EQ(codeOf(opened.error()), StatusCode::databaseFailed);
    EXPECT_THAT(opened.error().message, HasSubstr(message));
    EXPECT_EQ(readFile(file()).value(), bytes);
  }

  void runSql(const std::string& sql) {
    sqlite3* database = nullptr;
    ASSERT_EQ(sqlite3_open(file().c_str(), &database), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(database, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(database);
  }
};

TEST_F(StoreDurabilityTest, WhatWasAcknowledgedSurvivesAKill) {
  store_.reset();
  for (int round = 0; round < 5; ++round) {
    int acknowledged[2];
    ASSERT_EQ(::pipe(acknowledged), 0);
    pid_t child = ::fork();
    if (child == 0) {
      auto opened = openSQLiteAssetStore(folder());
      for (int i = 0; opened && i < 100'000; ++i) {
        auto created = (*opened)->create({Dictionary{{"name", "clip"}, {"tags", Array{"beach"}}}});
        if (!created || ::write(acknowledged[1], (*created)[0]->data(), 24) != 24) break;
      }
      ::_exit(1);
    }
    ::close(acknowledged[1]);
    std::this_thread::sleep_for(std::chrono::milliseconds(60 + 37 * round));
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    reopen();
    std::string id(24, '\0');
    std::int64_t count = 0;
    for (; ::read(acknowledged[0], id.data(), id.size()) == 24; ++count)
      EXPECT_TRUE(store_->document(id).value().has_value()) << id;
    ::close(acknowledged[0]);
    EXPECT_GT(count, 0);
    EXPECT_TRUE(store_->checkIntegrity());
    EXPECT_EQ(search({0, 1, "tags CONTAINS 'each'", "", true}).total, store_->count().value());
    store_.reset();
  }
}

TEST_F(StoreDurabilityTest, RefusesWhatItCannotReadAndLeavesIt) {
  create(
      std::vector<std::string>(200, R"({"name":"a","filler":"0123456789012345678901234567890123456789"})"));
  store_.reset();
  std::string sound = readFile(file()).value();
  std::string torn = sound;
  torn.replace(20, 200, std::string(200, '\x5a'));
  expectRefused(torn, "");
  expectRefused(sound.substr(0, sound.size() / 2), "malformed");
  expectRefused(std::string(100'000, 'x'), "not a database");

  ASSERT_TRUE(writeFileAtomically(file(), sound));
  runSql("PRAGMA user_version = 99");
  expectRefused(readFile(file()).value(), "newer version (99)");
  std::filesystem::remove(file());
  runSql("CREATE TABLE other(x)");
  expectRefused(readFile(file()).value(), "something else");

  ASSERT_TRUE(writeFileAtomically(file(), sound));
  reopen();
  EXPECT_EQ(store_->count().value(), 200);
}

TEST_F(StoreDurabilityTest, NoticesDamageInsideTheDatabase) {
  create(std::vector<std::string>(200, R"({"name":"a","trash":false})"));
  EXPECT_TRUE(store_->checkIntegrity());
  store_.reset();
  runSql("INSERT INTO asset_text(asset_text) VALUES ('delete-all')");
  reopen();
  EXPECT_FALSE(store_->checkIntegrity());
  store_.reset();
  runSql(
      "INSERT INTO asset_text(asset_text) VALUES ('rebuild'); UPDATE assets SET document = '{\"name\":' "
      "WHERE n = 7");
  reopen();
  Result<SearchPage> page = store_->search({0, 10, "custom == 1", "", true});
  ASSERT_FALSE(page);
  EXPECT_EQ(codeOf(page.error()), StatusCode::databaseFailed);
}

TEST_F(StoreDurabilityTest, AFailedWriteStoresNothingAndLeavesTheStoreUsable) {
  create({R"({"name":"before"})"});
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit old{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &old), 0);
  rlimit tight{400'000, old.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &tight), 0);
  Array many(2000, Dictionary{{"name", "too much"}, {"filler", std::string(1000, 'x')}});
  Result<std::vector<Result<std::string>>> created = store_->create(many);
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &old), 0);
  ASSERT_FALSE(created);
  EXPECT_EQ(codeOf(created.error()), StatusCode::databaseFailed);
  create({R"({"name":"later"})"});
  EXPECT_THAT(found("", "name", "name"), ElementsAre("before", "later"));
  EXPECT_TRUE(store_->checkIntegrity());
}

TEST_F(StoreDurabilityTest, SnapshotsAreConsistentAndOpenAsStores) {
  create(std::vector<std::string>(300, R"({"name":"one"})"));
  std::string copy = temporary_ / "copy";
  EXPECT_EQ(codeOf(store_->snapshot(copy).error()), StatusCode::invalidRequest);
  ASSERT_TRUE(createDirectories(copy));
  std::thread writer([&] {
    for (int i = 0; i < 20; ++i) create({R"({"name":"two"})", R"({"name":"two"})"});
  });
  Result<void> copied = store_->snapshot(copy);
  writer.join();
  ASSERT_TRUE(copied) << copied.error().message;
  EXPECT_EQ(codeOf(store_->snapshot(copy).error()), StatusCode::invalidRequest);
  Result<std::unique_ptr<AssetStore>> opened = openSQLiteAssetStore(copy);
  ASSERT_TRUE(opened) << opened.error().message;
  EXPECT_TRUE((*opened)->checkIntegrity());
  EXPECT_EQ((*opened)->search({0, 1, "name CONTAINS 'one'", "", true})->total, 300);
  EXPECT_EQ((*opened)->count().value() % 2, 0);
}

}  // namespace
}  // namespace vornex::server
