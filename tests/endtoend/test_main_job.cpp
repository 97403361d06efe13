// The whole way with the real service: a library, files imported into it, found again, and nothing of it lost
// when the service is killed.
#include <fmt/format.h>
#include <signal.h>
#include <vornex/Queue.h>
#include <vornex/TQAsset.h>
#include <vornex/TQConnection.h>
#include <vornex/TQImportAsset.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQLibraryManager.h>
#include <vornex/TQProject.h>
#include <vornex/TQSearchManager.h>
#include <vornex/VornexSDK.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <thread>

#include "core/StorageLayout.h"
#include "platform/Images.h"
#include "sdk/SdkFixture.h"
#include "service/ControlChannel.h"

using namespace vornex;
using namespace std::chrono_literals;
using vornex::testing::Outcome;
namespace fs = std::filesystem;

namespace {

class MainJobTest : public vornex::testing::SdkTest {
 protected:
  MainJobTest() : pump_([] { MainQueue::shared().run(); }) {
    ::setenv("VORNEX_WASD", VORNEX_SERVICE, 1);
    fs::create_directories(folder / "source");
    fs::create_directories(folder / "libraries");
    sdk().initializeWAS();
  }

  ~MainJobTest() override {
    std::promise<void> ended;
    sdk().terminateWAS([&] { ended.set_value(); });
    ended.get_future().wait();
    MainQueue::shared().stop();
    pump_.join();
  }

  static VornexSDK& sdk() { return VornexSDK::sharedInstance(); }

  void start(std::int64_t port = 0) {
    Outcome started;
    sdk().startWASServiceWithPort(port, started.completion());
    ASSERT_TRUE(started.await(60s));
    ASSERT_TRUE(started.ok) << started.error->description();
  }

  void killService() {
    auto channel = ControlChannel::open(layout::controlSocket(),
                                        [](const std::string&, const Value&) { return Value(); });
    ASSERT_TRUE(channel);
    std::promise<Result<Value>> registered;
    (*channel)->call("register", Dictionary{{"device", ""}, {"clienttype", "Mac"}, {"pid", ::getpid()}}, 10s,
                     [&](Result<Value> result) { registered.set_value(std::move(result)); });
    Result<Value> result = registered.get_future().get();
    ASSERT_TRUE(result);
    ASSERT_EQ(::kill(static_cast<pid_t>(*result->find("pid")->ifInteger()), SIGKILL), 0);
    while ((*channel)->isOpen()) std::this_thread::sleep_for(5ms);
  }

  LibraryPtr createLibrary() {
    LibraryPtr library = TQLibrary::libraryWithName("Films", "", kLibraryTypeLocal, false, true, true,
                                                    folder / "libraries/Films", std::nullopt,
                                                    std::make_shared<TQConnection>());
    Outcome created;
    TQLibraryManager::sharedManager().createLibrary(library, created.completion());
    EXPECT_TRUE(created.await());
    EXPECT_TRUE(created.ok) << (created.error ? created.error->description() : "");
    return library;
  }

  static ProjectPtr addProject(const LibraryPtr& library, const std::string& name) {
    auto promise = std::make_shared<std::promise<ProjectPtr>>();
    library->addProject(name, [promise](ProjectPtr project, const TQErrorPtr& error) {
      EXPECT_FALSE(error) << error->description();
      promise->set_value(std::move(project));
    });
    return promise->get_future().get();
  }

  std::string writeText(const std::string& name, const std::string& text) {
    std::ofstream(folder / ("source/" + name)) << text;
    return folder / ("source/" + name);
  }

  std::string writePicture(const std::string& name) {
    constexpr int kWidth = 640, kHeight = 400;
    Data pixels(std::size_t{kWidth} * kHeight * 3);
    for (std::size_t i = 0; i < pixels.size(); ++i) pixels[i] = static_cast<std::uint8_t>(i / 977);
    EXPECT_TRUE(Image::fromRgb(kWidth, kHeight, pixels)->saveJpeg(folder / ("source/" + name)));
    return folder / ("source/" + name);
  }

  /// Imports by copy and waits; the assets that were reported as done. `onEnd` is told of each file's end.
  std::vector<AssetPtr> import(const ProjectPtr& project, const std::vector<std::string>& paths,
                               const std::function<void(std::size_t done)>& onEnd = {}) {
    std::vector<ImportAssetPtr> items;
    for (const std::string& path : paths) items.push_back(TQImportAsset::importAssetWithPath(path));
    std::vector<AssetPtr> done;
    Outcome ended;
    project->createAssetsWithImportAssets(
        items, ImportType::copy, std::nullopt, false,
        [&](const ImportAssetPtr&, const AssetPtr& asset, double progress, std::int64_t, std::int64_t, bool*,
            const TQErrorPtr& error) {
          if (error || progress < 100) return;
          done.push_back(asset);
          if (onEnd) onEnd(done.size());
        },
        ended.completion());
    EXPECT_TRUE(ended.await(120s));
    return done;
  }

  static TQSearchResponse search(const LibraryPtr& library, const std::vector<std::string>& terms) {
    TQSearchManager& manager = TQSearchManager::sharedManager();
    PredicatePtr predicate =
        terms.empty() ? nullptr : manager.createQueryWithSearchStrings(terms, kSearchAND);
    return manager.searchAssetWithLibrary(library, predicate, 0, 500, 0);
  }

  static std::set<std::string> idsOf(const std::vector<AssetPtr>& assets) {
    std::set<std::string> ids;
    for (const AssetPtr& asset : assets) ids.insert(asset->id.value_or(""));
    return ids;
  }

  // Reloads the list and the project tree as a host does when it starts.
  LibraryPtr reload(const OptionalString& dbName) {
    std::promise<void> loaded;
    TQLibraryManager::sharedManager().loadAllLibraries(
        [&](const std::vector<LibraryPtr>&) { loaded.set_value(); });
    loaded.get_future().wait();
    LibraryPtr library = TQLibraryManager::sharedManager().libraryForDBName(dbName);
    TQErrorPtr error;
    EXPECT_TRUE(library->loadProjects(&error)) << (error ? error->description() : "");
    return library;
  }

 private:
  std::thread pump_;
};

TEST_F(MainJobTest, FilesAreImportedFoundAndKeptThroughAKill) {
  ASSERT_NO_FATAL_FAILURE(start());
  LibraryPtr library = createLibrary();
  ASSERT_FALSE(HasFailure());
  ProjectPtr project = addProject(library, "Holiday");
  ASSERT_TRUE(project);
  std::vector<AssetPtr> assets =
      import(project, {writePicture("beach \"north\".jpg"), writePicture("hills.JPG"),
                       writeText("notes über.txt", "text"), folder / "source/missing.jpg"});
  ASSERT_EQ(assets.size(), 3u);
  for (const AssetPtr& asset : assets) EXPECT_TRUE(fileExists(asset->managedMasterPath().value()));
  EXPECT_TRUE(fileExists(*library->packageFolder + *assets[0]->thumbnailPath));

  TQSearchResponse found = search(library, {"beach"});
  ASSERT_FALSE(found.error) << found.error->description();
  ASSERT_EQ(found.totalCount, 1);
  EXPECT_EQ(found.result[0]->id, assets[0]->id);
  EXPECT_EQ(found.result[0]->project->name, "Holiday");
  EXPECT_EQ(search(library, {"jpg"}).totalCount, 2);

  const std::string missing = folder / "source/missing.jpg";
  std::promise<std::vector<std::string>> unreachable;
  project->accessibilityForReferenceFilePaths(
      {folder / "source/hills.JPG", missing},
      [&](bool ok, const TQErrorPtr&, std::vector<std::string> paths) {
        EXPECT_TRUE(ok);
        unreachable.set_value(std::move(paths));
      });
  EXPECT_EQ(unreachable.get_future().get(), std::vector<std::string>{missing});

  ASSERT_NO_FATAL_FAILURE(killService());
  EXPECT_EQ(search(library, {}).error->code(), 31);
  ASSERT_NO_FATAL_FAILURE(start(sdk().WASPort));
  library = reload(library->dbName);
  EXPECT_EQ(idsOf(search(library, {}).result), idsOf(assets));
  ASSERT_EQ(library->projects.size(), 1u);
  EXPECT_EQ(library->projects[0]->name, "Holiday");
}

TEST_F(MainJobTest, WhatWasAcknowledgedSurvivesAKillAmidAnImport) {
  ASSERT_NO_FATAL_FAILURE(start());
  LibraryPtr library = createLibrary();
  ASSERT_FALSE(HasFailure());
  ProjectPtr project = addProject(library, "Notes");
  ASSERT_TRUE(project);
  std::set<std::string> acknowledged;
  for (int round = 0; round < 3; ++round) {
    std::vector<std::string> paths;
    for (int i = 0; i < 12; ++i) paths.push_back(writeText(fmt::format("note {} {}.txt", round, i), "text"));
    std::thread killer;
    std::vector<AssetPtr> done = import(project, paths, [&](std::size_t count) {
      if (count != static_cast<std::size_t>(round) * 2 + 3) return;
      killer = std::thread([this] { killService(); });
    });
    killer.join();
    acknowledged.merge(idsOf(done));

    ASSERT_NO_FATAL_FAILURE(start(sdk().WASPort));
    library = reload(library->dbName);
    project = library->projects.at(0);
    std::set<std::string> kept = idsOf(search(library, {}).result);
    for (const std::string& id : acknowledged) EXPECT_TRUE(kept.contains(id)) << "lost in round " << round;
  }
}

TEST_F(MainJobTest, ALibraryIsRemovedWithItsDatabase) {
  ASSERT_NO_FATAL_FAILURE(start());
  LibraryPtr library = createLibrary();
  ASSERT_FALSE(HasFailure());
  EXPECT_TRUE(fileExists(layout::databaseFolder(*library->dbName)));
  Outcome removed;
  TQLibraryManager::sharedManager().deleteLibrary(library, true, nullptr, removed.completion());
  ASSERT_TRUE(removed.await());
  EXPECT_TRUE(removed.ok) << (removed.error ? removed.error->description() : "");
  EXPECT_FALSE(fileExists(layout::databaseFolder(*library->dbName)));
  EXPECT_FALSE(fileExists(*library->packageFolder));
  EXPECT_TRUE(createLibrary()) << "the place is free again";
}

}  // namespace
