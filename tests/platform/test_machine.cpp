#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "Fixtures.h"
#include "platform/AliasFile.h"
#include "platform/FileTags.h"
#include "platform/FolderAccess.h"
#include "platform/MachineIdentity.h"
#include "platform/Volumes.h"
#include "support/TemporaryFolder.h"

namespace vornex {

namespace fs = std::filesystem;

TEST(Machine, IdentifierIsAnUpperCaseUuid) {
  auto identifier = machineIdentifier();
  if (!fs::exists("/etc/machine-id")) GTEST_SKIP() << "no machine identifier here";
  ASSERT_TRUE(identifier);
  EXPECT_THAT(*identifier, ::testing::MatchesRegex("[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}"));
}

TEST(Volumes, DescribesMountedFileSystems) {
  auto root = volumeDescription("/usr");
  ASSERT_TRUE(root);
  EXPECT_EQ(*root->find(volumeKey::network), Value(false));
  EXPECT_FALSE(root->find(volumeKey::kind)->ifString()->empty());
  EXPECT_EQ(*root->find(volumeKey::path), Value(mountPath("/usr")));
  auto process = volumeDescription("/proc/self/status");
  ASSERT_TRUE(process);
  EXPECT_EQ(*process->find(volumeKey::path), Value("/proc"));
  EXPECT_EQ(*process->find(volumeKey::kind), Value("proc"));
  EXPECT_EQ(*process->find(volumeKey::name), Value("proc"));
  EXPECT_FALSE(process->contains(volumeKey::model));
  EXPECT_FALSE(volumeDescription("/no/such/place"));
  EXPECT_FALSE(mountPath(""));
}

/// What a disk of several kinds of mounts looks like; gives what differs from the expected. Runs in a process
/// and mount namespace of its own.
std::string lookAtMounts(const std::string& folder) {
  fs::create_directories(folder + "/disk");
  if (mount("none", (folder + "/disk").c_str(), "tmpfs", 0, nullptr) != 0) return "skip";
  for (const char* name : {"disk/clips", "disk/upper", "disk/work", "bound", "layered"})
    fs::create_directories(folder + "/" + name);
  std::string layers =
      fmt::format("lowerdir={0}/disk/clips,upperdir={0}/disk/upper,workdir={0}/disk/work", folder);
  if (mount((folder + "/disk/clips").c_str(), (folder + "/bound").c_str(), nullptr, MS_BIND, nullptr) != 0 ||
      mount("none", (folder + "/layered").c_str(), "overlay", 0, layers.c_str()) != 0)
    return "skip";

  Data disk = makeAccessToken(folder + "/disk").value();
  std::string wrong;
  auto expect = [&](const std::string& name, const std::string& kind) {
    auto volume = volumeDescription(folder + "/" + name).value_or(Dictionary());
    auto is = [&](const char* key, const Value& value) {
      const Value* found = volume.find(key);
      if (!found || *found != value) wrong += name + ": " + key + "; ";
    };
    is(volumeKey::path, folder + "/" + name);
    is(volumeKey::name, name);
    is(volumeKey::kind, kind);
    is(volumeKey::network, false);
    if (volume.contains(volumeKey::model)) wrong += name + " has a model; ";
  };
  expect("disk", "tmpfs");
  expect("bound", "tmpfs");
  expect("layered", "overlay");
  if (mountPath(folder + "/disk/clips") != folder + "/disk") wrong += "a folder on the disk; ";
  umount2((folder + "/layered").c_str(), MNT_DETACH);
  umount2((folder + "/bound").c_str(), MNT_DETACH);
  umount2((folder + "/disk").c_str(), MNT_DETACH);
  // The mount point is still there, but the disk is not.
  auto gone = resolveAccessToken(disk);
  if (gone || gone.error().code != ESTALE) wrong += "an unmounted disk resolves; ";
  return wrong;
}

TEST(Volumes, BindMountsOverlaysAndUnmountedDisks) {
  testing::TemporaryFolder folder;
  std::array<int, 2> answer{};
  ASSERT_EQ(pipe(answer.data()), 0);
  pid_t child = fork();
  if (child == 0) {
    bool isolated = unshare(geteuid() == 0 ? CLONE_NEWNS : CLONE_NEWUSER | CLONE_NEWNS) == 0 &&
                    mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    std::string wrong = isolated ? lookAtMounts(folder.path()) : "skip";
    [[maybe_unused]] ssize_t written = write(answer[1], wrong.data(), wrong.size());
    _exit(0);
  }
  close(answer[1]);
  std::string wrong(4096, '\0');
  wrong.resize(static_cast<std::size_t>(std::max<ssize_t>(read(answer[0], wrong.data(), wrong.size()), 0)));
  close(answer[0]);
  int status = -1;
  waitpid(child, &status, 0);
  if (wrong == "skip") GTEST_SKIP() << "nothing may be mounted here";
  EXPECT_EQ(status, 0);
  EXPECT_EQ(wrong, "");
}

TEST(Aliases, StandForAnItemElsewhere) {
  testing::TemporaryFolder folder;
  std::string item = folder / "clip.mov";
  testing::write(item, "frames");
  ASSERT_TRUE(makeAlias(item, folder / "link"));
  ASSERT_TRUE(makeAliasFile(item, folder / "file"));
  EXPECT_TRUE(fs::is_symlink(folder / "link"));
  for (const char* name : {"link", "file"}) {
    EXPECT_TRUE(isAlias(folder / name)) << name;
    EXPECT_EQ(resolveAlias(folder / name).value(), item) << name;
    EXPECT_EQ(makeAlias(item, folder / name).error().code, EEXIST) << name;
  }
  EXPECT_FALSE(isAlias(item));
  EXPECT_EQ(resolveAlias(item).error().code, EINVAL);
  EXPECT_EQ(resolveAlias(folder.path()).error().code, EINVAL);

  fs::rename(item, folder / "moved.mov");
  EXPECT_EQ(resolveAlias(folder / "link").value(), item) << "a link tells where it leads, whatever is there";
  EXPECT_EQ(resolveAlias(folder / "file").error().code, ENOENT);
  testing::write(folder / "broken", "vornex alias 1\nno token");
  EXPECT_TRUE(isAlias(folder / "broken"));
  EXPECT_EQ(resolveAlias(folder / "broken").error().domain, "access");
}

TEST(FolderAccess, ATokenNoticesThatItsFolderIsGoneOrReplaced) {
  testing::TemporaryFolder folder;
  std::string path = folder / "chosen";
  EXPECT_EQ(makeAccessToken(path).error().code, ENOENT);
  fs::create_directory(path);
  fs::create_directories(folder / "elsewhere/below");
  fs::create_symlink("elsewhere/below", folder / "link");
  const std::string behind = folder / "link/../below";
  EXPECT_EQ(resolveAccessToken(makeAccessToken(behind).value()).value(), behind);
  auto token = makeAccessToken(folder / ".//chosen/");
  ASSERT_TRUE(token) << token.error().message;
  EXPECT_EQ(resolveAccessToken(*token).value(), path);
  testing::write(path + "/file", "a change inside is none of its own");
  EXPECT_TRUE(resolveAccessToken(*token));

  fs::rename(path, folder / "moved");
  EXPECT_EQ(resolveAccessToken(*token).error().code, ENOENT);
  fs::create_directory(path);
  EXPECT_EQ(resolveAccessToken(*token).error().code, ESTALE);
  fs::remove(path);
  fs::rename(folder / "moved", path);
  EXPECT_TRUE(resolveAccessToken(*token));

  if (geteuid() != 0) {
    fs::permissions(path, fs::perms::none);
    EXPECT_EQ(resolveAccessToken(*token).error().code, EACCES);
    fs::permissions(path, fs::perms::owner_all);
  }
}

TEST(FolderAccess, AFolderMadeAnewUnderTheSameNumberIsAnother) {
  testing::TemporaryFolder folder;
  std::string path = folder / "chosen";
  // Most file systems give a freed inode number to the next folder.
  for (int i = 0; i < 20; ++i) {
    fs::create_directory(path);
    Data token = makeAccessToken(path).value();
    fs::remove(path);
    usleep(10'000);
    fs::create_directory(path);
    EXPECT_EQ(resolveAccessToken(token).error().code, ESTALE);
    fs::remove(path);
  }
}

TEST(FolderAccess, BytesThatAreNoTokenAreRefused) {
  for (std::string_view bytes : {"", "bplist00", "/home/user", "<plist><dict></dict></plist>"}) {
    auto path = resolveAccessToken(Data(bytes.begin(), bytes.end()));
    ASSERT_FALSE(path);
    EXPECT_EQ(path.error().domain, "access");
  }
}

TEST(FileTags, AreReadAsTheDesktopsWriteThem) {
  testing::TemporaryFolder folder;
  std::string path = folder / "a";
  testing::write(path, "x");
  std::string_view stored = " red, holiday ,,\xff";
  if (setxattr(path.c_str(), "user.xdg.tags", stored.data(), stored.size(), 0) != 0) {
    GTEST_SKIP() << "no attributes here";
  }
  EXPECT_EQ(fileTags(path).value(), (std::vector<std::string>{"red", "holiday", "\uFFFD"}));
  ASSERT_TRUE(setFileTags(path, {"Ostsee", "", "große Fahrt"}));
  EXPECT_EQ(fileTags(path).value(), (std::vector<std::string>{"Ostsee", "große Fahrt"}));
  ASSERT_TRUE(setFileTags(path, {}));
  ASSERT_TRUE(setFileTags(path, {}));
  EXPECT_TRUE(fileTags(path).value().empty());
  EXPECT_LT(getxattr(path.c_str(), "user.xdg.tags", nullptr, 0), 0);
  EXPECT_EQ(fileTags(folder / "missing").error().code, ENOENT);
}

}  // namespace vornex
