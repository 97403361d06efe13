#include <gtest/gtest.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQLiveFolder.h>

#include <filesystem>

#include "support/TemporaryFolder.h"

namespace vornex {
namespace {

LiveFolderPtr node(const std::string& path, std::vector<LiveFolderPtr> below = {}) {
  auto made = TQLiveFolder::liveFolderWithID("id of " + path, path, "7", "db", false, std::nullopt);
  made->subFolders = std::move(below);
  return made;
}

TEST(LiveFolder, TakesItsNumberFromTheFileSystem) {
  testing::TemporaryFolder folder;
  auto made = TQLiveFolder::liveFolderWithPath(folder.path(), "db");
  ASSERT_TRUE(made);
  EXPECT_EQ(made->name, std::filesystem::path(folder.path()).filename());
  std::filesystem::rename(folder.path(), folder.path() + "-moved");
  EXPECT_FALSE(TQLiveFolder::liveFolderWithPath(folder.path(), "db"));
  EXPECT_EQ(TQLiveFolder::liveFolderWithPath(folder.path() + "-moved", "db")->fileID, made->fileID);
  std::filesystem::rename(folder.path() + "-moved", folder.path());
}

TEST(LiveFolder, DictionaryAndArchiveKeepTheRecord) {
  Dictionary whole{
      {"id", "1"},     {"name", "Another name"},    {"dbname", "db"},         {"path", "/clips/a"},
      {"fileID", "9"}, {"useFCPXAudioRoles", true}, {"audioRole", "Dialogue"}};
  auto made = TQLiveFolder::liveFolderWithDictionary(whole);
  ASSERT_TRUE(made);
  EXPECT_EQ(made->liveFolderDictionary(), whole);
  Dictionary broken = whole;
  broken.set("fileID", 9);
  broken.set("name", "B");
  EXPECT_FALSE(TQLiveFolder::liveFolderWithDictionary(broken));
  made->setDictionary(broken);
  EXPECT_EQ(made->name, "Another name");

  made->rootLiveFolder = made;
  made->subFolders = {node("/clips/a/b")};
  made->subFolders[0]->parent = made;
  made->subFolders[0]->rootLiveFolder = made;
  auto read = KeyedUnarchiver::unarchivedObject<TQLiveFolder>(KeyedArchiver::archivedData(made).value());
  ASSERT_TRUE(read);
  EXPECT_EQ(read->liveFolderDictionary(), whole);
  EXPECT_EQ(read->rootLiveFolder.lock(), read);
  ASSERT_EQ(read->subFolders.size(), 1u);
  EXPECT_EQ(read->subFolders[0]->parent.lock(), read);
}

TEST(LiveFolder, IsFoundAndMarkedInItsTree) {
  auto middle = node("/c/m", {node("/c/m/x", {node("/c/m/x/y")})});
  auto root = node("/c", {middle, node("/c/n")});
  EXPECT_EQ(root->descendantCount(), 4);
  EXPECT_EQ(root->subFolderWithPath("/c"), root);
  EXPECT_EQ(root->subFolderWithID("id of /c/m/x/y")->path, "/c/m/x/y");
  EXPECT_EQ(root->subFolderWithFileID("8"), nullptr);
  EXPECT_EQ(root->indexOfSubFolder(middle), 0);
  EXPECT_EQ(root->indexOfSubFolder(root), -1);
  TQLiveFolder::scanStatusWithSubFolder(middle, "/c/m", 3);
  EXPECT_EQ(middle->subFolders[0]->subFolders[0]->scanStatus, 3);
  EXPECT_EQ(root->scanStatus + root->subFolders[1]->scanStatus, 0);
  std::vector<LiveFolderPtr> folders = {node("/Beta"), node("/alpha")};
  TQLiveFolder::sortWithSubFolders(folders);
  EXPECT_EQ(folders[0]->name, "alpha");
}

}  // namespace
}  // namespace vornex
