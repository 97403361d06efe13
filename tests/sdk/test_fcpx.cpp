#include <vornex/Log.h>
#include <vornex/TQFCPXEvent.h>
#include <vornex/TQFCPXLibrary.h>
#include <vornex/TQFCPXMulticam.h>

#include <filesystem>
#include <fstream>

#include "core/Coercion.h"
#include "foundation/Files.h"
#include "foundation/PropertyList.h"
#include "sdk/ServedLibrary.h"
#include "server/store/PackageTree.h"

namespace vornex::testing {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::StartsWith;

template <typename Node>
std::vector<std::string> ids(const std::vector<std::shared_ptr<Node>>& nodes) {
  std::vector<std::string> result;
  for (const auto& node : nodes) result.push_back(*node->ID);
  return result;
}

class FCPXTree : public ServedLibrary {
 protected:
  void SetUp() override {
    ServedLibrary::SetUp();
    std::filesystem::create_directory(folder_ / "FCPXLibrary");
    setLogSink([this](LogLevel, const std::string& line) { lines_.push_back(line); });
  }
  void TearDown() override { setLogSink(nullptr); }

  std::string plist() const { return folder_ / "FCPXLibrary/fcpxlibrary.plist"; }
  /// Nothing can be written where a file stands instead of the folder.
  void blockSaving() const {
    std::filesystem::remove_all(folder_ / "FCPXLibrary");
    std::ofstream(folder_ / "FCPXLibrary") << "in the way";
  }
  /// The tree as the server reads it from the package folder.
  Dictionary served() const {
    return server::readPackageTree(folder_.path(), plist(), kFCPXFileForm).value();
  }
  /// One record with two events, the first with two clips.
  void makeTree() {
    record_ = library_->addFCPXLibraryWithPath("/Movies/Show.fcpbundle", "L", nullptr);
    event_ = record_->addFCPXEventWithName("Day 1", "E", nullptr);
    record_->addFCPXEventWithName("Day 2", "F", nullptr);
    clip_ = event_->addFCPXMulticamWithName("Cafe\u0301", "M", 3, nullptr);
    event_->addFCPXMulticamWithName("Wide", "N", 4, nullptr);
  }
  bool load() {
    answer(writeJson(served()));
    return library_->loadFCPXLibrariesWithError(nullptr).has_value();
  }

  FCPXLibraryPtr record_;
  FCPXEventPtr event_;
  FCPXMulticamPtr clip_;
  std::vector<std::string> lines_;
};

TEST_F(FCPXTree, ReadsAndWritesRecords) {
  FCPXLibraryPtr record =
      TQFCPXLibrary::fcpxLibraryWithDictionary({{"id", "L"}, {"path", "/a/Show.fcpbundle"}});
  ASSERT_TRUE(record);
  EXPECT_EQ(record->name, "Show");
  record->setDictionary({{"id", "X"}, {"path", "/b"}});
  EXPECT_EQ(record->fcpxLibraryDictionary(), (Dictionary{{"id", "L"}, {"path", "/a/Show.fcpbundle"}}));
  record->setDictionary({{"id", "X"}, {"path", "/b"}, {"name", "Other"}});
  EXPECT_EQ(record->name, "Other");
  record->path = std::nullopt;
  EXPECT_EQ(record->fcpxLibraryDictionary(), std::nullopt);
  EXPECT_THAT(lines_, Contains(StartsWith("fcpXLibraryDictionary exception: ")));

  EXPECT_FALSE(TQFCPXLibrary::fcpxLibraryWithDictionary({{"id", "L"}, {"path", 1}}));
  EXPECT_FALSE(TQFCPXEvent::fcpxEventWithDictionary({{"id", "E"}}));
  EXPECT_FALSE(TQFCPXMulticam::fcpxMulticamWithDictionary({{"name", "m"}, {"type", 1}}));
  auto clip = TQFCPXMulticam::fcpxMulticamWithDictionary({{"id", "M"}, {"name", "m"}});
  clip->name = std::nullopt;
  EXPECT_EQ(clip->fcpxMulticamDictionary(), (Dictionary{{"id", "M"}, {"name", ""}, {"type", -1}}));
}

TEST_F(FCPXTree, SavesWhatTheServerReadsAndLoadsItAgain) {
  ASSERT_TRUE(writePropertyListFile(plist(), Dictionary{{"fcpxlibraries", Array()}, {"other", 1}}));
  makeTree();
  const Value clips = Array{Dictionary{{"id", "M"}, {"name", "Cafe\u0301"}, {"type", 3}},
                            Dictionary{{"id", "N"}, {"name", "Wide"}, {"type", 4}}};
  const Value events = Array{Dictionary{{"id", "E"}, {"name", "Day 1"}, {"multicams", clips}},
                             Dictionary{{"id", "F"}, {"name", "Day 2"}, {"multicams", Array()}}};
  const Value records =
      Array{Dictionary{{"id", "L"}, {"path", "/Movies/Show.fcpbundle"}, {"events", events}}};
  EXPECT_EQ(*served().find("fcpxlibraries"), records);
  EXPECT_EQ(coerce::string(served().find("hash")), library_->fcpxLibraryHashValue);
  EXPECT_EQ(library_->fcpxLibraryDict, (Dictionary{{"fcpxlibraries", records}, *(served().begin())}));
  EXPECT_EQ(coerce::integer(readDictionaryFile(plist())->find("other")), 1);

  ASSERT_TRUE(record_->rename("My show", nullptr));
  ASSERT_TRUE(load());
  EXPECT_EQ(lastTarget(), "GET /vornex/libraries/db/fcpxlibraries");
  EXPECT_THAT(library_->fcpxLibraryItems, ElementsAre(record_));
  EXPECT_EQ(record_->name, "My show");
  EXPECT_THAT(record_->eventIDs(), ElementsAre("E", "F"));
  FCPXMulticamPtr again = library_->fcpxMulticamWithID("M");
  ASSERT_TRUE(again);
  EXPECT_NE(again, clip_);
  EXPECT_EQ(again->multicamType, 3);
  EXPECT_EQ(again->event.lock(), library_->fcpxEventWithID("E"));
  EXPECT_EQ(again->event.lock()->library.lock(), library_);

  answer(R"({"hash": "h", "fcpxlibraries": [{"id": "K", "path": "/k"}, 7, {"id": "K", "path": "/twice"}]})");
  ASSERT_TRUE(library_->loadFCPXLibrariesWithError(nullptr));
  EXPECT_FALSE(library_->fcpxLibraryWithID("L"));
  EXPECT_EQ(library_->fcpxLibraryWithID("K")->name, "k");
  TQErrorPtr error;
  answer(R"({"hash": "i"})");
  EXPECT_FALSE(library_->loadFCPXLibrariesWithError(&error));
  EXPECT_EQ(codeOf(error), 10004);
  refuse(8);
  EXPECT_FALSE(library_->loadFCPXLibrariesWithError(&error));
  EXPECT_EQ(codeOf(error), 8);
  EXPECT_EQ(library_->fcpxLibraryHashValue, "h");
  EXPECT_TRUE(library_->fcpxLibraryWithID("K"));
}

TEST_F(FCPXTree, FindsAndMovesNodes) {
  makeTree();
  EXPECT_EQ(event_->fcpxMulticamWithName("Caf\u00e9", 3, "E"), clip_);
  EXPECT_FALSE(event_->fcpxMulticamWithName("Caf\u00e9", 4, "E"));
  EXPECT_FALSE(event_->fcpxMulticamWithName("Caf\u00e9", 3, "F"));
  EXPECT_EQ(event_->indexOfFCPXMulticam(clip_), 0);
  EXPECT_EQ(record_->indexOfFCPXEvent(TQFCPXEvent::fcpxEventWithID("G", "")), -1);
  ASSERT_TRUE(library_->addFCPXLibraryWithPath("/b", "K", nullptr));
  // The index is that of the list before the move.
  EXPECT_TRUE(library_->moveFCPXLibrary(record_, 2));
  EXPECT_TRUE(record_->moveFCPXEvent(event_, 2));
  EXPECT_TRUE(event_->moveFCPXMulticam(clip_, 2));
  EXPECT_FALSE(event_->moveFCPXMulticam(clip_, 3));
  EXPECT_EQ(library_->indexOfFCPXLibrary(record_), 1);
  ASSERT_TRUE(load());
  EXPECT_THAT(ids(library_->fcpxLibraryItems), ElementsAre("K", "L"));
  EXPECT_THAT(record_->eventIDs(), ElementsAre("F", "E"));
  EXPECT_THAT(ids(library_->fcpxEventWithID("E")->multicamItems), ElementsAre("N", "M"));
}

TEST_F(FCPXTree, TakesBackWhatCannotBeSaved) {
  makeTree();
  blockSaving();
  TQErrorPtr error;
  EXPECT_FALSE(library_->addFCPXLibraryWithPath("/b", "K", &error));
  EXPECT_EQ(codeOf(error), 10003);
  EXPECT_TRUE(error->userInfo().contains(kLocalizedFailureReasonKey));
  EXPECT_EQ(library_->addFCPXLibraryWithPath("/b", "K", nullptr)->ID, "K");
  EXPECT_THAT(lines_, Contains(StartsWith("Can't save fcpx library pfile : ")));
  EXPECT_FALSE(record_->addFCPXEventWithName("e", "G", &error));
  EXPECT_EQ(codeOf(error), 10003);
  EXPECT_FALSE(event_->addFCPXMulticamWithName("m", "O", 1, &error));
  EXPECT_EQ(codeOf(error), 10003);
  EXPECT_FALSE(record_->rename("x", nullptr) || event_->rename("x", nullptr));
  EXPECT_FALSE(clip_->rename("x", library_, &error));
  EXPECT_EQ(codeOf(error), 10003);
  EXPECT_EQ(record_->name, "Show");
  EXPECT_EQ(event_->name, "Day 1");
  EXPECT_EQ(clip_->name, "Cafe\u0301");
  EXPECT_THAT(ids(library_->fcpxLibraryItems), ElementsAre("L"));
  EXPECT_THAT(record_->eventIDs(), ElementsAre("E", "F"));
  EXPECT_THAT(ids(event_->multicamItems), ElementsAre("M", "N"));
  // Removals stay.
  EXPECT_FALSE(event_->removeFCPXMulticam(clip_) || record_->removeFCPXEvent(event_) ||
               library_->removeFCPXLibrary(record_));
  EXPECT_FALSE(event_->fcpxMulticamWithID("M") || record_->fcpxEventWithID("E"));
  EXPECT_THAT(library_->fcpxLibraryItems, IsEmpty());
  EXPECT_THAT(lines_, Contains(StartsWith("Can't save FCPX Library plist : ")));
}

TEST_F(FCPXTree, SavesOverNothingThatItDoesNotKnow) {
  makeTree();
  // Another host adds to the tree without having loaded it, and removes from it.
  LibraryPtr first = library_;
  useLibrary(kLibraryTypeLocal);
  ASSERT_TRUE(library_->addFCPXLibraryWithPath("/b", "K", nullptr));
  EXPECT_THAT(ids(library_->fcpxLibraryItems), ElementsAre("L", "K"));
  TQErrorPtr error;
  EXPECT_FALSE(event_->rename("x", &error));
  EXPECT_EQ(codeOf(error), 10003);
  EXPECT_EQ(served().find("fcpxlibraries")->ifArray()->size(), 2U);
  library_ = first;
  ASSERT_TRUE(load());
  // The load has made new events.
  EXPECT_FALSE(event_->rename("x", &error) || event_->removeFCPXMulticam(clip_) ||
               clip_->rename("x", library_, nullptr));
  EXPECT_EQ(codeOf(error), 10000);
  EXPECT_TRUE(library_->fcpxEventWithID("E")->rename("x", &error));
  EXPECT_FALSE(error);
  useLibrary(kLibraryTypeLocal);
  EXPECT_TRUE(library_->removeFCPXLibrary(record_));
  EXPECT_THAT(ids(library_->fcpxLibraryItems), ElementsAre("K"));

  // What cannot be read whole stays as it is, also when a caller does not ask for errors.
  for (const char* broken : {"<plist><dict/></plist>", "garbage"}) {
    ASSERT_TRUE(writeFileAtomically(plist(), broken));
    useLibrary(kLibraryTypeLocal);
    EXPECT_TRUE(library_->addFCPXLibraryWithPath("/b", "K", nullptr));
    EXPECT_FALSE(library_->addFCPXLibraryWithPath("/b", "K", &error));
    EXPECT_FALSE(library_->removeFCPXLibrary(record_) || library_->saveFCPXLibraryPlist());
    EXPECT_EQ(readFile(plist()).value(), broken);
  }
}

TEST_F(FCPXTree, RefusesWhatMakesNoSense) {
  makeTree();
  TQErrorPtr error;
  auto code = [&](const auto& result) { return result ? 0 : codeOf(error); };
  EXPECT_EQ(code(library_->addFCPXLibraryWithPath(std::nullopt, "K", &error)), 10000);
  EXPECT_EQ(code(library_->addFCPXLibraryWithPath("/b", std::nullopt, &error)), 10000);
  EXPECT_EQ(code(record_->addFCPXEventWithName(std::nullopt, "G", &error)), 10000);
  EXPECT_EQ(code(event_->addFCPXMulticamWithName(std::nullopt, "O", 1, &error)), 10000);
  EXPECT_EQ(code(record_->rename("", &error)), 10000);
  EXPECT_EQ(code(clip_->rename(std::nullopt, library_, &error)), 10000);
  EXPECT_FALSE(library_->removeFCPXLibrary(nullptr));
  EXPECT_THAT(lines_, Contains("fcpxLibrary is nil"));

  library_->libraryType = kLibraryTypeNetwork;
  EXPECT_EQ(code(library_->addFCPXLibraryWithPath("/b", "K", &error)), 10005);
  EXPECT_EQ(code(record_->addFCPXEventWithName("e", "G", &error)), 10005);
  EXPECT_FALSE(event_->removeFCPXMulticam(clip_) || record_->removeFCPXEvent(event_) ||
               library_->removeFCPXLibrary(record_));
  EXPECT_THAT(lines_, Contains("removeLiveFolder's library is network: Library"));
  EXPECT_TRUE(library_->fcpxMulticamWithID("M"));
}

TEST_F(FCPXTree, TravelsInArchives) {
  makeTree();
  library_->connection->user->name = std::nullopt;
  const Data bytes = KeyedArchiver::archivedData(library_).value();
  auto library = KeyedUnarchiver::unarchivedObject<TQLibrary>(bytes);
  ASSERT_TRUE(library);
  FCPXMulticamPtr clip = library->fcpxMulticamWithID("M");
  ASSERT_TRUE(clip);
  EXPECT_EQ(clip->event.lock(), library->fcpxEventWithID("E"));
  EXPECT_EQ(clip->event.lock()->fcpxLibrary.lock(), library->fcpxLibraryItems.at(0));
  EXPECT_EQ(clip->event.lock()->library.lock(), library);
  EXPECT_EQ(library->fcpxLibraryItems[0]->library.lock(), library);
  EXPECT_EQ(KeyedArchiver::archivedData(library), bytes);
  EXPECT_TRUE(library->fcpxEventWithID("E")->rename("x", nullptr));

  // A node in two lists keeps one place.
  record_->events[1]->multicamItems = event_->multicamItems;
  record_->events.push_back(event_);
  library_->fcpxLibraryItems.push_back(record_);
  library = KeyedUnarchiver::unarchivedObject<TQLibrary>(KeyedArchiver::archivedData(library_).value());
  ASSERT_TRUE(library);
  ASSERT_THAT(library->fcpxLibraryItems, SizeIs(1));
  EXPECT_THAT(library->fcpxLibraryItems[0]->eventIDs(), ElementsAre("E", "F"));
  std::size_t clips = 0;
  for (const FCPXEventPtr& event : library->fcpxLibraryItems[0]->events) clips += event->multicamItems.size();
  EXPECT_EQ(clips, 2U);
}

}  // namespace
}  // namespace vornex::testing
