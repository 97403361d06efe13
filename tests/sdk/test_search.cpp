#include <vornex/NotificationCenter.h>
#include <vornex/TQAsset.h>
#include <vornex/TQFCPXEvent.h>
#include <vornex/TQFCPXLibrary.h>
#include <vornex/TQFCPXMulticam.h>
#include <vornex/TQLiveFolder.h>
#include <vornex/TQSearchManager.h>

#include "core/DateNumber.h"
#include "sdk/ServedLibrary.h"

namespace vornex::testing {
namespace {

using Finish = TQSearchManager::SearchCompletion;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class Search : public ServedLibrary {
 protected:
  TQSearchManager& manager_ = TQSearchManager::sharedManager();

  void TearDown() override {
    manager_.setSearchFields({"name", "tags", "fileext"});
    manager_.setSearchAssetTypeKey("extra", true);
    manager_.setSortField(std::nullopt);
    manager_.setAscending(true);
  }

  LiveFolderPtr liveFolder(const std::string& id, const std::string& path) {
    LiveFolderPtr folder = TQLiveFolder::liveFolderWithID(id, path, "1", "db", false, std::nullopt);
    folder->library = library_;
    return folder;
  }

  TQSearchResponse run(const std::function<void(Finish finish)>& search) {
    return std::get<0>(await<TQSearchResponse>([&](auto finish) { search(finish); }));
  }
  /// The query and the limit that a search sends.
  std::pair<std::string, std::int64_t> sent(const std::function<void(Finish finish)>& search) {
    run(search);
    Value body = lastBody();
    const Value* query = body.find("query");
    return {query ? *query->ifString() : "none", *body.find("limit")->ifInteger()};
  }
};

using Sent = std::pair<std::string, std::int64_t>;

const std::string kTermText = R"(((name CONTAINS "t" OR tags CONTAINS "t" OR fileext CONTAINS "t")))";

TEST_F(Search, SendsTheQueryOfEachKind) {
  manager_.setSearchAssetTypeKey("extra", false);
  const std::string types = "(type == 1 OR type == 3 OR type == 2 OR type == 0)";
  const std::string terms = kTermText + " AND ";
  const TQSearchManager::Terms t = {"t"};
  auto metaKey = [&](OptionalString key, Value value, TQSearchManager::Terms with) {
    return sent(
        [&](Finish f) { manager_.searchAssetWithLibrary(library_, key, value, with, 0, 0, 5, 1, f); });
  };
  EXPECT_EQ(metaKey("rating", 3, t), Sent("rating == 3 AND " + terms + "trash == 0 AND " + types, 5));
  EXPECT_EQ(metaKey("type", 2, {}), Sent("type == 2 AND trash == 0", 5));
  EXPECT_EQ(metaKey(std::nullopt, 2, t), Sent(terms + "trash == 0", 5));
  EXPECT_EQ(metaKey("rating", nullptr, {}), Sent("trash == 0", 5));
  EXPECT_EQ(sent([&](Finish f) { manager_.searchAssetWithLibraryAssetType(library_, 0, {}, 0, 0, 5, 1, f); }),
            Sent("type == 0 AND trash == 0", 5));
  EXPECT_EQ(sent([&](Finish f) { manager_.searchMapAssetWithLibrary(library_, {}, 0, 0, 1, f); }),
            Sent("haslocation == 1 AND trash == 0 AND " + types, 100));
  EXPECT_EQ(sent([&](Finish f) { manager_.searchFlaggedAssetWithLibrary(library_, {}, 0, 0, 5, 1, f); }),
            Sent("flagged == 1 AND trash == 0 AND " + types, 5));
  EXPECT_EQ(sent([&](Finish f) { manager_.searchAssetWithLibraryTrash(library_, true, t, 0, 0, 5, 1, f); }),
            Sent(terms + "trash == 1 AND " + types, 5));
  EXPECT_THAT(
      sent([&](Finish f) { manager_.searchAssetWithLibraryDaysAgo(library_, 1, t, 0, 0, 1, f); }).first,
      ::testing::EndsWith(" AND trash == 0 AND " + types + " AND " + kTermText));
}

TEST_F(Search, SendsReviewsPredicatesAndDuplicates) {
  const TQSearchManager::Terms t = {"t"};
  auto review = [&](OptionalString reviewer, TQSearchManager::Terms with) {
    return sent(
               [&](Finish f) { manager_.searchReviewAssetWithLibrary(library_, reviewer, with, 0, 0, 1, f); })
        .first;
  };
  EXPECT_EQ(review("jo", {}), R"((extensis.ApprovedBy == "jo" AND wantreview == 1) AND trash == 0)");
  EXPECT_EQ(review(std::nullopt, t), kTermText + " AND trash == 0");
  EXPECT_EQ(review(std::nullopt, {}), "wantreview == 1 AND trash == 0");
  EXPECT_EQ(sent([&](Finish f) { manager_.searchReviewAssetWithLibrary(library_, 2, {}, 0, 0, 1, f); }).first,
            "(JobStatus == 2 AND wantreview == 1) AND trash == 0");
  PredicatePtr own = manager_.createQueryWithSearchString("t");
  EXPECT_EQ(sent([&](Finish f) { manager_.searchAssetWithLibrary(library_, own, 0, 1, f); }).first,
            own->predicateFormat());
  EXPECT_EQ(sent([&](Finish f) { manager_.searchAssetWithLibrary(library_, nullptr, 0, 1, f); }).first,
            "none");
  Date created = *dateFromDateNumber(20240305140709250);
  EXPECT_EQ(
      sent([&](Finish f) {
        manager_.searchDupulicatedAssetWithLibrary(library_, "a+b.mov", 7, created, -1, 1, f);
      }),
      Sent(R"(importfrompath CONTAINS "a\\+b.mov" AND filesize == 7 AND createdate == 20240305140709250)"
           " AND importtype == 0 AND trash == 0",
           1000));
}

TEST_F(Search, SendsCategories) {
  ProjectPtr root = addRoot("P", "Project");
  ProjectPtr group = addBelow(root, "G", "Group");
  addBelow(group, "H", "Inner");
  Date day = *dateFromDateNumber(20240305000000000);
  const std::string days = "(importdate >= 20240305000000000 AND importdate <= 20240305000000000)";
  auto rootQuery = [&](bool recursive) {
    return sent([&](Finish f) {
      manager_.searchAssetWithLibraryRootCategory(library_, root, recursive, {}, 1, 0, 10, 1, f);
    });
  };
  // The root searches do not use their own limit.
  EXPECT_EQ(rootQuery(true), Sent(R"(project == "P" AND trash == 0)", 100));
  EXPECT_EQ(rootQuery(false), Sent(R"((project == "P" AND group == "") AND trash == 0)", 100));
  EXPECT_EQ(sent([&](Finish f) {
              manager_.searchAssetWithLibraryRootCategory(library_, root, true, day, day, 0, 10, 1, f);
            }),
            Sent(R"(project == "P" AND )" + days + " AND trash == 0", 100));
  auto groupQuery = [&](bool recursive) {
    return sent([&](Finish f) {
      manager_.searchAssetWithLibrarySubCategory(library_, group, recursive, {}, 1, 0, 10, 1, f);
    });
  };
  EXPECT_EQ(groupQuery(true), Sent(R"((group == "G" OR group == "H") AND trash == 0)", 10));
  EXPECT_EQ(groupQuery(false), Sent(R"((group == "G") AND trash == 0)", 10));
  EXPECT_EQ(sent([&](Finish f) {
              manager_.searchAssetWithLibrarySubCategory(library_, group, false, day, day, 0, 10, 1, f);
            }),
            Sent(R"((group == "G") AND )" + days + " AND trash == 0", 10));
}

TEST_F(Search, SendsLiveFolders) {
  LiveFolderPtr root = liveFolder("L", "/w (1)"), below = liveFolder("S", "/w (1)/s");
  root->subFolders = {below};
  below->subFolders = {liveFolder("T", "/w (1)/s/t")};
  EXPECT_THAT(manager_.subFolderIDs(root), ::testing::ElementsAre("L", "S", "T"));
  auto query = [&](bool isRoot, bool recursive) {
    return sent([&](Finish f) {
      if (isRoot)
        manager_.searchAssetWithLibraryRootCategory(library_, root, recursive, {}, 1, 0, 10, 1, f);
      else
        manager_.searchAssetWithLibrarySubCategory(library_, below, recursive, {}, 1, 0, 10, 1, f);
    });
  };
  EXPECT_EQ(query(true, false), Sent(R"((livefolder == "L" AND livesubfolder == "") AND trash == 0)", 100));
  EXPECT_EQ(query(false, false), Sent(R"(livesubfolder == "S" AND trash == 0)", 10));
  const std::string isLive = R"(" AND islivefolder == 1) AND trash == 0)";
  EXPECT_EQ(query(true, true), Sent(R"((importfrompath CONTAINS "/w \\(1\\)/)" + isLive, 100));
  EXPECT_EQ(query(false, true), Sent(R"((importfrompath CONTAINS "/w \\(1\\)/s/)" + isLive, 10));
}

TEST_F(Search, SendsFinalCutCategories) {
  Date day = *dateFromDateNumber(20240305000000000);
  auto root = [&](bool recursive) {
    auto record = TQFCPXLibrary::fcpxLibraryWithID("L", "/Show.fcpbundle");
    return sent([&](Finish f) {
      manager_.searchAssetWithLibraryRootCategory(library_, record, recursive, {}, 1, 0, 10, 1, f);
    });
  };
  auto sub = [&](const TQSearchManager::SubCategory& category, bool recursive) {
    return sent([&](Finish f) {
      manager_.searchAssetWithLibrarySubCategory(library_, category, recursive, {}, 1, 0, 10, 1, f);
    });
  };
  EXPECT_EQ(root(true), Sent(R"(fcpx_library == "L" AND trash == 0)", 100));
  EXPECT_EQ(root(false), Sent(R"((fcpx_library == "L" AND fcpx_event == "") AND trash == 0)", 100));
  FCPXEventPtr event = TQFCPXEvent::fcpxEventWithID("E", "Day 1");
  EXPECT_EQ(sub(event, true), Sent(R"(fcpx_event == "E" AND trash == 0)", 10));
  EXPECT_EQ(sub(event, false), Sent(R"((fcpx_event == "E" AND fcpx_multicam_uid == "") AND trash == 0)", 10));
  EXPECT_EQ(sub(TQFCPXMulticam::fcpxMulticamWithID(" M+1", "Wide", 0), true),
            Sent(R"(fcpx_multicam_uid == "M\\+1" AND trash == 0)", 10));
  EXPECT_THAT(sent([&](Finish f) {
                manager_.searchAssetWithLibrarySubCategory(library_, event, true, day, day, 0, 10, 1, f);
              }).first,
              ::testing::StartsWith(R"(fcpx_event == "E" AND (importdate >= )"));
}

TEST_F(Search, SendsPagingSortingAndTheSettingsOfTheCall) {
  manager_.setSortField("name");
  manager_.setAscending(false);
  run([&](Finish finish) {
    manager_.searchAssetWithLibraryTrash(library_, false, {"t"}, 0, 3, 20, 42, finish);
    manager_.setSortField("rating");
    manager_.setSearchFields({"note"});
  });
  EXPECT_EQ(lastTarget(), "POST /vornex/libraries/db/assets/search");
  EXPECT_EQ(lastBody(), Value(Dictionary{{"page", 3},
                                         {"limit", 20},
                                         {"query", kTermText + " AND trash == 0"},
                                         {"tag", 42},
                                         {"sort", Dictionary{{"sortfield", "name"}, {"ascending", false}}}}));
  run([&](Finish finish) { manager_.searchAssetWithLibrary(library_, "x", "size", true, 0, 1, finish); });
  EXPECT_EQ(lastBody(), Value(Dictionary{{"page", 0},
                                         {"limit", 100},
                                         {"query", R"(note CONTAINS "x")"},
                                         {"tag", 1},
                                         {"sort", Dictionary{{"sortfield", "size"}, {"ascending", true}}}}));
}

TEST_F(Search, SendsNothingThatCannotBeAnswered) {
  auto code = [&](const std::function<void(Finish finish)>& search) {
    TQSearchResponse response = run(search);
    EXPECT_THAT(response.result, IsEmpty());
    EXPECT_EQ(response.elapsedTime, -1);
    EXPECT_EQ(response.tag, 9);
    return codeOf(response.error);
  };
  auto trash = [&](const LibraryPtr& library, std::int64_t operatorType, std::int64_t page) {
    return code([&](Finish finish) {
      manager_.searchAssetWithLibraryTrash(library, false, {"t"}, operatorType, page, 5, 9, finish);
    });
  };
  EXPECT_EQ(trash(nullptr, 0, 0), 10000);
  EXPECT_EQ(trash(library_, 0, -1), 10001);
  EXPECT_EQ(trash(library_, kSearchInvalid, 0), 10017);
  EXPECT_EQ(code([&](Finish finish) {
              manager_.searchAssetWithLibraryRootCategory(library_, ProjectPtr(), true, {}, 1, 0, 1, 9,
                                                          finish);
            }),
            10000);
  EXPECT_EQ(codeOf(manager_.searchAssetWithLibrary(library_, nullptr, -1, 5, 9).error), 10001);
  for (const auto& loseSomething :
       {+[](TQLibrary& library) { library.connection->user->password = std::nullopt; },
        +[](TQLibrary& library) { library.connection->user = nullptr; }}) {
    loseSomething(*library_);
    EXPECT_EQ(trash(library_, 0, 0), 10000);
    EXPECT_EQ(codeOf(manager_.searchAssetWithLibrary(library_, nullptr, 0, 5, 9).error), 10000);
    EXPECT_EQ(codeOf(manager_.searchAssetWithLibrary(library_, {{"a", nullptr}}, 0, 0, 1, 1).error), 10000);
  }
  EXPECT_EQ(requestCount(), 0U);
}

TEST_F(Search, PassesTheServersErrorOnAndAnnouncesIt) {
  std::vector<std::string> names;
  NotificationCenter::defaultCenter().addObserver(
      "", [&](const Notification& notification) { names.push_back(notification.name); });
  refuse(8);
  TQSearchResponse page =
      run([&](Finish finish) { manager_.searchAssetWithLibrary(library_, nullptr, 2, 7, finish); });
  EXPECT_EQ(codeOf(page.error), 8);
  EXPECT_EQ(page.error->domain(), "SERVER");
  EXPECT_EQ(page.tag, 7);
  EXPECT_EQ(page.pageIndex, 0);
  EXPECT_THAT(names, ::testing::ElementsAre("TQLibraryDBNotFoundNotification"));
  EXPECT_EQ(codeOf(manager_.searchAssetWithLibrary(library_, nullptr, 0, 5, 9).error), 8);
}

TEST_F(Search, ReadsAPageAndLinksItsAssets) {
  LiveFolderPtr live = liveFolder("L", "/w");
  live->subFolders = {liveFolder("S", "/w/s")};
  library_->liveFolders = {live};
  ProjectPtr first = addRoot("P", "Project");
  ProjectPtr second = addRoot("Q", "Other");
  ProjectPtr group = addBelow(second, "G", "Group");
  addBelow(first, "Q", "A group with the identifier of a project");
  addBelow(first, "G", "A group with the identifier of another");
  answer(R"({"items": [
      {"_id": "1", "name": "a", "project": "Q", "group": "G"},
      {"_id": "2", "name": "b", "project": "gone", "group": "G"},
      {"_id": "3", "name": "c", "islivefolder": true, "project": "P", "livefolder": "L", "livesubfolder": "S"},
      {"_id": "4", "name": "d", "isfcpxlibrary": true, "project": "gone"},
      {"name": "no identifier"}, {"_id": "5", "name": "after the end"}],
    "page": 2, "limit": 4, "total": 99, "tag": "12", "elapsed": 0.5,
    "projecthash": "ph", "livefolderhash": "lh", "fcpxlibraryhash": "fh", "version": "9"})");
  TQSearchResponse page =
      run([&](Finish finish) { manager_.searchAssetWithLibrary(library_, nullptr, 2, 7, finish); });
  ASSERT_THAT(page.result, SizeIs(4));
  EXPECT_EQ(page.result[0]->project, second);
  EXPECT_EQ(page.result[0]->group, group);
  EXPECT_EQ(page.result[0]->library(), library_);
  EXPECT_EQ(page.result[1]->project, TQProject::undefinedProjectWithLibrary(library_));
  EXPECT_FALSE(page.result[1]->group);
  EXPECT_EQ(page.result[2]->project, first);
  EXPECT_TRUE(page.result[2]->isLiveFolder);
  EXPECT_EQ(page.result[2]->liveFolder, live);
  EXPECT_EQ(page.result[2]->liveSubFolder, live->subFolders.front());
  EXPECT_FALSE(page.result[3]->project);
  EXPECT_TRUE(page.result[3]->isFCPXLibrary);
  EXPECT_EQ(page.result[3]->library(), library_);
  EXPECT_EQ(page.pageIndex, 2);
  EXPECT_EQ(page.pageLimit, 4);
  EXPECT_EQ(page.totalCount, 99);
  EXPECT_EQ(page.tag, 12);
  EXPECT_EQ(page.elapsedTime, 0.5);
  EXPECT_EQ(page.projectHashValue, "ph");
  EXPECT_EQ(page.liveFolderHashValue, "lh");
  EXPECT_EQ(page.fcpxLibraryHashValue, "fh");
  EXPECT_EQ(page.version, std::nullopt);

  page = manager_.searchAssetWithLibrary(library_, nullptr, 2, 0, 7);
  EXPECT_EQ(page.version, "9");
  EXPECT_EQ(page.tag, 7);
  EXPECT_EQ(*lastBody().find("limit")->ifInteger(), 100);
}

TEST_F(Search, LinksFinalCutAssets) {
  FCPXLibraryPtr record = TQFCPXLibrary::fcpxLibraryWithID("L", "/Show.fcpbundle");
  library_->fcpxLibraryItems = {record};
  library_->loadFCPXEventsWithlibraryDict(
      {{"events",
        Array{Dictionary{{"id", "E"},
                         {"name", "Day 1"},
                         {"multicams", Array{Dictionary{{"id", "M"}, {"name", "m"}, {"type", 1}}}}}}}},
      record);
  record->library = library_;
  ProjectPtr project = addRoot("P", "Project");
  FCPXMulticamPtr clip = library_->fcpxMulticamWithID("M");
  std::vector<AssetPtr> assets = manager_.extractAssetInfo(*parseJson(R"({"items": [
      {"_id": "1", "name": "a", "isfcpxlibrary": true, "fcpx_library": "L", "fcpx_event": "E",
       "fcpx_multicam_uid": "M", "project": "P"},
      {"_id": "2", "name": "b", "isfcpxlibrary": true, "fcpx_library": "L", "fcpx_event": "gone",
       "fcpx_multicam_uid": "M"},
      {"_id": "3", "name": "c", "isfcpxlibrary": true, "fcpx_library": "gone", "fcpx_event": "E",
       "fcpx_multicam_uid": "M"}]})"),
                                                           library_);
  ASSERT_THAT(assets, SizeIs(3));
  EXPECT_EQ(assets[0]->fcpxMulticam, clip);
  EXPECT_EQ(assets[0]->fcpxEvent, clip->event.lock());
  EXPECT_EQ(assets[0]->project, project);
  EXPECT_EQ(clip->multicamType, 1);
  EXPECT_EQ(assets[1]->fcpxLibrary, record);
  EXPECT_FALSE(assets[1]->fcpxEvent || assets[1]->fcpxMulticam);
  EXPECT_EQ(assets[2]->fcpxLibrary, TQFCPXLibrary::undefinedFCPXLibraryWithLibrary(library_));
  for (const AssetPtr& asset : assets) EXPECT_EQ(asset->library(), library_);
  manager_.extractAssetInfo(*parseJson(R"({"items": [{"_id": "1", "name": "a", "isfcpxlibrary": true,
      "fcpx_library": "L", "fcpx_event": "E", "fcpx_multicam_uid": "M", "fcpx_multicam_type": 7}]})"),
                            library_);
  EXPECT_EQ(clip->multicamType, 7);
}

TEST_F(Search, KeepsUnplacedAssetsInTheirLibrary) {
  const LibraryPtr first = library_;
  useLibrary(kLibraryTypeLocal);
  Value items = *parseJson(R"({"items": [
      {"_id": "1", "name": "a", "project": "gone"},
      {"_id": "2", "name": "b", "islivefolder": true, "livefolder": "gone"},
      {"_id": "3", "name": "c", "isfcpxlibrary": true}]})");
  std::vector<AssetPtr> here = manager_.extractAssetInfo(items, first);
  std::vector<AssetPtr> there = manager_.extractAssetInfo(items, library_);
  for (const AssetPtr& asset : here) EXPECT_EQ(asset->library(), first);
  for (const AssetPtr& asset : there) EXPECT_EQ(asset->library(), library_);
  EXPECT_EQ(here[1]->liveFolder, TQLiveFolder::undefinedLiveFolderWithLibrary(first));
  ProjectPtr project = addRoot("P", "Project");
  here[0]->project = project;
  EXPECT_EQ(here[0]->library(), library_);
}

TEST_F(Search, ReadsAnswersThatTellLittle) {
  answer("{}");
  TQSearchResponse page =
      run([&](Finish finish) { manager_.searchAssetWithLibrary(library_, nullptr, 0, 7, finish); });
  EXPECT_EQ(page.elapsedTime, -1);
  EXPECT_EQ(page.tag, 7);
  EXPECT_EQ(page.totalCount, 0);
  EXPECT_FALSE(page.error);
  answer("[1]");
  page = run([&](Finish finish) { manager_.searchAssetWithLibrary(library_, nullptr, 0, 7, finish); });
  EXPECT_THAT(page.result, IsEmpty());
  EXPECT_EQ(codeOf(manager_.searchAssetWithLibrary(library_, nullptr, 0, 0, 7).error), 10017);
}

TEST_F(Search, AsksForKeysWithValues) {
  const Dictionary wanted = {{"rating", 3}, {"name", "x"}};
  manager_.searchAssetWithLibrary(library_, wanted, kSearchOR, 0, 1, 1);
  EXPECT_EQ(*lastBody().find("query")->ifString(), R"(rating == 3 OR name == "x")");
  manager_.searchAssetWithLibrary(library_, wanted, 5, 0, 1, 1);
  EXPECT_EQ(*lastBody().find("query")->ifString(), R"(rating == 3 AND name == "x")");
  EXPECT_EQ(codeOf(manager_.searchAssetWithLibrary(library_, {{"a", nullptr}}, 0, 0, 1, 1).error), 10017);
}

TEST_F(Search, FindsOneAssetByIdentifier) {
  answer(R"({"items": [{"_id": "x/1", "name": "a"}]})");
  TQErrorPtr error;
  AssetPtr asset = manager_.searchAssetWithLibrary(library_, "x/1", &error);
  ASSERT_TRUE(asset);
  EXPECT_EQ(lastTarget(), "GET /vornex/libraries/db/assets/x%2F1");
  auto find = [&](const OptionalString& id) {
    return await<AssetPtr, TQErrorPtr>(
        [&](auto finish) { manager_.searchAssetWithLibrary(library_, id, finish); });
  };
  EXPECT_EQ(std::get<0>(find("x/1"))->id, "x/1");
  refuse(5);
  EXPECT_FALSE(manager_.searchAssetWithLibrary(library_, "x/1", &error));
  EXPECT_EQ(codeOf(error), 5);
  EXPECT_EQ(codeOf(std::get<1>(find("x/1"))), 5);
  error = nullptr;
  library_->connection->user = nullptr;
  EXPECT_FALSE(manager_.searchAssetWithLibrary(library_, "x/1", &error));
  EXPECT_FALSE(error);
  EXPECT_EQ(codeOf(std::get<1>(find("x/1"))), 10000);
}

}  // namespace
}  // namespace vornex::testing
