#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vornex/TQConnection.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQLibraryManager.h>
#include <vornex/VornexSDK.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <map>

#include "core/DatabaseFolder.h"
#include "core/StorageLayout.h"
#include "foundation/FileLock.h"
#include "foundation/Files.h"
#include "foundation/PropertyList.h"
#include "library/DatabaseCopies.h"
#include "sdk/FakeService.h"
#include "sdk/SdkFixture.h"

using namespace vornex;
namespace fs = std::filesystem;

namespace {

std::atomic<int> stepsLeft = -1;

/// Before each change of the file system: the process ends when its steps are used up.
void step() {
  if (stepsLeft > 0 && --stepsLeft == 0) ::_exit(77);
}

template <typename Function>
Function* next(const char* name) {
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

}  // namespace

namespace {

/// Whether an open file is not removed but gets another name, as on a network file system.
std::atomic<bool> keepsOpenFiles = false;

bool isOpenHere(int folder, const char* path) {
  struct stat there {};
  if (::fstatat(folder, path, &there, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISREG(there.st_mode)) return false;
  for (int file = 0; file < 1024; ++file) {
    struct stat open {};
    if (::fstat(file, &open) == 0 && open.st_dev == there.st_dev && open.st_ino == there.st_ino) return true;
  }
  return false;
}

bool renamesInstead(int folder, const char* path) {
  if (!keepsOpenFiles || !isOpenHere(folder, path)) return false;
  return ::renameat(folder, path, folder, (std::string(path) + ".kept").c_str()) == 0;
}

}  // namespace

// What the library calls instead of the system's own.
extern "C" {
int rename(const char* from, const char* to) noexcept {
  step();
  return next<int(const char*, const char*)>("rename")(from, to);
}
int renameat2(int fromFolder, const char* from, int toFolder, const char* to, unsigned flags) noexcept {
  step();
  return next<int(int, const char*, int, const char*, unsigned)>("renameat2")(fromFolder, from, toFolder, to,
                                                                              flags);
}
int mkdir(const char* path, mode_t mode) noexcept {
  step();
  return next<int(const char*, mode_t)>("mkdir")(path, mode);
}
int unlinkat(int folder, const char* path, int flags) noexcept {
  step();
  if (renamesInstead(folder, path)) return 0;
  return next<int(int, const char*, int)>("unlinkat")(folder, path, flags);
}
int unlink(const char* path) noexcept {
  step();
  if (renamesInstead(AT_FDCWD, path)) return 0;
  return next<int(const char*)>("unlink")(path);
}
int remove(const char* path) noexcept {
  step();
  if (renamesInstead(AT_FDCWD, path)) return 0;
  return next<int(const char*)>("remove")(path);
}
int fsync(int file) {
  step();
  return next<int(int)>("fsync")(file);
}
}

namespace {

class DatabaseCopiesTest : public vornex::testing::SdkTest {
 protected:
  using Content = std::map<std::string, std::string>;

  DatabaseCopiesTest() {
    library_ = TQLibrary::libraryWithName("Films", "", kLibraryTypeLocal, false, true, true, folder / "Films",
                                          "", std::make_shared<TQConnection>());
    library_->dbName = "D";
    fs::create_directories(folder / "Films");
    EXPECT_TRUE(writePropertyListFile(folder / "Films/library.plist", Dictionary{{"dbname", "D"}}));
  }

  static Content version(const std::string& number) {
    return {{"library.sqlite", "database " + number}, {"library.sqlite-wal", "log " + number}};
  }

  static void write(const std::string& path, const Content& content) {
    fs::remove_all(path);
    fs::create_directories(path);
    for (const auto& [name, bytes] : content) std::ofstream(path + "/" + name) << bytes;
  }

  static Content contentOf(const std::string& path) {
    Content content;
    if (isDirectory(path))
      for (const auto& entry : fs::directory_iterator(path))
        if (const std::string name = entry.path().filename();
            name != "generation" && name != "former" && !isUnfinishedWrite(name))
          content[name] = readFile(entry.path()).value_or("unreadable");
    return content;
  }

  static std::vector<std::string> names(const std::string& path) {
    std::vector<std::string> result;
    for (const auto& entry : fs::directory_iterator(path)) result.push_back(entry.path().filename());
    std::sort(result.begin(), result.end());
    return result;
  }

  /// Runs the work in a process that is killed before each of its steps in turn; `prepare` goes before,
  /// `check` after each.
  void killAtEveryStep(const std::function<void()>& prepare, const std::function<Result<void>()>& work,
                       const std::function<void()>& check) {
    for (int kill = 1;; ++kill) {
      SCOPED_TRACE("killed before step " + std::to_string(kill));
      prepare();
      const pid_t process = ::fork();
      if (process == 0) {
        stepsLeft = kill;
        ::_exit(work() ? 0 : 1);
      }
      int status = 0;
      ASSERT_EQ(::waitpid(process, &status, 0), process);
      ASSERT_TRUE(WIFEXITED(status));
      check();
      if (HasFatalFailure() || WEXITSTATUS(status) != 77) {
        EXPECT_EQ(WEXITSTATUS(status), 0);
        EXPECT_GT(kill, 5) << "the steps are not counted";
        return;
      }
    }
  }

  LibraryPtr library_;
  const std::string working_ = layout::databaseFolder("D");
  const std::string packages_ = folder / "Films/Database";
  const std::string packaged_ = packages_ + "/D";
};

TEST_F(DatabaseCopiesTest, ABackupThatIsKilledLeavesAWholeCopyAndTheNextOneMendsIt) {
  killAtEveryStep(
      [&] {
        fs::remove_all(packages_);
        write(working_, version("2"));
        write(packaged_, version("1"));
      },
      [&] { return DatabaseCopies(*library_).backUp(false, {}); },
      [&] {
        const Content found = contentOf(
            itemExists(packaged_) || !itemExists(packaged_ + "_origin") ? packaged_ : packaged_ + "_origin");
        ASSERT_TRUE(found == version("1") || found == version("2"));
        EXPECT_EQ(contentOf(working_), version("2"));
        EXPECT_TRUE(DatabaseCopies(*library_).hasPackaged());
        ASSERT_TRUE(DatabaseCopies(*library_).backUp(false, {}));
        EXPECT_EQ(contentOf(packaged_), version("2"));
        EXPECT_EQ(names(packages_), std::vector<std::string>{"D"});
      });
}

TEST_F(DatabaseCopiesTest, ARestoreThatIsKilledLeavesNoHalfDatabase) {
  write(packaged_ + "_origin", version("1"));
  killAtEveryStep([&] { fs::remove_all(layout::databaseRoot()); },
                  [&] { return DatabaseCopies(*library_).restore({}); },
                  [&] {
                    EXPECT_TRUE(!itemExists(working_) || contentOf(working_) == version("1"));
                    ASSERT_TRUE(DatabaseCopies(*library_).restore({}));
                    EXPECT_EQ(contentOf(working_), version("1"));
                  });
  EXPECT_EQ(names(layout::databaseRoot()), (std::vector<std::string>{".D.lock", "D"}));
  EXPECT_EQ(contentOf(packaged_ + "_origin"), version("1")) << "the package is only read";

  // What is there is kept.
  write(packaged_, version("3"));
  ASSERT_TRUE(DatabaseCopies(*library_).restore({}));
  EXPECT_EQ(contentOf(working_), version("1"));
}

TEST_F(DatabaseCopiesTest, AReplacementThatIsKilledLeavesAWorkingDatabase) {
  // Without a service the copy is staged, and the exchange, which is the service's, is made here.
  auto replace = [&] {
    (void)DatabaseCopies(*library_).replace({});
    return exchangeStagedDatabase("D");
  };
  killAtEveryStep(
      [&] {
        write(working_, version("2"));
        write(packaged_, version("1"));
        fs::permissions(packaged_, fs::perms::owner_read | fs::perms::owner_exec);
      },
      replace,
      [&] {
        const Content found = contentOf(working_);
        ASSERT_TRUE(found == version("1") || found == version("2"));
        ASSERT_TRUE(replace());
        EXPECT_EQ(contentOf(working_), version("1"));
        EXPECT_EQ(names(layout::databaseRoot()), (std::vector<std::string>{".D.lock", "D", "D_restore"}));
      });
  EXPECT_NE(fs::status(working_).permissions() & fs::perms::owner_write, fs::perms::none);
}

TEST_F(DatabaseCopiesTest, AnImportThatIsKilledKeepsBothDatabases) {
  auto holdsFormer = [this](const std::string& name) {
    return contentOf(layout::databaseRoot() + "/" + name) == version("2");
  };
  killAtEveryStep(
      [&] {
        fs::remove_all(layout::databaseRoot());
        write(working_, version("2"));
        write(packaged_, version("1"));
        ASSERT_TRUE(writeFileAtomically(packaged_ + "/generation", "1 elsewhere"));
      },
      [&] {
        (void)DatabaseCopies(*library_).bringIn(false, [] {}, {});
        auto exchanged = exchangeStagedDatabase("D");
        sweepDatabaseRoot();
        return exchanged;
      },
      [&] {
        sweepDatabaseRoot();
        const std::vector<std::string> left = names(layout::databaseRoot());
        EXPECT_EQ(std::count_if(left.begin(), left.end(), holdsFormer), 1);
        EXPECT_TRUE(contentOf(working_) == version("1") || contentOf(working_) == version("2"));
        EXPECT_FALSE(itemExists(working_ + "_restore"));
      });
}

TEST_F(DatabaseCopiesTest, ARemovalThatIsKilledLeavesNoHalfDatabase) {
  killAtEveryStep([&] { write(working_, version("2")); }, [] { return removeDatabaseFolder("D"); },
                  [&] {
                    ASSERT_TRUE(!itemExists(working_) || contentOf(working_) == version("2"));
                    sweepDatabaseRoot();
                    ASSERT_TRUE(removeDatabaseFolder("D"));
                    EXPECT_TRUE(names(layout::databaseRoot()).empty());
                  });
}

TEST_F(DatabaseCopiesTest, NothingIsCopiedOrRemovedOutsideTheDatabaseFolders) {
  for (const char* name : {"../D", "a/b", "D_restore", "D_former_1"}) {
    library_->dbName = name;
    ASSERT_TRUE(
        writePropertyListFile(folder / "Films/library.plist", Dictionary{{"dbname", library_->dbName}}));
    const std::string working = layout::databaseRoot() + "/" + name;
    const std::string packaged = packages_ + "/" + name;
    write(working, version("2"));
    EXPECT_FALSE(DatabaseCopies(*library_).backUp(false, {})) << name;
    EXPECT_FALSE(removeDatabaseFolder(name)) << name;
    EXPECT_EQ(contentOf(working), version("2")) << name;
    fs::remove_all(working);
    write(packaged, version("1"));
    EXPECT_FALSE(DatabaseCopies(*library_).restore({})) << name;
    EXPECT_FALSE(isDatabaseFolder(working)) << name;
    fs::remove_all(packages_);
  }
}

TEST_F(DatabaseCopiesTest, OnlyTheLibrarysOwnPackageIsBackedUpInto) {
  write(working_, version("2"));
  auto lock = FileLock::acquire(working_);
  ASSERT_TRUE(lock);
  auto waiting = std::async(std::launch::async, [&] { return DatabaseCopies(*library_).backUp(false, {}); });
  while (!itemExists(packages_) &&
         waiting.wait_for(std::chrono::milliseconds(1)) == std::future_status::timeout)
    ;
  ASSERT_TRUE(writePropertyListFile(folder / "Films/library.plist", Dictionary{{"dbname", "E"}}));
  lock = posixFailure(0, "released");
  EXPECT_FALSE(waiting.get());
  EXPECT_FALSE(itemExists(packaged_)) << "the folder became another library's during the wait";
  EXPECT_FALSE(DatabaseCopies(*library_).backUp(false, {}));
  fs::remove_all(folder / "Films");
  EXPECT_FALSE(DatabaseCopies(*library_).backUp(false, {}));
  EXPECT_FALSE(itemExists(folder / "Films"));
}

/// Creations in processes of their own; the test's has no threads but the service's.
class CreationTest : public DatabaseCopiesTest {
 protected:
  void SetUp() override {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "the thread sanitizer lets no forked process start threads";
#endif
  }

  CreationTest() {
    service_.on("addLibrary", [](const Value& params) {
      write(layout::databaseFolder(*params.find("library")->find("dbname")->ifString()), version("1"));
      return Dictionary{{"result", Dictionary()}};
    });
    service_.on("removeLibraryWithDBName", [](const Value& params) {
      fs::remove_all(layout::databaseFolder(*params.find("dbname")->ifString()));
      return Dictionary{{"result", Dictionary()}};
    });
  }

  /// Ends with 0, or the error's last two digits, or 77 when it is killed.
  static pid_t start(const std::function<void(TQLibraryManager&, Completion)>& operation) {
    const pid_t process = ::fork();
    if (process != 0) return process;
    VornexSDK::sharedInstance().initializeWAS();
    vornex::testing::Outcome outcome;
    operation(TQLibraryManager::sharedManager(), outcome.completion());
    const bool ended = outcome.await();
    ::_exit(!ended ? 78 : outcome.ok ? 0 : static_cast<int>(outcome.code() % 100));
  }

  pid_t startCreation(int kill = -1) const {
    return start([&](TQLibraryManager& manager, Completion completion) {
      auto connection = TQConnection::connectionWithAddress("localhost", 0, nullptr);
      LibraryPtr library = TQLibrary::libraryWithName("Films", "", kLibraryTypeLocal, false, true, true,
                                                      places_ + "/Films", "", connection);
      stepsLeft = kill;
      manager.createLibrary(library, std::move(completion));
    });
  }

  static pid_t startDeletion(bool everything) {
    return start([&](TQLibraryManager& manager, Completion completion) {
      std::promise<std::vector<LibraryPtr>> loaded;
      manager.loadAllLibraries([&](std::vector<LibraryPtr> all) { loaded.set_value(std::move(all)); });
      keepsOpenFiles = true;
      manager.deleteLibrary(loaded.get_future().get().at(0), everything, nullptr, std::move(completion));
    });
  }

  static bool isListEmpty() {
    const Dictionary list = readDictionaryFile(layout::localLibraryPlist()).value_or(Dictionary());
    return !list.find("library") || list.find("library")->ifArray()->empty();
  }

  static int statusOf(pid_t process) {
    int status = 0;
    ::waitpid(process, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  /// One library, whole, and nothing beside it.
  void expectOneLibrary() const {
    const Dictionary list = readDictionaryFile(layout::localLibraryPlist()).value_or(Dictionary());
    ASSERT_TRUE(list.find("library") && list.find("library")->ifArray()->size() == 1);
    const std::string dbName = *list.find("library")->ifArray()->at(0).find("dbname")->ifString();
    EXPECT_EQ(*readDictionaryFile(places_ + "/Films/library.plist")->find("dbname"), Value(dbName));
    EXPECT_EQ(names(layout::databaseRoot()), std::vector<std::string>{dbName});
    EXPECT_EQ(names(places_), std::vector<std::string>{"Films"});
  }

  void startAnew() const {
    for (const std::string& path : {places_, layout::databaseRoot(), layout::localLibraryPlist()})
      fs::remove_all(path);
    fs::create_directories(places_);
  }

  vornex::testing::FakeService service_;
  const std::string places_ = folder / "places";
};

TEST_F(CreationTest, ACreationThatIsKilledCanBeRepeated) {
  int status = 77;
  for (int kill = 1; status == 77; ++kill) {
    SCOPED_TRACE("killed before step " + std::to_string(kill));
    startAnew();
    status = statusOf(startCreation(kill));
    const int again = statusOf(startCreation());
    EXPECT_TRUE(again == 0 || again == 2) << again;
    expectOneLibrary();
    if (HasFailure()) return;
    EXPECT_TRUE(status == 77 || kill > 30) << "the steps are not counted";
  }
  EXPECT_EQ(status, 0);
}

TEST_F(CreationTest, OfTwoCreationsAtOnePlaceOneSucceeds) {
  for (int kill = 1; kill <= 60; kill += 7) {
    startAnew();
    statusOf(startCreation(kill));
    const pid_t first = startCreation();
    const pid_t second = startCreation();
    const std::pair outcomes(statusOf(first), statusOf(second));
    EXPECT_TRUE(outcomes.first == 0 || outcomes.first == 2) << outcomes.first;
    EXPECT_TRUE(outcomes.second == 0 || outcomes.second == 2) << outcomes.second;
    EXPECT_FALSE(outcomes.first == 0 && outcomes.second == 0);
    expectOneLibrary();
  }
}

TEST_F(CreationTest, ALibraryWhoseCreationWasKilledKeepsItsDatabaseWhenItLeavesTheList) {
  int killed = 0;
  int lastUnlisted = 1;
  for (const bool comesBack : {false, true}) {
    int status = 77;
    for (int kill = lastUnlisted; status == 77; ++kill) {
      startAnew();
      status = statusOf(startCreation(kill));
      if (isListEmpty()) {
        lastUnlisted = kill;
        continue;
      }
      SCOPED_TRACE("killed before step " + std::to_string(kill));
      ++killed;
      const std::string database = layout::databaseRoot() + "/" + names(layout::databaseRoot()).at(0);
      fs::rename(places_ + "/Films", folder / "Moved");
      ASSERT_EQ(statusOf(startDeletion(false)), 0);
      if (comesBack) fs::rename(folder / "Moved", places_ + "/Films");
      EXPECT_EQ(statusOf(startCreation()), comesBack ? 2 : 0);
      EXPECT_EQ(contentOf(database), version("1"));
      fs::remove_all(folder / "Moved");
    }
  }
  // Each round ends with a creation that was not killed.
  EXPECT_GT(killed, 2) << "no creation was killed after it had saved the list";
}

TEST_F(CreationTest, EverythingIsDeletedThoughAnOpenFileKeepsAName) {
  startAnew();
  ASSERT_EQ(statusOf(startCreation()), 0);
  EXPECT_EQ(statusOf(startDeletion(true)), 0);
  EXPECT_TRUE(fs::is_empty(places_));
  EXPECT_TRUE(isListEmpty());
}

}  // namespace
