#include <vornex/TQAsset.h>
#include <vornex/TQFCPXEvent.h>
#include <vornex/TQFCPXLibrary.h>
#include <vornex/TQFCPXMulticam.h>
#include <vornex/TQLiveFolder.h>

#include <filesystem>
#include <fstream>

#include "core/DateNumber.h"
#include "platform/FileTags.h"
#include "sdk/ServedLibrary.h"

namespace vornex::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Assets : public ServedLibrary {
 protected:
  void SetUp() override {
    ServedLibrary::SetUp();
    project_ = addRoot("P", "Project");
  }

  AssetPtr makeAsset(const std::string& id) const {
    AssetPtr asset = TQAsset::assetWithDictionary({{"_id", id}, {"name", "n"}, {"importtype", 1}});
    asset->project = project_;
    return asset;
  }
  /// An asset whose file is in the package, or whose package holds a link to it.
  AssetPtr assetWithFile(bool isReference) const {
    AssetPtr asset = makeAsset("1");
    library_->packageFolder = package_.path();
    asset->masterPath = "/m.jpg";
    std::string file = package_ / (isReference ? "origin.jpg" : "m.jpg");
    std::ofstream(file) << "x";
    if (isReference) std::filesystem::create_symlink("origin.jpg", package_ / "m.jpg");
    asset->importType = isReference ? 0 : 1;
    return asset;
  }

  ProjectPtr project_;
  /// On the disk that the tests were built on, where files have tags.
  TemporaryFolder package_{std::filesystem::current_path()};
};

TEST_F(Assets, ReadDictionaries) {
  const Dictionary form = {{"_id", "1"},
                           {"name", "n"},
                           {"type", 77},
                           {"tags", Array{"a", 5, "b"}},
                           {"filesize", Value(std::uint64_t{1} << 63)},
                           {"createdate", 20240305140709250},
                           {"colorlabel", "3"},
                           {"flagged", 1},
                           {"haslocation", true},
                           {"latitude", 91},
                           {"longitude", 7.5},
                           {"versionthumbnail", -1},
                           {"islivefolder", 1},
                           {"haspreview", "yes"},
                           {"unknown", "kept"}};
  AssetPtr asset = TQAsset::assetWithDictionary(form);
  ASSERT_TRUE(asset);
  EXPECT_EQ(asset->type, 77);
  EXPECT_THAT(asset->tags(), ElementsAre("a", "b"));
  EXPECT_EQ(asset->fileSize, std::uint64_t{1} << 63);
  EXPECT_EQ(asset->createDate, dateFromDateNumber(20240305140709250));
  EXPECT_EQ(asset->modifyDate, std::nullopt);
  EXPECT_EQ(asset->colorType(), 3);
  EXPECT_TRUE(asset->flagged());
  EXPECT_FALSE(asset->hasLocation);
  EXPECT_EQ(asset->versionThumbnail, 0);
  EXPECT_FALSE(asset->isLiveFolder);
  EXPECT_TRUE(asset->hasPreview);
  EXPECT_EQ(asset->rating(), -1);
  EXPECT_EQ(asset->fileExtension, std::nullopt);
  EXPECT_EQ(asset->nameWithID(), "n_1");
  EXPECT_EQ(TQAsset::assetWithName("n")->nameWithID(), "n_(null)");
  EXPECT_EQ(*asset->metaDataDictionary->find("unknown"), Value("kept"));
  EXPECT_EQ(*asset->metaDataDictionary->find("colorlabel"), Value("3"));

  EXPECT_FALSE(TQAsset::assetWithDictionary({{"_id", "1"}}));
  EXPECT_FALSE(TQAsset::assetWithDictionary({{"_id", 1}, {"name", "n"}}));
  EXPECT_FALSE(asset->setAssetDictionary({{"_id", "2"}, {"type", 1}}));
  EXPECT_EQ(asset->id, "1");
  EXPECT_TRUE(asset->setAssetDictionary({{"_id", "2"}, {"name", "other"}}));
  EXPECT_EQ(asset->name(), "n");
  EXPECT_EQ(asset->fileSize, 0U);
}

TEST_F(Assets, WriteDictionaries) {
  AssetPtr fresh = TQAsset::assetWithName("n");
  std::optional<Dictionary> form = fresh->assetDictionary();
  ASSERT_TRUE(form);
  EXPECT_EQ(form->size(), 38U);
  EXPECT_EQ(*form->find("name"), Value("n"));
  EXPECT_EQ(*form->find("masterpath"), Value(""));
  EXPECT_EQ(*form->find("trash"), Value(false));
  EXPECT_EQ(*form->find("duplicated"), Value(0));
  EXPECT_EQ(std::to_string(*form->find("updatedate")->ifInteger()).size(), 17U);

  AssetPtr asset = makeAsset("1");
  asset->group = addBelow(project_, "G", "Group");
  asset->createDate = dateFromDateNumber(20240305140709250);
  asset->hasLocation = true;
  asset->latitude = 1.5;
  asset->hasPreview = true;
  asset->versionThumbnail = 4;
  asset->xmpMeta = {{"exif", Dictionary{{"ISO", "100"}}}, {"rating", "from the file"}};
  asset->redInfo = {{"red", 1}};
  form = asset->assetDictionary();
  EXPECT_EQ(*form->find("_id"), Value("1"));
  EXPECT_EQ(*form->find("project"), Value("P"));
  EXPECT_EQ(*form->find("group"), Value("G"));
  EXPECT_EQ(*form->find("createdate"), Value(20240305140709250));
  EXPECT_EQ(*form->find("latitude"), Value(1.5));
  EXPECT_EQ(*form->find("rating"), Value("from the file"));
  EXPECT_EQ(*form->find("red"), Value(1));
  for (const char* unwritten : {"haspreview", "versionthumbnail", "importfrompath"})
    EXPECT_FALSE(form->contains(unwritten));
  asset->setTags(std::nullopt);
  EXPECT_EQ(asset->assetDictionary(), std::nullopt);
  asset->setTags({"t"});
  ASSERT_TRUE(asset->assetDictionary());
  asset->mediaInfo = std::nullopt;
  EXPECT_EQ(asset->assetDictionary(), std::nullopt);
}

TEST_F(Assets, WriteTheOwnersThatTheyHave) {
  const std::vector<std::string> keys = {"project",      "group",      "livefolder",       "livesubfolder",
                                         "fcpx_library", "fcpx_event", "fcpx_multicam_uid"};
  auto owners = [&](const AssetPtr& asset) {
    std::vector<std::string> all;
    Dictionary form = asset->assetDictionary().value();
    for (const std::string& key : keys) all.push_back(*form.find(key)->ifString());
    return all;
  };
  auto read = [&](const char* id) {
    Dictionary form = {{"_id", id}, {"name", "n"}};
    for (const std::string& key : keys) form.set(key, "old " + key);
    return TQAsset::assetWithDictionary(form);
  };
  AssetPtr placed = read("1");
  placed->project = project_;
  EXPECT_THAT(owners(placed), ElementsAre("P", "", "", "", "", "", ""));
  placed->linkToUndefinedOwner(library_);
  EXPECT_THAT(owners(placed), ElementsAre("old project", "old group", "", "", "", "", ""));
  // A group that is not known here stays; one that is known was left.
  placed->project = TQProject::projectWithID("old project", "p", "db", kProjectTypeProject);
  EXPECT_THAT(owners(placed), ElementsAre("old project", "old group", "", "", "", "", ""));
  ProjectPtr group = TQProject::projectWithID("old group", "g", "db", kProjectTypeGroup);
  placed->project->childGroups = {group};
  EXPECT_THAT(owners(placed), ElementsAre("old project", "", "", "", "", "", ""));
  placed->group = group;
  EXPECT_THAT(owners(placed), ElementsAre("old project", "old group", "", "", "", "", ""));

  AssetPtr live = read("2");
  live->isLiveFolder = true;
  live->project = project_;
  live->linkToUndefinedOwner(library_);
  EXPECT_THAT(owners(live), ElementsAre("", "", "old livefolder", "old livesubfolder", "", "", ""));
  live->liveFolder = TQLiveFolder::liveFolderWithID("old livefolder", "/w", "1", "db", false, std::nullopt);
  EXPECT_THAT(owners(live), ElementsAre("", "", "old livefolder", "old livesubfolder", "", "", ""));
  live->liveFolder = TQLiveFolder::liveFolderWithID("L", "/w", "1", "db", false, std::nullopt);
  EXPECT_THAT(owners(live), ElementsAre("", "", "L", "", "", "", ""));
  live->liveSubFolder = TQLiveFolder::liveFolderWithID("S", "/w/s", "2", "db", false, std::nullopt);
  EXPECT_THAT(owners(live), ElementsAre("", "", "L", "S", "", "", ""));

  AssetPtr clip = read("3");
  clip->isFCPXLibrary = true;
  clip->linkToUndefinedOwner(library_);
  EXPECT_THAT(owners(clip),
              ElementsAre("", "", "", "", "old fcpx_library", "old fcpx_event", "old fcpx_multicam_uid"));
  clip->fcpxLibrary = TQFCPXLibrary::fcpxLibraryWithID("old fcpx_library", "/Show.fcpbundle");
  clip->fcpxEvent = TQFCPXEvent::fcpxEventWithID("old fcpx_event", "Day 1");
  EXPECT_THAT(owners(clip),
              ElementsAre("", "", "", "", "old fcpx_library", "old fcpx_event", "old fcpx_multicam_uid"));
  clip->fcpxEvent = TQFCPXEvent::fcpxEventWithID("E", "Day 2");
  EXPECT_THAT(owners(clip), ElementsAre("", "", "", "", "old fcpx_library", "E", ""));
  clip->fcpxMulticam = TQFCPXMulticam::fcpxMulticamWithID("M", "Wide", 0);
  EXPECT_THAT(owners(clip), ElementsAre("", "", "", "", "old fcpx_library", "E", "M"));
}

TEST_F(Assets, KeepTheirMetaDataCurrent) {
  AssetPtr asset = TQAsset::assetWithName("n");
  asset->setRating(3);
  asset->setFlagged(true);
  asset->setTags({"a"});
  asset->setTags({});
  asset->setName(std::nullopt);
  asset->setIsDeleted(true);
  EXPECT_EQ(asset->metaDataDictionary,
            (Dictionary{{"rating", 3}, {"flagged", 1}, {"tags", Array{"a"}}, {"trash", true}}));
  asset->metaDataDictionary = std::nullopt;
  asset->setRating(4);
  EXPECT_EQ(asset->metaDataDictionary, std::nullopt);
}

TEST_F(Assets, WriteTagsOnTheirFiles) {
  AssetPtr asset = assetWithFile(false);
  const std::string file = package_ / "m.jpg";
  Result<void> written = setFileTags(file, {"Red", "keep", "blue"});
  ASSERT_TRUE(written) << written.error().message;
  asset->setColorType(3);
  EXPECT_THAT(fileTags(file).value(), ElementsAre("keep", "yellow"));
  EXPECT_TRUE(asset->updateColorLabel(0));
  EXPECT_THAT(fileTags(file).value(), ElementsAre("keep"));
  asset->setTags({"keep", "new", "new"});
  for (int again = 0; again < 2; ++again) EXPECT_TRUE(asset->updateTags({"a,b", " new ", ","}));
  EXPECT_THAT(fileTags(file).value(), ElementsAre("keep", "new", "a", "b"));
  for (const char* missing : {"/missing.jpg", ""}) {
    asset->masterPath = missing;
    EXPECT_FALSE(asset->updateTags({"x"}));
    EXPECT_FALSE(asset->updateColorLabel(1));
  }
  EXPECT_THAT(fileTags(package_.path()).value(), IsEmpty());
  EXPECT_FALSE(TQAsset::assetWithName("n")->updateTags({"x"}));
  EXPECT_EQ(TQAsset::colorString(7), "gray");
  for (std::int64_t none : {0, 8, -1}) EXPECT_EQ(TQAsset::colorString(none), "none");
  EXPECT_TRUE(TQAsset::isColorTag("RED"));
  EXPECT_FALSE(TQAsset::isColorTag("none"));
}

TEST_F(Assets, WriteTagsOnTheSourceOfAReference) {
  AssetPtr asset = assetWithFile(true);
  const std::string origin = package_ / "origin.jpg";
  EXPECT_EQ(asset->managedMasterPath(), package_ / "m.jpg");
  EXPECT_EQ(asset->originMasterPath(), origin);
  EXPECT_EQ(asset->masterURL(), "file://" + origin);
  ASSERT_TRUE(setFileTags(origin, {"a"}));
  EXPECT_TRUE(asset->updateTags({"b"}));
  EXPECT_TRUE(asset->updateColorLabel(1));
  EXPECT_THAT(fileTags(origin).value(), ElementsAre("a", "b", "red"));
}

TEST_F(Assets, HaveLocalURLs) {
  AssetPtr asset = makeAsset("1");
  asset->masterPath = "";
  for (const OptionalString& path : {OptionalString(), OptionalString("")}) {
    asset->thumbnailPath = path;
    EXPECT_EQ(asset->thumbnailURL(), std::nullopt);
    EXPECT_EQ(asset->masterURL(), std::nullopt);
  }
  asset->masterPath = "/a b%#?é.jpg";
  asset->thumbnailPath = "/t.jpg";
  asset->previewPath = "/p.jpg";
  EXPECT_EQ(asset->masterURL(), "file://" + folder_.path() + "/a%20b%25%23%3F%C3%A9.jpg");
  EXPECT_EQ(asset->thumbnailURL(), "file://" + folder_.path() + "/t.jpg");
  asset->type = kAssetTypeImage;
  EXPECT_EQ(asset->previewURL(), std::nullopt);
  std::ofstream(folder_ / "p.jpg") << "x";
  EXPECT_EQ(asset->previewURL(), "file://" + folder_.path() + "/p.jpg");
  asset->type = kAssetTypeAudio;
  EXPECT_EQ(asset->previewURL(), std::nullopt);
  EXPECT_EQ(TQAsset::assetWithName("n")->masterURL(), std::nullopt);
}

TEST_F(Assets, HaveURLsAtTheirServer) {
  library_->libraryType = kLibraryTypeNetwork;
  AssetPtr asset = makeAsset("1");
  asset->type = kAssetTypeVideo;
  asset->masterPath = "Assets/MASTER/2024/A b.mov";
  asset->thumbnailPath = "Assets/Thumbnail/Ab.jpg";
  asset->previewPath = "p.mp4";
  const std::string base = server_.url("/vornex/libraries/db/");
  EXPECT_EQ(asset->thumbnailURL(), base + "thumbnail/Ab.jpg");
  EXPECT_EQ(asset->masterURL(), base + "master/2024/A%20b.mov");
  asset->thumbnailPath = "Else/Ab.jpg";
  EXPECT_EQ(asset->thumbnailURL(), base + "else/Ab.jpg");

  answer(R"({"items": [{"url": "host:80/x y"}]})");
  EXPECT_EQ(asset->previewURL(), "http://host:80/x%20y");
  EXPECT_EQ(lastTarget(), "POST /vornex/libraries/db/assets/preview");
  EXPECT_EQ(lastItem(), Value(Dictionary{{"_id", "1"}, {"previewpath", "p.mp4"}}));
  asset->importType = 0;
  EXPECT_EQ(asset->masterURL(), "http://host:80/x%20y");
  EXPECT_EQ(lastItem(), Value(Dictionary{{"_id", "1"}, {"masterpath", "Assets/MASTER/2024/A b.mov"}}));
  for (const char* useless : {R"({"items": [{"url": ""}]})", R"({"items": []})", "{}", "[]"}) {
    answer(useless);
    EXPECT_EQ(asset->downloadURL(), std::nullopt);
  }
  refuse(5);
  EXPECT_EQ(asset->downloadURL(), std::nullopt);
}

TEST_F(Assets, StoreValuesAtKeyPaths) {
  Dictionary target = {{"a", Dictionary{{"kept", 1}}}, {"leaf", 5}};
  setMetaValue(target, 2, "a.b.c");
  setMetaValue(target, 3, "plain");
  setMetaValue(target, 4, "leaf.below");
  setMetaValue(target, nullptr, "plain");
  setMetaValue(target, 9, std::nullopt);
  EXPECT_EQ(
      target,
      (Dictionary{{"a", Dictionary{{"kept", 1}, {"b", Dictionary{{"c", 2}}}}}, {"leaf", 5}, {"plain", 3}}));
  std::vector<std::string> paths;
  TQLibrary::parentKeyPath("x", target, paths);
  EXPECT_THAT(paths, ElementsAre("x.a.kept", "x.a.b.c", "x.leaf", "x.plain"));
}

TEST_F(Assets, FollowConfirmedUpdates) {
  AssetPtr first = makeAsset("1"), second = makeAsset("2");
  answer(R"({"items": [{"_id": "1"}, {"_id": "other"}]})");
  const Dictionary change = {{"rating", 3},
                             {"tags", Array{"t"}},
                             {"custom", Dictionary{{"a", Dictionary{{"b", 1}}}}},
                             {"x", Dictionary{{"name", "nested"}}}};
  TQErrorPtr error;
  EXPECT_TRUE(library_->updateAssets({first, second}, change, &error));
  EXPECT_EQ(lastTarget(), "POST /vornex/libraries/db/assets/update");
  Dictionary sent = change;
  sent.set("_id", "1");
  EXPECT_EQ(lastItem(), Value(sent));
  EXPECT_EQ(first->rating(), 3);
  EXPECT_THAT(first->tags(), ElementsAre("t"));
  EXPECT_EQ(first->name(), "n");
  EXPECT_EQ(*first->metaDataDictionary->find("custom"), *change.find("custom"));
  EXPECT_EQ(second->rating(), -1);
  EXPECT_FALSE(second->metaDataDictionary->contains("custom"));
  EXPECT_THAT(*library_->updateAssets({second}, change, *parseJson(R"({"items": []})")), ElementsAre("2"));
  EXPECT_EQ(library_->updateAssets({second}, change, *parseJson("{}")), std::nullopt);
}

TEST_F(Assets, ReportFailedUpdates) {
  AssetPtr asset = makeAsset("1");
  auto later = [&](const std::vector<AssetPtr>& assets) {
    return std::get<1>(
        await<bool, TQErrorPtr>([&](auto finish) { library_->updateAssetsRating(assets, 5, finish); }));
  };
  TQErrorPtr error;
  EXPECT_FALSE(library_->updateAssets({}, {{"rating", 5}}, &error));
  EXPECT_EQ(codeOf(error), 10000);
  EXPECT_EQ(codeOf(later({})), 10000);
  refuse(4);
  EXPECT_TRUE(library_->updateAssets({asset}, {{"rating", 5}}, &error));
  EXPECT_EQ(codeOf(later({asset})), 4);
  EXPECT_EQ(asset->rating(), -1);
}

TEST_F(Assets, MoveToTheTrashAndBack) {
  AssetPtr asset = makeAsset("1"), live = makeAsset("2"), homeless = makeAsset("3");
  live->isLiveFolder = true;
  homeless->project = TQProject::projectWithID("gone", "g", "db", 0);
  auto run = [&](auto operation) { return await<bool, TQErrorPtr>([&](auto finish) { operation(finish); }); };
  auto trash = [&](auto finish) { library_->moveAssetsToTrash({live, asset}, finish); };
  answer(R"({"items": [{"_id": "2"}, {"_id": "1"}]})");
  EXPECT_TRUE(std::get<0>(run(trash)));
  EXPECT_EQ(*lastBody().find("items"), Value(Array{Dictionary{{"_id", "2"}, {"project", ""}, {"group", ""}},
                                                   Dictionary{{"_id", "1"}, {"trash", true}}}));
  EXPECT_TRUE(asset->isDeleted());
  EXPECT_FALSE(live->project);

  auto restore = [&](auto finish) { library_->restoreAssets({homeless, asset}, finish); };
  answer(R"({"items": [{"_id": "1"}]})");
  auto [ok, error] = run(restore);
  EXPECT_FALSE(ok);
  EXPECT_EQ(codeOf(error), 10007);
  EXPECT_EQ(*error->userInfo().find("failAssets"), Value(Array{"3"}));
  EXPECT_FALSE(asset->isDeleted());
  answer(R"({"items": [{"_id": "other"}]})");
  EXPECT_EQ(*std::get<1>(run(restore))->userInfo().find("failAssets"), Value(Array{"3", "1"}));
  refuse(4);
  error = std::get<1>(run(restore));
  EXPECT_EQ(codeOf(error), 10008);
  EXPECT_NE(error->domain(), kVornexErrorDomain) << "the domain of the request's error";
  EXPECT_EQ(*error->userInfo().find("failAssets"), Value(Array{"3", "1"}));
  EXPECT_EQ(codeOf(std::get<1>(run(trash))), 4);
  EXPECT_FALSE(asset->isDeleted());
  std::size_t before = requestCount();
  EXPECT_EQ(codeOf(std::get<1>(run([&](auto finish) { library_->restoreAssets({homeless}, finish); }))),
            10007);
  EXPECT_EQ(requestCount(), before);
}

TEST_F(Assets, MoveToProjectsAndGroups) {
  AssetPtr asset = makeAsset("1");
  ProjectPtr group = addBelow(project_, "G", "Group");
  answer(R"({"items": [{"_id": "1"}]})");
  auto move = [&](const ProjectPtr& target) {
    return std::get<1>(
        await<bool, TQErrorPtr>([&](auto finish) { library_->moveAssets({asset}, target, finish); }));
  };
  EXPECT_FALSE(move(group));
  EXPECT_EQ(lastItem(), Value(Dictionary{{"_id", "1"}, {"trash", false}, {"project", "P"}, {"group", "G"}}));
  EXPECT_EQ(asset->project, project_);
  EXPECT_EQ(asset->group, group);
  EXPECT_FALSE(move(project_));
  EXPECT_FALSE(asset->group);
  EXPECT_EQ(codeOf(move(nullptr)), 10000);
}

TEST_F(Assets, AreDeletedOnTheServer) {
  AssetPtr asset = makeAsset("1");
  TQErrorPtr error;
  answer(R"({"items": [{"_id": "1"}]})");
  EXPECT_TRUE(library_->deleteAsset(asset, true, &error));
  EXPECT_EQ(lastTarget(), "POST /vornex/libraries/db/assets/delete?deleteoriginal=YES");
  answer(R"({"items": []})");
  EXPECT_FALSE(library_->deleteAsset(asset, false, &error));
  refuse(5);
  EXPECT_FALSE(library_->deleteAsset(asset, false, &error));
  EXPECT_EQ(codeOf(error), 5);
  std::size_t before = requestCount();
  EXPECT_TRUE(library_->deleteAsset(TQAsset::assetWithName("n"), false, &error));
  EXPECT_EQ(requestCount(), before);
}

}  // namespace
}  // namespace vornex::testing
