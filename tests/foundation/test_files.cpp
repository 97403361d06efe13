#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "foundation/Files.h"
#include "support/TemporaryFolder.h"

using namespace vornex;
using vornex::testing::TemporaryFolder;

static std::size_t entryCount(const std::string& folder) {
  auto entries = std::filesystem::directory_iterator(folder);
  return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

TEST(Files, AtomicWriteReplacesWholeAndLeavesNothingBeside) {
  TemporaryFolder folder;
  std::string path = folder / "file";
  ASSERT_TRUE(writeFileAtomically(path, "old", 0600));
  struct stat info;
  ASSERT_EQ(::stat(path.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600u);
  ASSERT_TRUE(writeFileAtomically(path, std::string(100000, 'n')));
  EXPECT_EQ(readFile(path).value_or(""), std::string(100000, 'n'));
  EXPECT_EQ(entryCount(folder.path()), 1u);
}

TEST(Files, FailedAtomicWriteKeepsTheOldContent) {
  TemporaryFolder folder;
  std::filesystem::create_directory(folder / "target");
  ASSERT_TRUE(writeFileAtomically(folder / "target/inside", "kept"));
  Result<void> result = writeFileAtomically(folder / "target", "content");
  ASSERT_FALSE(result);
  EXPECT_EQ(result.error().domain, "posix");
  EXPECT_EQ(readFile(folder / "target/inside").value_or(""), "kept");
  EXPECT_EQ(entryCount(folder.path()), 1u);
  EXPECT_FALSE(writeFileAtomically(folder / "missing/file", "content"));
}

TEST(Files, ReadRefusesFoldersMissingAndOversizedFiles) {
  TemporaryFolder folder;
  ASSERT_TRUE(writeFileAtomically(folder / "big", std::string(1000, 'x')));
  EXPECT_EQ(readFile(folder / "big", 999).error().code, EFBIG);
  EXPECT_EQ(readFile(folder / "big", 1000).value_or("").size(), 1000u);
  EXPECT_EQ(readFile(folder.path()).error().code, EISDIR);
  EXPECT_EQ(readFile(folder / "none").error().code, ENOENT);
}

TEST(Files, FoldersAreMadeWithTheOnesAbove) {
  TemporaryFolder folder;
  ASSERT_TRUE(createDirectories(folder / "a/b/c"));
  ASSERT_TRUE(createDirectories(folder / "a/b/c/"));
  ASSERT_TRUE(writeFileAtomically(folder / "a/file", ""));
  EXPECT_FALSE(createDirectories(folder / "a/file/x"));
  EXPECT_FALSE(createDirectories(folder / "a/file"));
}

TEST(Paths, ComponentsCollapseAndSplit) {
  EXPECT_EQ(appendPathComponent("/root/", "/Workflow//workflow.plist"), "/root/Workflow/workflow.plist");
  EXPECT_EQ(appendPathComponent("/", "a"), "/a");
  EXPECT_EQ(appendPathComponent("a", ""), "a");
  EXPECT_EQ(lastPathComponent("/a/b/"), "b");
  EXPECT_EQ(deletingLastPathComponent("/a"), "/");
  EXPECT_EQ(deletingLastPathComponent("/a//b"), "/a");
  EXPECT_EQ(deletingLastPathComponent("a"), "");
  EXPECT_EQ(pathExtension("/a.b/clip.MOV"), "MOV");
  EXPECT_EQ(pathExtension("/a.b/clip"), "");
  EXPECT_EQ(pathExtension("/a/.profile"), "");
  EXPECT_EQ(pathExtension("clip."), "");
  EXPECT_EQ(deletingPathExtension("/a/b.tar.gz"), "/a/b.tar");
  EXPECT_EQ(deletingPathExtension(".profile"), ".profile");
}
