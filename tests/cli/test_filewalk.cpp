#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "cli/FileWalk.h"

namespace vornex::cli {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

class FileWalk : public testing::Test {
 protected:
  FileWalk() {
    std::string name = (fs::temp_directory_path() / "vornex-walk-XXXXXX").native();
    root_ = mkdtemp(name.data());
  }
  ~FileWalk() override { fs::remove_all(root_); }

  void write(const std::string& name, const std::string& content = "x") {
    fs::create_directories((root_ / name).parent_path());
    std::ofstream(root_ / name) << content;
  }

  WalkResult walk(const WalkOptions& options = {}) const { return findFiles({root_.native()}, options); }

  std::vector<std::string> names(const WalkResult& result) const {
    std::vector<std::string> relative;
    for (const FoundFile& file : result.files)
      relative.push_back(fs::path(file.path).lexically_relative(root_));
    return relative;
  }

  fs::path root_;
};

TEST_F(FileWalk, TakesEveryFileInAStableOrder) {
  write("b/two words.jpg", "12345");
  write("b/\"quoted\"\nline.jpg");
  write("a/e\u0301.mov");
  write("c\xff.pdf", "");
  // One named beside its folder is taken once.
  const WalkResult result = findFiles({root_.native(), (root_ / "b/two words.jpg").native()}, {});
  EXPECT_THAT(names(result),
              ElementsAre("a/e\u0301.mov", "b/\"quoted\"\nline.jpg", "b/two words.jpg", "c\xff.pdf"));
  EXPECT_EQ(result.totalBytes(), 7u);
  EXPECT_THAT(result.failures, IsEmpty());
}

TEST_F(FileWalk, EndsDespiteLinksThatLeadBack) {
  write("folder/file");
  fs::create_directory_symlink("..", root_ / "folder/up");
  fs::create_directory_symlink("folder", root_ / "again");
  fs::create_symlink("self", root_ / "self");
  fs::create_symlink("folder/file", root_ / "link");
  const WalkResult result = walk();
  EXPECT_THAT(names(result), ElementsAre("again/file", "link"));
  EXPECT_EQ(result.skipped.size(), 2u);
  ASSERT_EQ(result.failures.size(), 1u);
  EXPECT_EQ(result.failures[0].reason, "a link that leads back to itself");
}

TEST_F(FileWalk, CountsHiddenEntriesUnlessAskedForThem) {
  write("seen");
  write(".file");
  write(".folder/one");
  write(".folder/two");
  EXPECT_THAT(names(walk()), ElementsAre("seen"));
  EXPECT_EQ(walk().hiddenCount, 2u);
  EXPECT_EQ(walk({.hidden = true}).files.size(), 4u);
  EXPECT_EQ(findFiles({(root_ / ".folder").native()}, {}).files.size(), 2u);
}

TEST_F(FileWalk, PassesOverSpecialFilesAndLibraries) {
  write("photo.jpg");
  write("Library/Media/master.jpg");
  fs::create_directory_symlink(root_ / "Library", root_ / "shortcut");
  ASSERT_EQ(mkfifo((root_ / "pipe").c_str(), 0600), 0);
  const WalkResult result = walk({.excludedFolders = {(root_ / "Library").native()}});
  EXPECT_THAT(names(result), ElementsAre("photo.jpg"));
  EXPECT_EQ(result.skipped.size(), 3u);
  EXPECT_THAT(result.failures, IsEmpty());
}

TEST_F(FileWalk, ReportsWhatItCannotTakeAndGoesOn) {
  write("last.jpg");
  fs::create_symlink("nowhere", root_ / "dangling");
  const WalkResult result = findFiles({(root_ / "missing").native(), root_.native() + "/"}, {});
  EXPECT_THAT(names(result), ElementsAre("last.jpg"));
  ASSERT_EQ(result.failures.size(), 2u);
  EXPECT_EQ(result.failures[0].reason, "no such file or folder");
  EXPECT_EQ(result.failures[1].reason, "a link to something that does not exist");
}

TEST_F(FileWalk, ReportsAFolderThatItMayNotRead) {
  write("locked/file");
  write("open");
  fs::permissions(root_, fs::perms::all);
  fs::permissions(root_ / "locked", fs::perms::none);
  // Root reads every folder, so it steps down for the walk.
  constexpr uid_t kNobody = 65534;
  const uid_t user = geteuid();
  if (user == 0 && seteuid(kNobody) != 0) GTEST_SKIP() << "cannot step down";
  const WalkResult result = walk();
  EXPECT_EQ(seteuid(user), 0);
  fs::permissions(root_ / "locked", fs::perms::owner_all);
  EXPECT_THAT(names(result), ElementsAre("open"));
  EXPECT_EQ(result.failures.size(), 1u);
}

}  // namespace
}  // namespace vornex::cli
