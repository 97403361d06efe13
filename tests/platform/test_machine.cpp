#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "Fixtures.h"
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

TEST(FolderAccess, ATokenNoticesThatItsFolderIsGoneOrReplaced) {
  testing::TemporaryFolder folder;
  std::string path = folder / "chosen";
  EXPECT_EQ(makeAccessToken(path).error().code, ENOENT);
  fs::create_directory(path);
  auto token = makeAccessToken(folder / "./chosen");
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
