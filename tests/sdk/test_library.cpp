#include <sys/wait.h>
#include <unistd.h>
#include <vornex/TQConnection.h>
#include <vornex/TQImportAsset.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQLibraryManager.h>
#include <vornex/TQUser.h>
#include <vornex/TQUserManager.h>
#include <vornex/TQVornexUtil.h>
#include <vornex/TQWorkflowEngineInterface.h>
#include <vornex/VornexSDK.h>

#include <filesystem>
#include <fstream>
#include <thread>

#include "foundation/PropertyList.h"
#include "sdk/FakeService.h"
#include "sdk/SdkFixture.h"
#include "service/TQVornexService.h"

using namespace vornex;
using vornex::testing::FakeService;
using vornex::testing::Outcome;
namespace fs = std::filesystem;

namespace {

class LibraryTest : public vornex::testing::SdkTest {
 protected:
  ~LibraryTest() override {
    TQVornexTerminate([] {});
  }

  TQLibraryManager& manager() { return TQLibraryManager::sharedManager(); }

  std::vector<LibraryPtr> load() {
    std::promise<std::vector<LibraryPtr>> promise;
    manager().loadAllLibraries(
        [&](std::vector<LibraryPtr> libraries) { promise.set_value(std::move(libraries)); });
    return promise.get_future().get();
  }

  static Dictionary row(const char* dbName, const char* name, std::int64_t type) {
    return {{"dbname", dbName}, {"name", name},      {"packagefolder", "/nowhere"},
            {"type", type},     {"address", "host"}, {"port", 8080},
            {"version", "1.0"}};
  }

  void writeList(const std::string& path, Array rows) {
    ASSERT_TRUE(createDirectories(deletingLastPathComponent(path)));
    ASSERT_TRUE(writePropertyListFile(path, Dictionary{{"library", std::move(rows)}}));
  }

  static Array readList(const std::string& path) {
    auto file = readDictionaryFile(path);
    return file ? *file->find("library")->ifArray() : Array();
  }

  LibraryPtr newLibrary() {
    fs::create_directories(folder / "libraries");
    return TQLibrary::libraryWithName("Films", std::nullopt, kLibraryTypeLocal, true, true, true,
                                      folder / "libraries/Films", std::nullopt,
                                      std::make_shared<TQConnection>());
  }

  /// A service that copies databases.
  static void letCopy(FakeService& service) {
    service.on("snapshotDatabase", [](const Value& params) {
      std::ofstream(*params.find("folder")->ifString() + "/library.sqlite") << "database";
      return Dictionary{{"result", Dictionary()}};
    });
    service.on("retireDatabase", [](const Value& params) {
      fs::remove_all(appendPathComponent(TQVornexUtil::mongoDBFolder(), *params.find("dbname")->ifString()));
      return Dictionary{{"result", Dictionary()}};
    });
  }

  /// A package folder as another computer has left it.
  std::string package(const char* name, const Dictionary& record) {
    const std::string path = folder / name;
    fs::create_directories(path);
    EXPECT_TRUE(writePropertyListFile(path + "/library.plist", record));
    const std::string database =
        *TQVornexUtil::dbFolderWithPackageFolder(path) + "/" + record.find("dbname")->ifString()->c_str();
    fs::create_directories(database);
    std::ofstream(database + "/library.sqlite") << "packaged";
    return path;
  }

  Outcome import(const std::string& path, bool force = false) {
    Outcome outcome;
    manager().importLibraryWithPackageFolder(
        path, force, [this](const LibraryPtr&, bool) { ++synced_; }, outcome.completion());
    EXPECT_TRUE(outcome.await());
    return outcome;
  }

  Outcome remove(const LibraryPtr& library, bool allDelete) {
    Outcome outcome;
    manager().deleteLibrary(library, allDelete, nullptr, outcome.completion());
    EXPECT_TRUE(outcome.await());
    return outcome;
  }

  std::atomic<int> synced_ = 0;

  Outcome create(const LibraryPtr& library) {
    Outcome outcome;
    manager().createLibrary(library, outcome.completion());
    EXPECT_TRUE(outcome.await());
    return outcome;
  }
};

TEST_F(LibraryTest, TheRecordReadsWhatItWrites) {
  LibraryPtr library = newLibrary();
  auto written = library->libDictionary();
  ASSERT_TRUE(written);
  std::vector<std::string> keys;
  for (const auto& entry : *written) keys.push_back(entry.first);
  EXPECT_EQ(keys, (std::vector<std::string>{"dbname", "name", "desc", "packagefolder", "mountpath", "type",
                                            "address", "port", "shared", "projecthash", "version",
                                            "hasreffile", "uploadable", "editable", "livefolderhash",
                                            "bonjourname", "fcpxlibraryhash"}));
  EXPECT_EQ(*written->find("desc"), Value(""));
  EXPECT_EQ(*written->find("version"), Value("1.1"));
  EXPECT_EQ(TQLibrary::libraryWithDictionary(*written)->libDictionary(), written);

  library->name = std::nullopt;
  EXPECT_FALSE(library->libDictionary());
  EXPECT_TRUE(logged("libDictionary exception: "));
}

TEST_F(LibraryTest, ARowDecidesWhatKindOfLibraryItIs) {
  Dictionary local = row("A", "a", kLibraryTypeLocal);
  local.set("packagefolder", folder.path());
  local.set("bonjourname", "studio");
  LibraryPtr library = TQLibrary::libraryWithDictionary(local);
  EXPECT_TRUE(library->onlineStatus);
  EXPECT_FALSE(library->bonjourName);
  AssetFolderPtr live = library->createAssetLiveFolder();
  for (const std::string& made : {live->masterPath, live->thumbnailPath, live->previewPath})
    EXPECT_TRUE(isDirectory(made));
  EXPECT_FALSE(itemExists(live->catalogPath));

  Dictionary untyped = local;
  untyped.erase("type");
  untyped.set("uploadable", true);
  library = TQLibrary::libraryWithDictionary(untyped);
  EXPECT_EQ(library->libraryType, -1);
  EXPECT_FALSE(library->onlineStatus);
  EXPECT_EQ(library->bonjourName, "studio");
  EXPECT_TRUE(library->storedIsCreatable);
  EXPECT_FALSE(library->isCreatable());
  EXPECT_EQ(library->libraryTypeString(), "");

  for (const char* key : {"dbname", "name", "packagefolder", "address"}) {
    Dictionary incomplete = local;
    incomplete.set(key, 7);
    EXPECT_FALSE(TQLibrary::libraryWithDictionary(incomplete)) << key;
  }
}

TEST_F(LibraryTest, BothListsAreLoadedSortedAndGivenTheirUsers) {
  EXPECT_TRUE(load().empty());
  writeList(TQVornexUtil::localLibraryPlist(),
            {row("1", "a", 0), row("2", "B", 0), row("3", "Zeta", 0), row("3", "Twin", 0), "damaged"});
  writeList(TQVornexUtil::networkLibraryPlist(), {row("4", "Alpha", 1)});
  TQUserManager::sharedManager().setLocalPassword("secret");
  VornexSDK::sharedInstance().WASPort = 4711;
  std::vector<std::string> names;
  for (const LibraryPtr& library : load()) names.push_back(*library->name);
  EXPECT_EQ(names, (std::vector<std::string>{"B", "Twin", "Zeta", "a", "Alpha"}));
  EXPECT_EQ(manager().libraryForDBName("3")->name, "Twin");
  EXPECT_EQ(manager().localLibraries().size(), 4u);

  ConnectionPtr local = manager().libraryForDBName("1")->connection;
  EXPECT_EQ(local->port, 4711);
  EXPECT_EQ(local->user->id, kTQLocalUserID);
  EXPECT_EQ(local->user->userType, kUserTypeLocalOwner);
  EXPECT_EQ(local->user->password, MD5String("secret"));
  TQUserManager::sharedManager().setLocalPassword("changed");
  manager().updateLocalPassword();
  EXPECT_EQ(local->user->password, MD5String("changed"));
  ConnectionPtr network = manager().libraryForDBName("4")->connection;
  EXPECT_EQ(network->port, 8080);
  EXPECT_FALSE(network->user->id);
}

TEST_F(LibraryTest, SavingMarksLibrariesWhoseDatabaseIsShared) {
  writeList(TQVornexUtil::localLibraryPlist(), {row("1", "a", 0), row("2", "b", 0)});
  writeList(TQVornexUtil::networkLibraryPlist(), {row("4", "d", 1)});
  load();
  fs::create_directories(appendPathComponent(TQVornexUtil::mongoDBFolder(), "1"));
  ASSERT_TRUE(manager().saveLibrariesFileWithType(kLibraryTypeLocal));
  Array rows = readList(TQVornexUtil::localLibraryPlist());
  EXPECT_EQ(*rows[0].find("version"), Value("1.1"));
  EXPECT_EQ(*rows[1].find("version"), Value("1.0"));
  EXPECT_EQ(manager().libraryForDBName("1")->versionNumber, "1.0");

  ASSERT_TRUE(manager().saveLibrariesFileWithType(5));
  auto network = manager().loadLibrariesFromPlistFile(TQVornexUtil::networkLibraryPlist());
  EXPECT_TRUE(network && network->empty());
  EXPECT_TRUE(manager().deleteLocalPlist());
  EXPECT_FALSE(manager().deleteLocalPlist());
  EXPECT_FALSE(manager().loadLibrariesFromPlistFile(TQVornexUtil::localLibraryPlist()));
}

TEST_F(LibraryTest, NetworkLibrariesAreAddedOnceWithTheirCredentials) {
  LibraryPtr library = TQLibrary::libraryWithDictionary(row("9", "Studio", kLibraryTypeNetwork));
  library->connection->user = TQUser::userWithID("ann", "ann", kUserTypeNetwork, "OLD");
  ASSERT_TRUE(manager().addLibraries({library, library}));
  library->connection->user->password = "NEW";
  ASSERT_TRUE(manager().addLibraries({library}));
  EXPECT_EQ(load().size(), 1u);
  EXPECT_EQ(manager().networkUserWithDBName("9")->password, "NEW");
  EXPECT_EQ(manager().networkUseFromBrindleWithDBName("9")->id, "ann");
  EXPECT_EQ(manager().findNetworkLibrariesWithIP("host").size(), 1u);
  manager().libraryForDBName("9")->bonjourName = "studio";
  EXPECT_EQ(manager().findNetworkLibrariesWithBonjourName("studio").size(), 1u);
  EXPECT_TRUE(manager().findNetworkLibrariesWithBonjourName(std::nullopt).empty());
  EXPECT_FALSE(manager().saveNetworkUserFile(TQUser::userWithID("ann", "", 0, std::nullopt), library));

  const std::string credentials = TQVornexUtil::networkUserPlist();
  std::ofstream(credentials, std::ios::trunc) << "damaged";
  LibraryPtr second = TQLibrary::libraryWithDictionary(row("10", "Cutting", kLibraryTypeNetwork));
  EXPECT_TRUE(manager().saveNetworkUserFile(library->connection->user, second));
  EXPECT_EQ(manager().networkUserWithDBName("9")->password, "NEW");
  EXPECT_EQ(readDictionaryFile(credentials)->size(), 2u);

  // What cannot be written is written with the next change, over what others have changed meanwhile.
  const std::string aside = credentials + ".aside";
  fs::rename(credentials, aside);
  fs::create_directories(credentials + "/x");
  UserPtr ben = TQUser::userWithID("ben", "ben", kUserTypeNetwork, "BEN");
  EXPECT_FALSE(manager().saveNetworkUserFile(ben, second));
  fs::remove_all(credentials);
  Dictionary theirs = readDictionaryFile(aside).value();
  theirs.erase("9");
  theirs.set("12", "damaged");
  ASSERT_TRUE(writePropertyListFile(credentials, theirs));
  load();
  EXPECT_EQ(manager().networkUserWithDBName("10")->id, "ben");
  EXPECT_FALSE(manager().networkUserWithDBName("12"));
  EXPECT_TRUE(logged("networkUserWithDBName exception:"));
  EXPECT_TRUE(manager().addLibraries({library}));
  EXPECT_EQ(*readDictionaryFile(credentials)->find("10")->find("userid"), Value("ben"));
  EXPECT_EQ(readDictionaryFile(credentials)->size(), 3u);

  EXPECT_TRUE(manager().deleteRemoteLibrary(library));
  EXPECT_TRUE(load().empty());
  EXPECT_FALSE(manager().networkUserWithDBName("9")->id);
}

TEST_F(LibraryTest, ASaveCarriesOverOnlyWhatThisProcessHasChanged) {
  const std::string path = TQVornexUtil::localLibraryPlist();
  Dictionary newer = row("1", "a", 0);
  newer.set("future", "kept");
  const Dictionary nameless{{"dbname", "5"}, {"type", 0}};
  writeList(path, {newer, row("2", "b", 0), row("3", "c", 0), row("3", "twin", 0), nameless, "damaged"});
  load();

  // Another process renames "1", removes "2" and adds "4".
  newer.set("name", "renamed");
  writeList(path, {newer, row("3", "c", 0), row("3", "twin", 0), row("4", "d", 0), nameless, "damaged"});
  manager().libraryForDBName("1")->isShared = true;
  manager().deleteLibraryPlist(manager().libraryForDBName("3"));
  Array rows = readList(path);
  ASSERT_EQ(rows.size(), 5u);
  EXPECT_EQ(*rows[0].find("name"), Value("renamed"));
  EXPECT_EQ(*rows[0].find("shared"), Value(true));
  EXPECT_EQ(*rows[0].find("future"), Value("kept"));
  EXPECT_EQ(*rows[1].find("name"), Value("twin"));
  EXPECT_EQ(*rows[2].find("dbname"), Value("4"));
  EXPECT_EQ(rows[3], Value(nameless));
  EXPECT_EQ(rows[4], Value("damaged"));

  // A record that has lost its name keeps its row, and does not keep the others from being saved.
  manager().libraryForDBName("1")->name = std::nullopt;
  manager().libraryForDBName("3")->desc = "twin's";
  EXPECT_TRUE(manager().saveLibrariesFileWithType(kLibraryTypeLocal));
  EXPECT_EQ(*readList(path)[0].find("dbname"), Value("1"));
  EXPECT_EQ(*readList(path)[1].find("desc"), Value("twin's"));

  // Whatever happens to the file, nothing in memory is lost.
  manager().libraryForDBName("1")->name = "a";
  LibraryPtr unwritable = TQLibrary::libraryWithDictionary(row("6", "f", 0));
  unwritable->name = std::nullopt;
  EXPECT_FALSE(manager().addLibraries({unwritable})) << "only the others are saved";
  unwritable->name = "f";
  const std::vector<std::string> lists = {
      "no list", "<plist><dict><key>library</key><string/></dict></plist>", "<plist><dict/></plist>", "none"};
  for (const std::string& content : lists) {
    std::ofstream(path, std::ios::trunc) << content;
    EXPECT_TRUE(manager().saveLibrariesFileWithType(kLibraryTypeLocal));
    EXPECT_EQ(readList(path).size(), manager().localLibraries().size()) << content;
  }
  EXPECT_EQ(readFile(path + ".damaged").value(), lists[0]);
  EXPECT_EQ(readFile(path + ".damaged-2").value(), lists[3]);

  // Without the local list, the network list is not written either.
  fs::remove(path);
  fs::create_directories(path + "/x");
  EXPECT_FALSE(manager().addLibraries({TQLibrary::libraryWithDictionary(row("7", "g", 1))}));
  EXPECT_TRUE(manager().libraryForDBName("7"));
  EXPECT_FALSE(fileExists(TQVornexUtil::networkLibraryPlist()));
}

TEST_F(LibraryTest, TwoProcessesThatAddAtOnceLoseNothing) {
  ASSERT_TRUE(createDirectories(TQVornexUtil::preferenceFolder()));
  auto addTwenty = [this](const std::string& prefix) {
    for (int i = 0; i < 20; ++i) {
      std::string name = prefix + std::to_string(i);
      LibraryPtr library = TQLibrary::libraryWithDictionary(row(name.c_str(), name.c_str(), i % 2));
      library->connection->user = TQUser::userWithID("ann", "ann", kUserTypeNetwork, "digest");
      if (!manager().addLibraries({library})) return false;
    }
    return true;
  };
  const pid_t other = ::fork();
  if (other == 0) ::_exit(addTwenty("theirs") ? 0 : 1);
  EXPECT_TRUE(addTwenty("ours"));
  int status = -1;
  ASSERT_EQ(::waitpid(other, &status, 0), other);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(load().size(), 40u);
  EXPECT_EQ(readDictionaryFile(TQVornexUtil::networkUserPlist())->size(), 20u);
}

TEST_F(LibraryTest, ALibraryIsCreatedWhole) {
  FakeService service;
  VornexSDK::sharedInstance().initializeWAS();
  LibraryPtr library = newLibrary();
  Outcome created = create(library);
  ASSERT_TRUE(created.ok) << (created.error ? created.error->description() : "");
  std::string package = *library->packageFolder;
  for (const char* name :
       {"Project/project.plist", "Media", "Workflow", "Extra", "LiveFolder", "FCPXLibrary"})
    EXPECT_TRUE(fileExists(appendPathComponent(package, name))) << name;
  EXPECT_EQ(readDictionaryFile(appendPathComponent(package, "library.plist")).value().size(), 17u);
  EXPECT_EQ(service.paramsOf("addLibrary").find("library")->ifDictionary()->size(), 17u);
  EXPECT_TRUE(service.await("updateLibrary"));
  ASSERT_EQ(readList(TQVornexUtil::localLibraryPlist()).size(), 1u);
  EXPECT_TRUE(fileExists(TQVornexUtil::bookmarkPlist()));
  EXPECT_TRUE(library->onlineStatus);
  EXPECT_EQ(manager().libraryForDBName(library->dbName), library);

  EXPECT_EQ(create(newLibrary()).code(), 10002);
  Outcome removed;
  manager().deleteLibrary(library, true, nullptr, removed.completion());
  ASSERT_TRUE(removed.await());
  EXPECT_TRUE(removed.ok);
  EXPECT_FALSE(fileExists(package));
  EXPECT_TRUE(readList(TQVornexUtil::localLibraryPlist()).empty());
}

TEST_F(LibraryTest, ALibraryLeavesTheListWithItsDatabaseAndComesBackElsewhere) {
  FakeService service;
  letCopy(service);
  VornexSDK::sharedInstance().initializeWAS();
  LibraryPtr library = newLibrary();
  ASSERT_TRUE(create(library).ok);
  const std::string dbName = *library->dbName;
  const std::string working = appendPathComponent(TQVornexUtil::mongoDBFolder(), dbName);
  fs::create_directories(working);
  std::ofstream(working + "/library.sqlite") << "working";

  // What cannot be backed up stays; the service takes it up again.
  const std::string databases = *TQVornexUtil::dbFolderWithPackageFolder(*library->packageFolder);
  std::ofstream(databases) << "in the way";
  Outcome refused = remove(library, false);
  EXPECT_EQ(refused.code(), 10000);
  EXPECT_TRUE(refused.error->userInfo().contains(kLocalizedFailureReasonKey));
  EXPECT_EQ(service.count("launchLibraryForDBName"), 1);
  EXPECT_EQ(service.count("terminateLibraryForDBName"), 0);
  EXPECT_TRUE(manager().findLibrary(library));
  EXPECT_TRUE(isDirectory(working));
  fs::remove(databases);

  ASSERT_TRUE(remove(library, false).ok);
  EXPECT_EQ(*service.paramsOf("snapshotDatabase").find("close"), Value(true));
  EXPECT_TRUE(fileExists(databases + "/" + dbName + "/library.sqlite"));
  EXPECT_FALSE(itemExists(working));
  EXPECT_TRUE(readList(TQVornexUtil::localLibraryPlist()).empty());
  EXPECT_TRUE(logged("########## CANCEL WORKFLOW #############"));

  const std::string moved = folder / "moved";
  fs::rename(*library->packageFolder, moved);
  Outcome missing = import(*library->packageFolder);
  EXPECT_FALSE(missing.ok);
  EXPECT_FALSE(missing.error);
  ASSERT_TRUE(import(moved).ok);
  EXPECT_EQ(synced_, 1);
  EXPECT_TRUE(fileExists(working + "/library.sqlite"));
  EXPECT_EQ(*readList(TQVornexUtil::localLibraryPlist())[0].find("packagefolder"), Value(moved));
  EXPECT_EQ(*readDictionaryFile(moved + "/library.plist")->find("packagefolder"), Value(moved));
  EXPECT_EQ(import(moved).code(), 10002);
  EXPECT_EQ(synced_, 1);

  // A deletion that was cut short after its backup goes on without one.
  fs::remove_all(working);
  service.fail("snapshotDatabase", 8, "missing");
  EXPECT_TRUE(remove(manager().libraryForDBName(dbName), false).ok);
}

TEST_F(LibraryTest, AnImportThatFailsLeavesNothingBehind) {
  FakeService service;
  VornexSDK::sharedInstance().initializeWAS();
  const std::string path = package("Films", row("D", "Films", kLibraryTypeLocal));
  const std::string working = appendPathComponent(TQVornexUtil::mongoDBFolder(), "D");
  auto nothingStays = [&] {
    EXPECT_TRUE(manager().libraries().empty());
    EXPECT_TRUE(readList(TQVornexUtil::localLibraryPlist()).empty());
    EXPECT_FALSE(itemExists(working));
    EXPECT_TRUE(fileExists(path + "/Database/D/library.sqlite"));
  };
  service.on("removeLibraryWithDBName", [&](const Value&) {
    fs::remove_all(working);
    return Dictionary{{"result", Dictionary()}};
  });
  service.fail("addLibrary", 2, "made by a newer version");
  EXPECT_EQ(import(path).code(), 2);
  nothingStays();
  service.answer("addLibrary", {});

  std::ofstream(path + "/.sysUUID_OTHER.lock").put('\n');
  EXPECT_EQ(import(path).code(), 10020);
  nothingStays();
  service.answer("getLibraryForDBName", {{"library", Dictionary{{"dbname", "D"}}}});
  EXPECT_TRUE(import(path, true).ok) << "forced, the lock of a library that the service knows goes";
  EXPECT_FALSE(fileExists(path + "/.sysUUID_OTHER.lock"));
  EXPECT_TRUE(remove(manager().libraryForDBName("D"), true).ok);
  EXPECT_FALSE(fileExists(path));

  // The package was backed up elsewhere since: the former database takes its place again.
  const std::string newerPackage = package("Elsewhere", row("D", "Films", kLibraryTypeLocal));
  std::ofstream(newerPackage + "/Database/D/generation") << "1 elsewhere";
  fs::create_directories(working);
  std::ofstream(working + "/library.sqlite") << "mine";
  service.answer("getLibraryForDBName", {});
  service.fail("replaceDatabase", 8, "unknown");
  service.on("addLibrary", [&](const Value&) {
    EXPECT_EQ(readFile(working + "/library.sqlite").value(), "packaged");
    std::ofstream(newerPackage + "/.sysUUID_OTHER.lock").put('\n');
    return Dictionary{{"result", Dictionary()}};
  });
  EXPECT_EQ(import(newerPackage).code(), 10020);
  EXPECT_EQ(readFile(working + "/library.sqlite").value(), "mine");
  EXPECT_EQ(service.count("terminateLibraryForDBName"), 1) << "or it would stay known to the service";
  for (const auto& entry : fs::directory_iterator(deletingLastPathComponent(working)))
    EXPECT_TRUE(entry.path() == working || entry.path().extension() == ".lock") << entry.path();

  Dictionary newer = row("E", "Newer", kLibraryTypeLocal);
  newer.set("version", "1.10");
  EXPECT_EQ(import(package("Newer", newer)).code(), 10022);
  EXPECT_EQ(import(package("Shared", row("F", "Shared", kLibraryTypeNetwork))).code(), 10001);
  EXPECT_EQ(import(package("Bad", row("../D", "Bad", kLibraryTypeLocal))).code(), 10001);
  const std::string bare = package("Bare", row("G", "Bare", kLibraryTypeLocal));
  fs::remove_all(bare + "/Database");
  EXPECT_EQ(import(bare).code(), 10019);
  std::ofstream(bare + "/library.plist") << "damaged";
  EXPECT_EQ(import(bare).error->domain(), "plist");
}

TEST_F(LibraryTest, OnlyWhatIsTheLibrarysOwnIsRemoved) {
  FakeService service;
  VornexSDK::sharedInstance().initializeWAS();
  writeList(TQVornexUtil::localLibraryPlist(), {row("D", "Films", 0)});
  LibraryPtr library = load().front();
  library->packageFolder = package("Other", row("E", "Other", 0));
  EXPECT_EQ(remove(library, true).code(), 10001);
  EXPECT_EQ(remove(library, false).code(), 10001) << "nothing is backed up into another library";
  library->packageFolder = folder / "documents";
  fs::create_directories(folder / "documents/letters");
  EXPECT_EQ(remove(library, true).code(), 10001);
  EXPECT_EQ(service.count("removeLibraryWithDBName"), 0);
  EXPECT_TRUE(fileExists(folder / "documents/letters"));
  fs::remove(folder / "documents/letters");
  EXPECT_TRUE(remove(library, false).ok) << "an unmounted disk";
  EXPECT_EQ(service.count("snapshotDatabase"), 0);
  EXPECT_TRUE(fs::is_empty(folder / "documents"));
  manager().addLibraries({library});
  std::ofstream(folder / "documents/.Database.lock");
  EXPECT_TRUE(remove(library, true).ok) << "what a removal that was cut short has left";
  EXPECT_FALSE(fileExists(folder / "documents"));

  LibraryPtr network = TQLibrary::libraryWithDictionary(row("E", "Other", kLibraryTypeNetwork));
  network->packageFolder = folder / "Other";
  manager().addLibraries({network});
  EXPECT_TRUE(remove(network, true).ok);
  EXPECT_TRUE(fileExists(folder / "Other/library.plist"));
  EXPECT_EQ(service.count("removeLibraryWithDBName"), 1);

  // The name of a database that is there cannot be taken by a new library.
  LibraryPtr second = newLibrary();
  fs::create_directories(appendPathComponent(TQVornexUtil::mongoDBFolder(), *second->dbName));
  EXPECT_EQ(create(second).code(), 10002);
}

TEST_F(LibraryTest, TheCurrentJobOfATypeIsFound) {
  fs::create_directories(deletingLastPathComponent(TQVornexUtil::workflowPlist()));
  const Dictionary upload{
      {"jobid", "7"},
      {"jobtype", 1},
      {"dbname", "D"},
      {"status", 5},
      {"data", Dictionary{{"protocol", "ftp"}, {"username", "u"}, {"server", "s"}, {"port", 21}}}};
  ASSERT_TRUE(
      writePropertyListFile(TQVornexUtil::workflowPlist(), Dictionary{{"jobs", Array{"damaged", upload}}}));
  WorkflowAssetItemPtr item = manager().currentWorkflowItemWithType(1);
  EXPECT_EQ(item->jobType, 1);
  EXPECT_EQ(item->jobStatus, 1);
  EXPECT_EQ(item->infoDescription(), "ftp://u@s:21");
  EXPECT_EQ(TQWorkflowItem::workflowItemWithDictionary(item->workflowItemDictionary())->workflowID, "");
  EXPECT_FALSE(TQWorkflowItem::workflowItemWithDictionary({{"action", "copy"}}));

  manager().workflowEngineInterface().cancelWorkflowWithDBName("D");
  item = manager().currentWorkflowItemWithType(1);
  EXPECT_EQ(item->action, "upload");
  EXPECT_EQ(item->jobType, 0);
  EXPECT_EQ(manager().currentWorkflowItemWithType(2)->action, "unknown");
  EXPECT_FALSE(manager().currentWorkflowItemWithType(-1));
}

TEST_F(LibraryTest, AnotherComputersLockGivesFalseWithoutAnError) {
  FakeService service;
  VornexSDK::sharedInstance().initializeWAS();
  LibraryPtr library = newLibrary();
  std::string lock = *library->packageFolder + "/.sysUUID_OTHER.lock";
  service.on("addLibrary", [&](const Value&) {
    std::ofstream(lock).put('\n');
    return Dictionary{{"result", Dictionary()}};
  });
  Outcome created = create(library);
  EXPECT_FALSE(created.ok);
  EXPECT_FALSE(created.error);
  EXPECT_TRUE(manager().alreadyUsingLibraryWithPackageFolder(*library->packageFolder));

  TQErrorPtr error;
  EXPECT_FALSE(library->createLibaryLockFileWithError(&error));
  EXPECT_EQ(error->code(), 10020);
  EXPECT_TRUE(library->removeLibraryLockFile());
  EXPECT_TRUE(fileExists(lock)) << "only this computer's goes";
  const std::string own =
      *library->packageFolder + "/.sysUUID_" + TQVornexUtil::systemUUID().value() + ".lock";
  std::ofstream(own).put('\n');
  fs::rename(lock, folder / "lock");
  EXPECT_TRUE(library->createLibaryLockFileWithError(nullptr));
  EXPECT_TRUE(fileExists(own));
  fs::rename(folder / "lock", lock);
  manager().deleteLockFiles();
  EXPECT_FALSE(fileExists(own));
  EXPECT_TRUE(library->removeLibraryLockFileAll());
  EXPECT_FALSE(fileExists(lock));
  EXPECT_TRUE(library->createLibaryLockFileWithError(&error));
  EXPECT_FALSE(manager().alreadyUsingLibraryWithPackageFolder(*library->packageFolder));
}

TEST_F(LibraryTest, NothingStaysOfALibraryThatTheServiceRefuses) {
  FakeService service;
  VornexSDK::sharedInstance().initializeWAS();
  service.fail("addLibrary", 2, "database failed");
  service.fail("removeLibraryWithDBName", 8, "unknown");
  for (std::int64_t code : {2, 6, 31}) {
    if (code == 6) service.fail("addLibrary", 6, "exists");
    if (code == 31)
      service.on("addLibrary", [&](const Value&) {
        service.hangUp();
        return Dictionary();
      });
    LibraryPtr library = newLibrary();
    Outcome created = create(library);
    EXPECT_FALSE(created.ok);
    EXPECT_EQ(created.code(), code);
    EXPECT_FALSE(fileExists(*library->packageFolder));
    EXPECT_FALSE(manager().findLibrary(library));
    EXPECT_TRUE(readList(TQVornexUtil::localLibraryPlist()).empty());
  }
  EXPECT_EQ(service.count("removeLibraryWithDBName"), 2) << "never for a name that another library has";
}

TEST_F(LibraryTest, WhatCannotBeCreatedIsRefusedBeforeAnythingIsMade) {
  EXPECT_EQ(create(nullptr).code(), 10000);
  LibraryPtr network = newLibrary();
  network->libraryType = kLibraryTypeNetwork;
  EXPECT_EQ(create(network).code(), 10001);
  LibraryPtr relative = newLibrary();
  relative->packageFolder = "Films";
  EXPECT_EQ(create(relative).code(), 10001);
  LibraryPtr orphan = newLibrary();
  orphan->packageFolder = folder / "no/such/Films";
  EXPECT_EQ(create(orphan).code(), 10011);
  LibraryPtr existing = newLibrary();
  fs::create_directories(*existing->packageFolder);
  EXPECT_EQ(create(existing).code(), 10002);
  EXPECT_FALSE(fileExists(TQVornexUtil::bookmarkPlist()));
  EXPECT_TRUE(manager().libraries().empty());
}

TEST_F(LibraryTest, UpdatesAreSavedAndKeptWhenSavingFails) {
  Dictionary local = row("1", "b", kLibraryTypeLocal);
  local.set("packagefolder", folder.path());
  writeList(TQVornexUtil::localLibraryPlist(), {local, row("2", "c", 0)});
  LibraryPtr library = load().front();
  EXPECT_FALSE(library->updateName(std::nullopt));
  EXPECT_TRUE(library->updateName("z"));
  EXPECT_EQ(manager().libraries().back(), library);
  EXPECT_EQ(*readDictionaryFile(folder / "library.plist")->find("name"), Value("z"));

  // Where there is no package, one form succeeds all the same.
  LibraryPtr elsewhere = manager().libraryForDBName("2");
  TQErrorPtr none;
  EXPECT_FALSE(elsewhere->updateNewName("d", std::nullopt, std::nullopt, true, &none));
  EXPECT_FALSE(none);
  Outcome renamed;
  elsewhere->updateNewName("e", std::nullopt, std::nullopt, true, renamed.completion());
  EXPECT_TRUE(renamed.await() && renamed.ok);

  fs::remove(TQVornexUtil::localLibraryPlist());
  fs::create_directories(TQVornexUtil::localLibraryPlist() + "/x");
  TQErrorPtr error;
  EXPECT_FALSE(library->updateNewName("y", std::nullopt, std::nullopt, true, &error));
  EXPECT_EQ(error->code(), 10003);
  EXPECT_FALSE(library->updateDesc("d"));
  EXPECT_TRUE(logged("updateDesc, Can't save Library Plist"));
  EXPECT_EQ(library->name, "y");
  EXPECT_EQ(library->desc, "d");
}

TEST_F(LibraryTest, ThePackageGetsWhatTheListHolds) {
  Dictionary local = row("1", "b", kLibraryTypeLocal);
  local.set("packagefolder", folder.path());
  writeList(TQVornexUtil::localLibraryPlist(), {local, row("2", "c", 0)});
  writeList(TQVornexUtil::networkLibraryPlist(), {row("3", "n", kLibraryTypeNetwork)});
  const std::string record = folder / "library.plist";
  ASSERT_TRUE(writePropertyListFile(record, Dictionary{{"future", "kept"}}));
  LibraryPtr library = load().front();
  // Another process renames it.
  local.set("name", "renamed");
  writeList(TQVornexUtil::localLibraryPlist(), {local, row("2", "c", 0)});
  EXPECT_TRUE(library->updateDesc("d") && library->updateShared(true) && library->updateCreatable(true) &&
              library->updateEditable(true) && library->updateMountPath("/m"));
  const Dictionary written = readDictionaryFile(record).value();
  for (const char* key : {"shared", "uploadable", "editable"}) EXPECT_EQ(*written.find(key), Value(true));
  EXPECT_EQ(*written.find("name"), Value("renamed"));
  EXPECT_EQ(*written.find("desc"), Value("d"));
  EXPECT_EQ(*written.find("mountpath"), Value("/m"));
  EXPECT_EQ(*written.find("version"), Value("1.0"));
  EXPECT_EQ(*written.find("future"), Value("kept"));

  LibraryPtr network = manager().libraryForDBName("3");
  network->packageFolder = folder / "network";
  fs::create_directories(*network->packageFolder);
  EXPECT_TRUE(network->updateShared(true));
  EXPECT_FALSE(fileExists(folder / "network/library.plist"));
  library->name = "z";
  EXPECT_TRUE(library->updateDesc("e"));
  EXPECT_EQ(manager().libraries().front(), library) << "sorted by updateName alone";
}

TEST_F(LibraryTest, LookupsRunBesideWriters) {
  load();
  std::atomic<bool> done = false;
  std::thread reader([&] {
    while (!done) {
      for (const LibraryPtr& library : manager().libraries()) ASSERT_TRUE(library->dbName);
      manager().libraryForDBName("50");
    }
  });
  std::vector<std::thread> writers;
  for (int writer = 0; writer < 4; ++writer)
    writers.emplace_back([&, writer] {
      for (int i = 0; i < 10; ++i) {
        std::string name = std::to_string(writer * 10 + i);
        manager().addLibraries({TQLibrary::libraryWithDictionary(row(name.c_str(), name.c_str(), 0))});
      }
    });
  for (std::thread& writer : writers) writer.join();
  done = true;
  reader.join();
  EXPECT_EQ(manager().libraries().size(), 40u);
  EXPECT_EQ(readList(TQVornexUtil::localLibraryPlist()).size(), 40u);
}

}  // namespace
