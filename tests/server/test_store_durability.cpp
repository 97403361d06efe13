#include <fcntl.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vornex/Log.h>

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
    std::string id(24, '\0');
    ASSERT_EQ(::read(acknowledged[0], id.data(), id.size()), 24);
    std::this_thread::sleep_for(std::chrono::milliseconds(60 + 37 * round));
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    reopen();
    do EXPECT_TRUE(store_->document(id).value().has_value()) << id;
    while (::read(acknowledged[0], id.data(), id.size()) == 24);
    ::close(acknowledged[0]);
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
  runSql("UPDATE assets SET document = '{\"name\":' WHERE n = 7");
  reopen();
  Result<SearchPage> page = store_->search({0, 10, "custom == 1", "", true});
  ASSERT_FALSE(page);
  EXPECT_EQ(codeOf(page.error()), StatusCode::databaseFailed);
  store_.reset();
  std::string bytes = readFile(file()).value();
  bytes.replace(bytes.size() - 5000, 4000, std::string(4000, '\x5a'));
  ASSERT_TRUE(writeFileAtomically(file(), bytes));
  reopen();
  EXPECT_FALSE(store_->checkIntegrity());
}

// Whatever becomes of the index, answers stay the same, and the log tells when it had to be made anew.
TEST_F(StoreDurabilityTest, TheIndexIsMadeAnewWhenItIsMissingDamagedOrOld) {
  std::vector<std::string> names, lines;
  for (int i = 0; i < 300; ++i) names.push_back(R"({"name":"clip )" + std::to_string(i) + "\"}");
  create(names);
  setLogSink([&](LogLevel, const std::string& line) { lines.push_back(line); });
  auto expectSame = [&](const std::string& reason) {
    lines.clear();
    reopen();
    EXPECT_EQ(lines.size(), reason.empty() ? 0u : 1u);
    for (const std::string& line : lines) EXPECT_THAT(line, AllOf(HasSubstr("made anew"), HasSubstr(reason)));
    EXPECT_THAT(found("name CONTAINS 'clip 29' AND NOT name CONTAINS 'clip 29 '").size(), 11u);
    EXPECT_EQ(search({0, 1, "", "name", true}).total, 300);
    store_.reset();
  };
  expectSame("");
  auto files = [&](const std::string& start) {
    std::vector<std::string> all;
    for (const auto& entry : std::filesystem::directory_iterator(folder() + "/index"))
      if (entry.path().filename().string().starts_with(start)) all.push_back(entry.path());
    return all;
  };
  for (const std::string& path : files("segment-")) {
    std::string bytes = readFile(path).value();
    bytes[bytes.size() / 2] ^= 1;
    ASSERT_TRUE(writeFileAtomically(path, bytes));
  }
  expectSame("is damaged");
  for (const std::string& path : files("segment-")) std::filesystem::resize_file(path, 1000);
  expectSame("cut off");
  for (const std::string& path : files("checkpoint-")) std::filesystem::remove(path);
  expectSame("cannot read");
  expectSame("");

  // A database from before the checkpoint, as a restored backup is.
  std::string old = readFile(file()).value();
  reopen();
  create({R"({"name":"clip 290 b"})"});
  store_.reset();
  ASSERT_TRUE(writeFileAtomically(file(), old));
  expectSame("cannot read");
  setLogSink(nullptr);
}

TEST_F(StoreDurabilityTest, BringsTheFirstFormatUpToDate) {
  store_.reset();
  std::filesystem::remove_all(folder());
  ASSERT_TRUE(createDirectories(folder()));
  runSql(
      "CREATE TABLE assets(n INTEGER PRIMARY KEY, id NOT NULL UNIQUE, name, document TEXT NOT NULL);"
      "CREATE VIRTUAL TABLE asset_text USING fts5(name, content='assets', content_rowid='n');"
      "CREATE TRIGGER assets_inserted AFTER INSERT ON assets BEGIN SELECT 1; END;"
      "CREATE TRIGGER assets_deleted AFTER DELETE ON assets BEGIN SELECT 1; END;"
      "CREATE TRIGGER assets_updated AFTER UPDATE ON assets BEGIN SELECT 1; END;"
      "INSERT INTO assets VALUES (7, 'abc', 'x', '{\"_id\":\"abc\",\"name\":\"X\"}');"
      "PRAGMA application_id = 0x56524e58; PRAGMA user_version = 1");
  reopen();
  create({R"({"name":"later"})"});
  EXPECT_THAT(found("", "name", "name"), ElementsAre("later", "X"));
  EXPECT_TRUE(store_->checkIntegrity());
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
