#include <vornex/TQBookmarkUtil.h>

#include <filesystem>
#include <fstream>

#include "foundation/PropertyList.h"
#include "sdk/SdkFixture.h"

using namespace vornex;
namespace fs = std::filesystem;

namespace {

class BookmarksTest : public vornex::testing::SdkTest {
 protected:
  BookmarksTest() {
    fs::create_directories(folder / "clips/day");
    fs::create_directories(folder / "other");
    fs::create_directories(TQBookmarkUtil::preferenceFolder());
  }

  Array stored() {
    auto file = readDictionaryFile(TQBookmarkUtil::bookmarkPlist());
    return file ? *file->find("bookmark")->ifArray() : Array();
  }

  static void write(const Array& entries) {
    ASSERT_TRUE(writePropertyListFile(TQBookmarkUtil::bookmarkPlist(),
                                      Dictionary{{"version", "2.0"}, {"bookmark", entries}}));
  }

  TQBookmarkUtil& bookmarks = TQBookmarkUtil::sharedInstance();
};

TEST_F(BookmarksTest, AFolderIsCoveredByTheBookmarkAboveIt) {
  EXPECT_TRUE(bookmarks.saveBookmarks());
  EXPECT_FALSE(fileExists(TQBookmarkUtil::bookmarkPlist())) << "an empty list is not written";
  EXPECT_FALSE(bookmarks.addBookmarkWithFilePath(folder / "missing"));
  EXPECT_FALSE(bookmarks.addBookmarkWithFilePath(std::nullopt));
  EXPECT_TRUE(logged("bookmarkDataWithOptions error:"));

  EXPECT_TRUE(bookmarks.addBookmarkWithFilePath(folder / "clips/"));
  EXPECT_TRUE(bookmarks.addBookmarkWithFilePath(folder / "clips/day"));
  EXPECT_TRUE(bookmarks.addBookmarkWithFilePath(folder / "clips"));
  ASSERT_TRUE(bookmarks.saveBookmarks());
  EXPECT_EQ(stored().size(), 1u);
  EXPECT_EQ(bookmarks.findParentFolderFromFilePath(folder / "clips/day/a.mov"), folder / "clips");
  EXPECT_TRUE(bookmarks.accessibilityBookmarkWithFilePath(folder / "clips/day"));
  EXPECT_FALSE(bookmarks.accessibilityBookmarkWithFilePath(folder / "clipsAndMore"));
}

TEST_F(BookmarksTest, LoadingDropsFoldersThatAreGoneOrReplaced) {
  for (const char* name : {"clips", "other", "gone"}) {
    fs::create_directories(folder / name);
    ASSERT_TRUE(bookmarks.addBookmarkWithFilePath(folder / name));
  }
  ASSERT_TRUE(bookmarks.saveBookmarks());
  Array entries = stored();
  entries.insert(entries.begin(), TQBookmark{"/without/data", {}, {}}.bookmarkDictionary());
  write(entries);
  fs::remove_all(folder / "gone");
  fs::rename(folder / "other", folder / "moved");
  fs::create_directories(folder / "other");
  std::vector<TQBookmark> loaded = bookmarks.loadBookmarks();
  ASSERT_EQ(loaded.size(), 1u);
  EXPECT_EQ(loaded[0].filePath, folder / "clips");
  EXPECT_EQ(stored().size(), 1u);

  ASSERT_TRUE(bookmarks.addBookmarkWithFilePath(folder / "moved"));
  fs::remove(folder / "moved");
  bookmarks.unloadBookmarks();
  EXPECT_TRUE(logged("SecurityScope URLByResolvingBookmarkData error:cannot find " + (folder / "moved")));
}

TEST_F(BookmarksTest, APathNeedNotBeText) {
  const std::string odd = folder / "\xff";
  fs::create_directories(odd);
  ASSERT_TRUE(bookmarks.addBookmarkWithFilePath(odd));
  for (int i = 0; i < 2; ++i) {
    ASSERT_TRUE(bookmarks.saveBookmarks());
    std::vector<TQBookmark> loaded = bookmarks.loadBookmarks();
    ASSERT_EQ(loaded.size(), 1u);
    EXPECT_EQ(loaded[0].filePath, odd);
  }
  EXPECT_FALSE(bookmarks.findParentFolderFromFilePath(folder / "\xfe/a.mov"));
}

TEST_F(BookmarksTest, AnEntryThatIsNoBookmarkEndsTheLoadAndLeavesTheFile) {
  ASSERT_TRUE(bookmarks.addBookmarkWithFilePath(folder / "clips"));
  ASSERT_TRUE(bookmarks.saveBookmarks());
  Array entries = stored();
  entries.emplace_back(Dictionary{{"filepath", "/x"}, {"bookmarkdata", Data()}});
  entries.push_back(entries.front());
  write(entries);
  EXPECT_EQ(bookmarks.loadBookmarks().size(), 1u);
  EXPECT_TRUE(logged("loadBookmarks exception:"));
  EXPECT_EQ(stored(), entries);
  ASSERT_TRUE(bookmarks.saveBookmarks());
  EXPECT_EQ(bookmarks.loadBookmarks().size(), 2u) << "the save removed the entry alone";
}

TEST_F(BookmarksTest, EntriesWithoutAPathDoNotMultiply) {
  ASSERT_TRUE(bookmarks.addBookmarkWithFilePath(folder / "clips"));
  ASSERT_TRUE(bookmarks.saveBookmarks());
  Array entries = stored();
  entries.front().ifDictionary()->erase("filepath");
  entries.emplace_back("no bookmark");
  write(entries);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(bookmarks.loadBookmarks().size(), 1u);
    ASSERT_TRUE(bookmarks.saveBookmarks());
    EXPECT_EQ(stored().size(), 1u);
  }
  EXPECT_TRUE(bookmarks.bookmarks()[0].isAccessed);
  bookmarks.unloadBookmarks();
  EXPECT_FALSE(bookmarks.bookmarks()[0].isAccessed);
}

TEST_F(BookmarksTest, SavingKeepsWhatOtherProcessesAdded) {
  ASSERT_TRUE(bookmarks.addBookmarkWithFilePath(folder / "clips"));
  ASSERT_TRUE(bookmarks.saveBookmarks());
  Array entries = stored();
  Dictionary theirs = *entries.front().ifDictionary();
  theirs.set("filepath", "/elsewhere");
  entries.emplace_back(theirs);
  write(entries);
  ASSERT_TRUE(bookmarks.addBookmarkWithFilePath(folder / "other"));
  ASSERT_TRUE(bookmarks.saveBookmarks());
  EXPECT_EQ(stored().size(), 3u);

  // What another process has removed comes back only when it is added again.
  entries.erase(entries.begin());
  write(entries);
  ASSERT_TRUE(bookmarks.saveBookmarks());
  EXPECT_EQ(stored(), entries);
  ASSERT_TRUE(bookmarks.addBookmarkWithFilePath(folder / "clips"));
  ASSERT_TRUE(bookmarks.saveBookmarks());
  EXPECT_EQ(stored().size(), 2u);

  ASSERT_TRUE(writeFileAtomically(TQBookmarkUtil::bookmarkPlist(), "damaged"));
  ASSERT_TRUE(bookmarks.saveBookmarks());
  EXPECT_EQ(stored().size(), bookmarks.bookmarks().size());
}

TEST_F(BookmarksTest, OldFilesAreDiscarded) {
  auto write = [](const Dictionary& file) {
    return writePropertyListFile(TQBookmarkUtil::bookmarkPlist(), file).has_value();
  };
  EXPECT_FALSE(bookmarks.needUpdateVersion());
  ASSERT_TRUE(write({{"bookmark", Array()}}));
  EXPECT_TRUE(bookmarks.needUpdateVersion());
  ASSERT_TRUE(write({{"version", "1.0"}}));
  EXPECT_TRUE(bookmarks.needUpdateVersion());
  EXPECT_FALSE(fileExists(TQBookmarkUtil::bookmarkPlist()));
  EXPECT_TRUE(bookmarks.updateVersion());
  EXPECT_FALSE(bookmarks.needUpdateVersion());
  ASSERT_TRUE(bookmarks.addBookmarkWithFilePath(folder / "clips"));
  EXPECT_FALSE(bookmarks.updateVersion());
}

TEST_F(BookmarksTest, LinksVolumesAndHome) {
  fs::create_symlink("clips/../other", folder / "link");
  EXPECT_TRUE(TQBookmarkUtil::isAliasFileWithPath(folder / "link"));
  EXPECT_EQ(TQBookmarkUtil::resolvingAliasFileWithPath(folder / "link"), "clips/../other");
  EXPECT_FALSE(TQBookmarkUtil::isAliasFileWithPath(folder / "clips"));
  EXPECT_FALSE(TQBookmarkUtil::resolvingAliasFileWithPath(folder / "clips"));
  EXPECT_FALSE(TQBookmarkUtil::resolvingAliasFileWithPath(std::nullopt));

  std::string volume = TQBookmarkUtil::realVolumePathFromFilePath(folder / "clips").value();
  EXPECT_TRUE(folder.path().starts_with(volume)) << volume;
  EXPECT_EQ(TQBookmarkUtil::volumePathFromFilePath("/proc/self/status"), "/Volumes/proc");
  const std::string system = TQBookmarkUtil::systemVolumeName();
  EXPECT_TRUE(!system.empty() && system.find('/') == std::string::npos) << system;
  EXPECT_EQ(TQBookmarkUtil::volumePathFromFilePath("/"), "/Volumes/" + system);
  ASSERT_TRUE(bookmarks.addBookmarkWithVolumePath(folder / "clips"));
  EXPECT_EQ(bookmarks.findParentFolderFromFilePath(folder / "clips"), volume);

  std::string home = TQBookmarkUtil::userFolders().at(0);
  EXPECT_TRUE(bookmarks.hasDownloadFolderWithFilePath(home + "/Downloads/a/b.mov"));
  EXPECT_FALSE(bookmarks.hasDownloadFolderWithFilePath(home + "/Download"));
  fs::create_directories(folder / "a b#é");
  EXPECT_EQ(TQBookmarkUtil::bookmarkURLFromPath(folder / "a b#é"), "file://" + (folder / "a%20b%23%C3%A9"));
}

}  // namespace
