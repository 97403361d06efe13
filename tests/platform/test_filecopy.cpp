#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <future>
#include <thread>

#include "Fixtures.h"
#include "foundation/FileDescriptor.h"
#include "platform/FileCopy.h"
#include "support/HungMount.h"
#include "support/TemporaryFolder.h"

namespace vornex {

namespace fs = std::filesystem;

class FileCopy : public ::testing::Test {
 protected:
  /// A file of so many megabytes, not compressible by sharing zero pages.
  std::string makeFile(const std::string& name, int megabytes) {
    std::string block(1 << 20, '\0');
    for (std::size_t i = 0; i < block.size(); ++i) block[i] = static_cast<char>(i * 31 + i / 977);
    std::ofstream stream(folder_ / name, std::ios::binary);
    for (int i = 0; i < megabytes; ++i) stream << block;
    return folder_ / name;
  }

  std::vector<std::string> namesInFolder(const std::string& path) {
    std::vector<std::string> names;
    for (const auto& item : fs::directory_iterator(path)) names.push_back(item.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
  }

  testing::TemporaryFolder folder_;
};

TEST_F(FileCopy, AFileArrivesWholeWithItsModeTimesAndAttributes) {
  std::string source = makeFile("a.bin", 40);
  chmod(source.c_str(), 0640);
  bool hasAttributes = setxattr(source.c_str(), "user.note", "hello", 5, 0) == 0;
  fs::last_write_time(source, fs::file_time_type::clock::now() - std::chrono::hours(1000));
  std::vector<std::uint64_t> reports;
  auto copied = copyItem(source, folder_ / "b.bin", [&](std::uint64_t done, std::uint64_t total) {
    EXPECT_EQ(total, 40u << 20);
    reports.push_back(done);
    return true;
  });
  ASSERT_TRUE(copied) << copied.error().message;
  EXPECT_EQ(*copied, 40u << 20);
  EXPECT_EQ(readFile(source).value(), readFile(folder_ / "b.bin").value());
  EXPECT_EQ(fs::last_write_time(source), fs::last_write_time(folder_ / "b.bin"));
  EXPECT_EQ(fs::status(folder_ / "b.bin").permissions(), fs::perms(0640));
  if (hasAttributes) {
    char value[16] = {};
    EXPECT_EQ(getxattr((folder_ / "b.bin").c_str(), "user.note", value, sizeof value), 5);
  }
  EXPECT_EQ(reports.front(), 0u);
  EXPECT_EQ(reports.back(), 40u << 20);
  EXPECT_TRUE(std::is_sorted(reports.begin(), reports.end()));
  // Where the file system shares the space of both files, there is little to tell.
  FileDescriptor original(open(source.c_str(), O_RDONLY)),
      clone(open((folder_ / "c").c_str(), O_WRONLY | O_CREAT, 0600));
  bool isShared = ioctl(clone.get(), FICLONE, original.get()) == 0;
  EXPECT_GE(reports.size(), isShared ? 2u : 4u);
}

TEST_F(FileCopy, AFolderArrivesWithItsLinksAndEmptyFolders) {
  fs::create_directories(folder_ / "tree/sub/empty");
  testing::write(folder_ / "tree/sub/one", "1");
  testing::write(folder_ / "tree/two", "22");
  fs::create_symlink("sub/one", folder_ / "tree/link");
  fs::create_symlink("/nowhere", folder_ / "tree/dangling");
  chmod((folder_ / "tree/sub").c_str(), 0555);
  auto copied = copyItem(folder_ / "tree", folder_ / "copy");
  ASSERT_TRUE(copied) << copied.error().message;
  EXPECT_EQ(*copied, 3u);
  EXPECT_EQ(readFile(folder_ / "copy/sub/one").value(), "1");
  EXPECT_TRUE(fs::is_directory(folder_ / "copy/sub/empty"));
  EXPECT_EQ(fs::read_symlink(folder_ / "copy/link"), "sub/one");
  EXPECT_EQ(fs::read_symlink(folder_ / "copy/dangling"), "/nowhere");
  EXPECT_EQ(fs::status(folder_ / "copy/sub").permissions(), fs::perms(0555));
  chmod((folder_ / "tree/sub").c_str(), 0755);
  chmod((folder_ / "copy/sub").c_str(), 0755);

  auto inside = copyItem(folder_ / "tree", folder_ / "tree/sub/copy");
  ASSERT_FALSE(inside);
  EXPECT_EQ(inside.error().code, EINVAL);
}

TEST_F(FileCopy, AnExistingTargetIsNeverReplaced) {
  std::string source = makeFile("a", 1);
  testing::write(folder_ / "b", "old");
  EXPECT_EQ(copyItem(source, folder_ / "b").error().code, EEXIST);
  EXPECT_EQ(readFile(folder_ / "b").value(), "old");

  // One that appears while the copy is under way.
  auto late = copyItem(source, folder_ / "c", [&](std::uint64_t done, std::uint64_t) {
    if (done > 0) testing::write(folder_ / "c", "new");
    return true;
  });
  ASSERT_FALSE(late);
  EXPECT_EQ(late.error().code, EEXIST);
  EXPECT_EQ(readFile(folder_ / "c").value(), "new");
  EXPECT_EQ(namesInFolder(folder_.path()), (std::vector<std::string>{"a", "b", "c"}));
}

TEST_F(FileCopy, FailuresLeaveNothingBehind) {
  fs::create_directories(folder_ / "tree/deep");
  makeFile("tree/deep/big", 40);
  fs::create_directory(folder_ / "target");
  std::string target = folder_ / "target/copy";
  auto failsWith = [&](int code, const std::string& source, const CopyProgress& progress) {
    auto copied = copyItem(source, target, progress);
    ASSERT_FALSE(copied);
    EXPECT_EQ(copied.error().code, code) << copied.error().message;
    EXPECT_TRUE(namesInFolder(folder_ / "target").empty());
  };
  std::string big = folder_ / "tree/deep/big";
  auto once = [](std::uint64_t done, auto action) {
    if (done > 0) action();
    return true;
  };
  failsWith(ECANCELED, folder_ / "tree", [](std::uint64_t done, std::uint64_t) { return done == 0; });
  failsWith(ECANCELED, big, [](std::uint64_t, std::uint64_t) { return false; });
  failsWith(ENOENT, folder_ / "missing", {});
  failsWith(ESTALE, big, [&](std::uint64_t done, std::uint64_t) {
    return once(done, [&] { std::ofstream(big, std::ios::app) << "more"; });
  });
  makeFile("tree/deep/big", 40);
  failsWith(ESTALE, big,
            [&](std::uint64_t done, std::uint64_t) { return once(done, [&] { fs::resize_file(big, 10); }); });
  makeFile("tree/deep/big", 40);
  failsWith(ENOENT, big,
            [&](std::uint64_t done, std::uint64_t) { return once(done, [&] { fs::remove(big); }); });
  ASSERT_EQ(mkfifo((folder_ / "tree/pipe").c_str(), 0600), 0);
  failsWith(ENOTSUP, folder_ / "tree", {});
  failsWith(ENOTSUP, folder_ / "tree/pipe", {});
  EXPECT_EQ(copyItem(big, folder_ / "nowhere/copy").error().code, ENOENT);
}

TEST_F(FileCopy, AVerifiedCopyTellsItsDigestAndADifferentOneNeverAppears) {
  fs::create_directories(folder_ / "tree/sub");
  makeFile("tree/a", 3);
  testing::write(folder_ / "tree/sub/empty", "");
  fs::create_symlink("a", folder_ / "tree/link");
  CopyOptions verifying;
  verifying.verify = true;
  auto tree = copyItem(folder_ / "tree", folder_ / "copy", verifying);
  ASSERT_TRUE(tree) << tree.error().message;
  EXPECT_EQ(copyItem(folder_ / "copy", folder_ / "again", verifying)->digest, tree->digest);
  testing::write(folder_ / "abc", "abc");
  EXPECT_EQ(copyItem(folder_ / "abc", folder_ / "abc 2", verifying)->digest,
            "xxh128:06b05ab6733a618578af5f94892f3950");
  EXPECT_FALSE(copyItem(folder_ / "abc", folder_ / "abc 3", CopyOptions())->digest);

  // A disk that stores something else than was written.
  std::string source = makeFile("source", 20);
  fs::create_directory(folder_ / "target");
  verifying.progress = [&](std::uint64_t done, std::uint64_t total) {
    for (const auto& item : fs::directory_iterator(folder_ / "target"))
      if (3 * done == total) std::fstream(item.path(), std::ios::in | std::ios::out).seekp(5 << 20) << "!";
    return true;
  };
  // The last look before the comparison comes after 16 of 20 megabytes: let the source end there.
  fs::resize_file(source, 16 << 20);
  auto differing = copyItem(source, folder_ / "target/copy", verifying);
  ASSERT_FALSE(differing);
  EXPECT_EQ(differing.error().code, EIO) << differing.error().message;
  EXPECT_TRUE(namesInFolder(folder_ / "target").empty());

  // The comparison can be stopped as well, while it reads the source and while it reads the copy.
  for (double part : {0.6, 0.9}) {
    verifying.progress = [&](std::uint64_t done, std::uint64_t total) {
      return static_cast<double>(done) < part * static_cast<double>(total);
    };
    EXPECT_EQ(copyItem(makeFile("source", 40), folder_ / "target/copy", verifying).error().code, ECANCELED);
    EXPECT_TRUE(namesInFolder(folder_ / "target").empty());
  }
}

TEST_F(FileCopy, ADiskThatAnswersNoMoreIsGivenUp) {
  fs::create_directory(folder_ / "target");
  for (bool isTarget : {false, true}) {
    testing::HungMount mount(folder_ / "mount", folder_ / (isTarget ? "second-mount" : "first-mount"));
    if (!mount.isMounted()) GTEST_SKIP() << "this process may not mount";
    if (isTarget) mount.fallSilent();
    CopyWatch watch;
    std::atomic<bool> abandoned = false, toldLater = false;
    CopyOptions watched;
    watched.watch = &watch;
    watched.progress = [&](std::uint64_t, std::uint64_t) {
      if (abandoned) toldLater = true;
      return true;
    };
    const std::string source = isTarget ? makeFile("source", 4) : folder_ / "mount/file";
    const std::string target = folder_ / (isTarget ? "mount/copy" : "target/copy");
    auto copy = std::async(std::launch::async, [&] { return copyItem(source, target, watched); });
    const std::chrono::milliseconds patience(1500);
    const CopyWatch::Patience limits = isTarget ? CopyWatch::Patience{std::chrono::hours(1), patience}
                                                : CopyWatch::Patience{patience, std::chrono::hours(1)};
    for (int i = 0; i < 1000 && !abandoned; ++i) {
      abandoned = watch.abandonIfStuck(limits);
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_TRUE(abandoned);
    EXPECT_EQ(copy.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
    EXPECT_TRUE(namesInFolder(folder_ / "target").empty());
    mount.end();
    EXPECT_FALSE(copy.get());
    EXPECT_FALSE(toldLater);
    EXPECT_TRUE(namesInFolder(folder_ / "target").empty());
  }
}

TEST_F(FileCopy, TheUnfinishedCopyIsRecognised) {
  std::string source = makeFile("a", 20);
  bool seen = false;
  ASSERT_TRUE(copyItem(source, folder_ / "b", [&](std::uint64_t, std::uint64_t) {
    for (const std::string& name : namesInFolder(folder_.path())) seen = seen || isUnfinishedCopy(name);
    return true;
  }));
  EXPECT_TRUE(seen);
  EXPECT_FALSE(isUnfinishedCopy("b"));
}

TEST_F(FileCopy, AnExceededLimitIsToldAndCleanedUp) {
  // A size limit of the process stands in for a full disk.
  std::string source = makeFile("a", 4);
  auto copyUnderLimit = [&] {
    signal(SIGXFSZ, SIG_IGN);
    rlimit limit{};
    limit.rlim_cur = limit.rlim_max = 1 << 20;
    setrlimit(RLIMIT_FSIZE, &limit);
    auto copied = copyItem(source, folder_ / "b");
    bool clean = namesInFolder(folder_.path()) == std::vector<std::string>{"a"};
    std::exit(!copied && copied.error().code == EFBIG && clean ? 0 : 1);
  };
  EXPECT_EXIT(copyUnderLimit(), ::testing::ExitedWithCode(0), "");
}

}  // namespace vornex
