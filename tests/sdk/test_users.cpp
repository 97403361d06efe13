#include <sys/stat.h>
#include <unistd.h>
#include <vornex/TQConnection.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQLibraryManager.h>
#include <vornex/TQUser.h>
#include <vornex/TQUserManager.h>
#include <vornex/TQVornexUtil.h>
#include <vornex/VornexSDK.h>

#include <atomic>
#include <thread>

#include "core/StorageLayout.h"
#include "foundation/Files.h"
#include "foundation/PropertyList.h"
#include "sdk/FakeService.h"
#include "sdk/SdkFixture.h"
#include "service/TQVornexService.h"

using namespace vornex;
using vornex::testing::Outcome;

namespace {

class UsersTest : public vornex::testing::SdkTest {
 protected:
  // The library manager makes the preference folder.
  UsersTest() { TQLibraryManager::sharedManager(); }

  std::vector<UserPtr> load() {
    std::promise<std::vector<UserPtr>> promise;
    manager.loadUsers([&](std::vector<UserPtr> users) { promise.set_value(std::move(users)); });
    return promise.get_future().get();
  }

  Outcome create(const char* id, const char* name, std::int64_t type) {
    Outcome outcome;
    OptionalString given = id ? OptionalString(id) : std::nullopt;
    manager.createUser(TQUser::userWithID(given, name, type, "abc"), outcome.completion());
    outcome.await();
    return outcome;
  }

  TQUserManager& manager = TQUserManager::sharedManager();
};

TEST_F(UsersTest, UsersAreKeptHashedSortedAndWithoutTheOwner) {
  EXPECT_TRUE(load().empty());
  EXPECT_EQ(create(nullptr, "Nobody", kUserTypeNetwork).code(), 10000);
  EXPECT_TRUE(create("owner", "Owner", kUserTypeNetwork).ok);
  EXPECT_TRUE(create(kTQLocalUserID, "Local", kUserTypeLocalOwner).ok);
  EXPECT_TRUE(create("rev", "Ada", kUserTypeReviewer).ok);
  EXPECT_EQ(create("rev", "Other", kUserTypeReviewer).code(), 10002);
  EXPECT_TRUE(logged("Already exist userID : rev"));

  struct stat status {};
  ASSERT_EQ(::stat(TQVornexUtil::userPlist().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600u);

  std::vector<UserPtr> users = load();
  ASSERT_EQ(users.size(), 2u);
  EXPECT_EQ(users[0]->id, "rev");
  EXPECT_EQ(users[0]->password, "900150983CD24FB0D6963F7D28E17F72");
  EXPECT_EQ(users[1]->name, "Owner");
  EXPECT_EQ(manager.reviewers(), std::vector<UserPtr>{users[0]});
  EXPECT_EQ(manager.userForID("owner"), users[1]);

  Outcome none, removed;
  manager.deleteUsers({}, none.completion());
  ASSERT_TRUE(none.await());
  EXPECT_EQ(none.code(), 10000);
  manager.deleteUsers({TQUser::userWithID("rev", std::nullopt, 0, std::nullopt)}, removed.completion());
  ASSERT_TRUE(removed.await());
  EXPECT_TRUE(removed.ok);
  EXPECT_FALSE(manager.findUserID("rev"));
  EXPECT_EQ(load().size(), 1u);
}

TEST_F(UsersTest, ADamagedRowDoesNotHideTheOthers) {
  Array rows{Dictionary{{"id", 5}, {"password", "p"}}, "text",
             Dictionary{{"id", "good"}, {"password", "p"}, {"libraries", "none"}}};
  ASSERT_TRUE(createDirectories(TQVornexUtil::preferenceFolder()));
  ASSERT_TRUE(writePropertyListFile(TQVornexUtil::userPlist(), Dictionary{{"users", rows}}));
  std::vector<UserPtr> users = load();
  ASSERT_EQ(users.size(), 1u);
  EXPECT_EQ(users[0]->id, "good");
  EXPECT_EQ(users[0]->userType, -1);
}

TEST_F(UsersTest, WhatAnotherProcessSavedMeanwhileStays) {
  ASSERT_TRUE(create("ann", "Ann", kUserTypeNetwork).ok && create("bob", "Bob", kUserTypeNetwork).ok);
  Array rows = *readDictionaryFile(TQVornexUtil::userPlist())->find("users")->ifArray();
  ASSERT_EQ(rows.size(), 2u);
  rows[0].ifDictionary()->set("libraries", Dictionary{{"db1", "Films"}});
  rows[0].ifDictionary()->set("colour", "blue");
  rows[1] = Dictionary{{"id", "eve"}, {"password", "p"}, {"name", "Eve"}};
  ASSERT_TRUE(writePropertyListFile(TQVornexUtil::userPlist(), Dictionary{{"users", rows}}));

  Outcome renamed;
  manager.userForID("ann")->updateNewName("Anna", std::nullopt, renamed.completion());
  ASSERT_TRUE(renamed.await());
  EXPECT_TRUE(renamed.ok);
  rows = *readDictionaryFile(TQVornexUtil::userPlist())->find("users")->ifArray();
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_EQ(*rows[0].find("name"), Value("Anna"));
  EXPECT_EQ(*rows[0].find("colour"), Value("blue"));
  EXPECT_EQ(*rows[0].find("libraries"), Value(Dictionary{{"db1", "Films"}}));
  EXPECT_EQ(*rows[1].find("id"), Value("eve"));

  // A user that others have removed comes back when it is created again, though its deletion was not written.
  const std::string path = TQVornexUtil::userPlist();
  const std::string moved = path + ".moved";
  ASSERT_EQ(::rename(path.c_str(), moved.c_str()), 0);
  ASSERT_TRUE(createDirectories(path));
  Outcome refused;
  manager.deleteUsers({manager.userForID("bob")}, refused.completion());
  ASSERT_TRUE(refused.await());
  EXPECT_EQ(refused.code(), 10003);
  EXPECT_TRUE(logged("deleteUsers, Can't save User Plist"));
  EXPECT_EQ(create("cy", "Cy", kUserTypeNetwork).code(), 10003);
  EXPECT_TRUE(logged("createUser, Can't save User Plist"));
  Outcome unsaved;
  manager.userForID("ann")->updateNewName("Annie", std::nullopt, unsaved.completion());
  ASSERT_TRUE(unsaved.await());
  EXPECT_EQ(unsaved.code(), 10003);
  EXPECT_TRUE(logged("updateNewName, Can't save User Plist"));
  ASSERT_TRUE(::rmdir(path.c_str()) == 0 && ::rename(moved.c_str(), path.c_str()) == 0);
  EXPECT_TRUE(create("bob", "Bob", kUserTypeNetwork).ok);
  EXPECT_EQ(load().size(), 4u) << "what could not be saved then is saved now";

  ASSERT_TRUE(writeFileAtomically(path, "damaged"));
  EXPECT_TRUE(manager.saveUsersFile());
  EXPECT_EQ(load().size(), 4u);

  manager.userForID("ann")->password = std::nullopt;
  EXPECT_TRUE(manager.saveUsersFile());
  EXPECT_EQ(load().size(), 4u) << "a user who cannot be written stays as he was";
}

TEST_F(UsersTest, TheServiceIsToldOfASave) {
  VornexSDK::sharedInstance().initializeWAS();
  // Another process has started it since.
  vornex::testing::FakeService service;
  ASSERT_TRUE(writeFileAtomically(layout::serviceLockFile(), std::to_string(::getpid())));
  EXPECT_TRUE(create("ann", "Ann", kUserTypeNetwork).ok);
  EXPECT_TRUE(service.await("updateUsers"));
  TQVornexTerminate([] {});
}

// For the thread sanitizer, too.
TEST_F(UsersTest, ThreadsMayUseAUserWhileItIsReplacedOrChanged) {
  auto library = TQLibrary::libraryWithName("Films", std::nullopt, kLibraryTypeLocal, false, true, true, "/p",
                                            std::nullopt, std::make_shared<TQConnection>());
  TQLibraryManager::sharedManager().addLibraries({library});
  ASSERT_TRUE(create("ann", "Ann", kUserTypeNetwork).ok);
  std::atomic<bool> isOver = false;
  std::thread reader([&] {
    while (!isOver) {
      UserPtr user = library->connection->user;
      EXPECT_TRUE(!user || user->password.value_or("").size() % 32 == 0);
    }
  });
  std::thread saver([&] {
    while (!isOver) manager.saveUsersFile();
  });
  std::thread asker([&] {
    while (!isOver) {
      for (const UserPtr& user : library->users()) EXPECT_TRUE(KeyedArchiver::archivedData(user));
      TQUserManager::sortedUsers(manager.users());
    }
  });
  for (int i = 0; i < 50; ++i) {
    manager.setLocalPassword(std::to_string(i));
    TQLibraryManager::sharedManager().updateLocalPassword();
    manager.userForID("ann")->addLibraries({library});
    manager.userForID("ann")->removeLibraries({library});
    manager.userForID("ann")->updateNewName(std::to_string(i), std::nullopt, [](bool, const TQErrorPtr&) {});
  }
  isOver = true;
  reader.join();
  saver.join();
  asker.join();
  EXPECT_EQ(library->connection->user->password, manager.localPasswordMD5());
}

TEST_F(UsersTest, LibrariesAreAssignedToUsers) {
  auto library = TQLibrary::libraryWithName("Films", std::nullopt, kLibraryTypeLocal, false, true, true, "/p",
                                            std::nullopt, std::make_shared<TQConnection>());
  ASSERT_TRUE(create("ann", "Ann", kUserTypeNetwork).ok && create("rev", "Rev", kUserTypeReviewer).ok);
  library->addUsers(manager.users());
  EXPECT_EQ(library->users().size(), 2u);
  EXPECT_EQ(library->reviewers(), std::vector<UserPtr>{manager.userForID("rev")});
  EXPECT_EQ(load()[0]->libraries, (Dictionary{{*library->dbName, "Films"}}));
  std::vector<UserPtr> named;
  for (const char* name : {"f", "e\xCC\x81\x62", "\xC3\xA9\x61", "e"})
    named.push_back(TQUser::userWithID(name, name, kUserTypeNetwork, "p"));
  EXPECT_EQ(TQUserManager::sortedUsers(named), (std::vector{named[3], named[2], named[1], named[0]}))
      << "letters are the same composed and decomposed";
  library->removeUsers(manager.users());
  EXPECT_TRUE(library->users().empty());

  UserPtr nobody = TQUser::userWithID(std::nullopt, "N", kUserTypeNetwork, "p");
  EXPECT_FALSE(nobody->userDictionary());
  EXPECT_TRUE(logged("userDictionary exception: no id"));
  library->libraryType = kLibraryTypeNetwork;
  library->addUsers(manager.users());
  EXPECT_TRUE(library->users().empty());
}

TEST_F(UsersTest, ArchivesKeepAllButTheName) {
  auto connection = std::make_shared<TQConnection>();
  EXPECT_EQ(connection->address, "127.0.0.1");
  EXPECT_EQ(connection->port, 8080);
  connection->user = TQUser::userWithID("rev", "Ada", kUserTypeReviewer, "900150983CD24FB0D6963F7D28E17F72");
  connection->user->libraries.set("db1", "Films");
  connection->address = "192.168.0.7";
  connection->port = 38317;
  std::string golden = readFile(VORNEX_GOLDEN "/connection.archive").value();
  for (const Data& bytes :
       {KeyedArchiver::archivedData(connection).value(), Data(golden.begin(), golden.end())}) {
    auto copy = KeyedUnarchiver::unarchivedObject<TQConnection>(bytes);
    ASSERT_TRUE(copy && copy->user);
    EXPECT_EQ(copy->address, connection->address);
    EXPECT_EQ(copy->port, connection->port);
    EXPECT_EQ(copy->user->id, connection->user->id);
    EXPECT_EQ(copy->user->userType, kUserTypeReviewer);
    EXPECT_EQ(copy->user->password, connection->user->password);
    EXPECT_EQ(copy->user->libraries, connection->user->libraries);
    EXPECT_EQ(copy->user->name, std::nullopt);
  }
}

}  // namespace
