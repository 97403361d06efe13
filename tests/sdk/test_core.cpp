#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vornex/Log.h>
#include <vornex/NotificationCenter.h>
#include <vornex/TQVornexUtil.h>

#include <fstream>
#include <map>
#include <regex>

#include "core/Localization.h"
#include "core/TypeTables.h"
#include "foundation/Files.h"
#include "foundation/PropertyList.h"
#include "support/TemporaryFolder.h"

using namespace vornex;
using vornex::testing::TemporaryFolder;

TEST(Errors, AreReadFromResponses) {
  auto read = [](Value response) { return TQVornexUtil::errorWithResponse(response); };
  EXPECT_FALSE(read(Value()));
  EXPECT_FALSE(read("text"));
  EXPECT_FALSE(read(Dictionary{{"items", Array{}}}));
  EXPECT_FALSE(read(Dictionary{{"Status", Value()}}));
  EXPECT_FALSE(read(Array{1, "x", Dictionary{}}));
  EXPECT_EQ(read(Array{1, Dictionary{{"Status", Dictionary{{"code", 8}}}}})->code(), 8);
  TQErrorPtr error = read(Dictionary{{"Status", Dictionary{{"code", "27"}, {"msg", "x"}}}});
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code(), 27);
  EXPECT_EQ(error->message(), "x");
  EXPECT_FALSE(error->domain());
  EXPECT_EQ(read(Dictionary{{"Status", Dictionary{}}})->code(), -1);
}

TEST(Errors, NotificationsBelongToTheirCodes) {
  const std::map<std::int64_t, std::string> names = {{2, "TQLibraryDBErrorNotification"},
                                                     {4, "TQLibraryNoAuthorityNotification"},
                                                     {8, "TQLibraryDBNotFoundNotification"},
                                                     {26, "TQLibraryAuthFailedNotification"},
                                                     {27, "TQLibraryNotSharedNotification"},
                                                     {31, "TQLibraryCannotConnectToHostNotification"},
                                                     {38, "TQNetworkLibraryAlreadyLoginNotification"},
                                                     {39, "TQNetwokLibraryExceedSessionCountNotification"},
                                                     {40, "TQClientNeedUpdateNotification"}};
  const std::map<std::int64_t, std::string> lines = {{38, "다른 장비에서 로그인... NOTI!!!!!!"},
                                                     {39, "로그인 갯수 초과 NOTI!!!!!!"},
                                                     {40, "클라이언트 버전 업데이트 필요!!!!!!"}};
  std::vector<Notification> posted;
  std::vector<std::string> logged;
  setLogSink([&](LogLevel, const std::string& line) { logged.push_back(line); });
  auto token = NotificationCenter::defaultCenter().addObserver(
      "", [&](const Notification& notification) { posted.push_back(notification); });
  TQVornexUtil::sendNotificationWithError(nullptr);
  EXPECT_TRUE(logged.empty());
  for (std::int64_t code = -1; code <= 50; ++code) {
    posted.clear();
    logged.clear();
    TQVornexUtil::sendNotificationWithError(
        std::make_shared<const TQError>(kVornexErrorDomain, code, Dictionary{{"dbname", "films"}}));
    ASSERT_EQ(posted.size(), names.count(code)) << code;
    ASSERT_EQ(logged.size(), 1 + lines.count(code)) << code;
    EXPECT_TRUE(logged[0].starts_with("sendNotificationWithError:"));
    if (lines.contains(code)) {
      EXPECT_EQ(logged[1], lines.at(code));
    }
    if (posted.empty()) continue;
    EXPECT_EQ(posted[0].name, names.at(code));
    EXPECT_EQ(std::any_cast<std::string>(posted[0].object), "films");
    EXPECT_TRUE(posted[0].userInfo.empty());
  }
  TQVornexUtil::sendNotificationWithError(TQVornexUtil::errorWithCode(2, ""));
  EXPECT_FALSE(posted.back().object.has_value());
  NotificationCenter::defaultCenter().removeObserver(token);
  setLogSink(nullptr);
}

TEST(Localization, LanguagesHaveTheSameKeysAndFallBackToEnglish) {
  std::string folder = TypeTables::resourceFolder();
  Dictionary english = readDictionaryFile(appendPathComponent(folder, "en.strings.plist")).value();
  Dictionary korean = readDictionaryFile(appendPathComponent(folder, "ko.strings.plist")).value();
  EXPECT_EQ(english.size(), korean.size());
  for (const auto& [key, text] : english) EXPECT_TRUE(korean.contains(key)) << key;
  EXPECT_EQ(Localization(folder, "ko").text("library.desc.local"), "로컬 라이브러리");
  EXPECT_EQ(Localization(folder, "fr").text("library.desc.local"), "Local library");
  EXPECT_EQ(Localization(folder, "ko").text("no.such.key"), "");

  for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) ::unsetenv(name);
  EXPECT_EQ(Localization::userLanguage(), "en");
  ::setenv("LANG", "ko_KR.UTF-8", 1);
  EXPECT_EQ(Localization::userLanguage(), "ko");
  ::setenv("LC_MESSAGES", "C.UTF-8", 1);
  EXPECT_EQ(Localization::userLanguage(), "en");
}

TEST(Folders, PackageFoldersAreMadeOrTakenAsTheyAre) {
  TemporaryFolder folder;
  std::string package = folder / "a/b";
  EXPECT_TRUE(TQVornexUtil::createPackageFolder(package, std::nullopt));
  ASSERT_TRUE(writeFileAtomically(folder / "a/b/kept", "content"));
  EXPECT_TRUE(TQVornexUtil::createPackageFolder(package, "/icons/odd\nname.png"));
  EXPECT_TRUE(fileExists(folder / "a/b/kept"));
  EXPECT_EQ(readFile(folder / "a/b/.directory").value_or(""),
            "[Desktop Entry]\nType=Directory\nIcon=/icons/odd\\nname.png\n");
  EXPECT_TRUE(TQVornexUtil::createPackageFolder(package, "/icons/other.png"));
  EXPECT_TRUE(readFile(folder / "a/b/.directory").value_or("").ends_with("odd\\nname.png\n"))
      << "the user's own choice stays";
  EXPECT_FALSE(TQVornexUtil::createPackageFolder(std::nullopt, std::nullopt));
  EXPECT_FALSE(TQVornexUtil::createPackageFolder(folder / "a/b/kept", std::nullopt));
  EXPECT_FALSE(TQVornexUtil::createPackageFolder(folder / "a/b/kept/under", std::nullopt));
  std::filesystem::create_symlink("nowhere", folder / "dangling");
  std::string log;
  setLogSink([&](LogLevel, const std::string& line) { log += line + '\n'; });
  EXPECT_FALSE(TQVornexUtil::createPackageFolder(folder / "dangling", std::nullopt));
  setLogSink(nullptr);
  EXPECT_TRUE(log.starts_with("createPackageFolder, Can't create folder.\ncreate folder ")) << log;
}

TEST(Folders, SizeCountsEverythingBelowOnce) {
  TemporaryFolder folder;
  std::filesystem::create_directories(folder / "tree/sub");
  std::ofstream(folder / "tree/ten") << "0123456789";
  std::ofstream(folder / "tree/sub/five") << "01234";
  auto subFolder = std::filesystem::path(folder / "tree/sub");
  struct stat info {};
  ASSERT_EQ(::stat(subFolder.c_str(), &info), 0);
  TQErrorPtr error;
  auto expected = 15 + static_cast<std::uint64_t>(info.st_size);
  EXPECT_EQ(sizeForFolderAtPath(folder / "tree", &error), expected);
  std::filesystem::create_symlink("..", folder / "tree/sub/loop");
  EXPECT_EQ(sizeForFolderAtPath(folder / "tree", &error), expected + 2);
  EXPECT_FALSE(error);
  EXPECT_EQ(sizeForFolderAtPath(folder / "tree/ten", &error), 0u);
  EXPECT_EQ(sizeForFolderAtPath(folder / "none", &error), 0u);

  std::filesystem::permissions(folder.path(), std::filesystem::perms::all);
  std::filesystem::permissions(folder / "tree/sub", std::filesystem::perms::none);
  const uid_t user = ::geteuid();
  ASSERT_TRUE(user != 0 || ::seteuid(65534) == 0) << "to root nothing is closed";
  EXPECT_EQ(sizeForFolderAtPath(folder / "tree", &error), expected - 5);
  ASSERT_TRUE(user != 0 || ::seteuid(user) == 0);
  std::filesystem::permissions(folder / "tree/sub", std::filesystem::perms::all);
  ASSERT_TRUE(error) << "what could not be read";
  EXPECT_EQ(error->code(), EACCES);
}

TEST(Paths, FollowTheLayout) {
  ::setenv("VORNEX_ROOT", "/r", 1);
  EXPECT_EQ(TQVornexUtil::workflowPlist(), "/r/Preference/Workflow/workflow.plist");
  EXPECT_EQ(TQVornexUtil::workflowPreferencePlist(), "/r/Preference/Workflow/workflowPreference.plist");
  EXPECT_EQ(TQVornexUtil::networkUserPlistFromBrindle(), "/r/Preference/networkUsers.plist");
  EXPECT_EQ(TQVornexUtil::fcpxLibraryPlistWithPackageFolder("/p/"), "/p/FCPXLibrary/fcpxlibrary.plist");
  EXPECT_FALSE(TQVornexUtil::libraryPlistWithPackageFolder(std::nullopt));
  EXPECT_FALSE(TQVornexUtil::assetFolderWithGroupName(std::nullopt));
  std::string dated = TQVornexUtil::assetFolderWithGroupName("group").value_or("");
  EXPECT_TRUE(std::regex_match(dated, std::regex("/[0-9]{4}/[01][0-9]/[0-3][0-9]/group"))) << dated;
  EXPECT_TRUE(
      std::regex_match(TQVornexUtil::assetLiveFolder(), std::regex("LF[0-2][0-9][0-5][0-9][0-6][0-9]")));
}

TEST(Values, DatesGpsAndVolumes) {
  Date date = *TQVornexUtil::dateFromNumber(20240305140709250);
  EXPECT_EQ(TQVornexUtil::dateNumberFromDate(date), 20240305140709250);
  EXPECT_EQ(TQVornexUtil::dateNumberFromDate(date, "999"), 20240305140709999);
  EXPECT_FALSE(TQVornexUtil::dateFromNumber(std::nullopt));
  EXPECT_GT(TQVornexUtil::dateNumberFromDate(std::nullopt), 20240305140709250);

  EXPECT_DOUBLE_EQ(TQVornexUtil::convertFromGPSString("37,33.50N"), 37 + (0.5 + 33) / 60);
  EXPECT_DOUBLE_EQ(TQVornexUtil::convertFromGPSString("122,01.805W"), -(122 + 1.8 / 60));
  EXPECT_DOUBLE_EQ(TQVornexUtil::convertFromGPSString("-10 30 00 S"), 9.5);
  EXPECT_EQ(TQVornexUtil::convertFromGPSString("37,33N"), 0.0);
  EXPECT_EQ(TQVornexUtil::convertFromGPSString(""), 0.0);

  Dictionary volume{{"volumename", "Media"}, {"volumenetwork", false}};
  EXPECT_EQ(TQVornexUtil::assetVolumeDescFromVolumeInfo(volume), "Media");
  volume.merge(
      {{"volumeprotocol", "USB"}, {"volumevendor", ""}, {"volumemodel", "X1"}, {"volumekind", "ext4"}});
  EXPECT_EQ(TQVornexUtil::assetVolumeDescFromVolumeInfo(volume), "Media (USB X1)");
  volume.set("volumenetwork", true);
  EXPECT_EQ(TQVornexUtil::assetVolumeDescFromVolumeInfo(volume), "Media (Network Volume) ext4");
  EXPECT_FALSE(TQVornexUtil::assetVolumeDescFromVolumeInfo(std::nullopt));
  std::optional<Dictionary> info = TQVornexUtil::assetVolumeInfoFromVolumePath("/");
  ASSERT_TRUE(info);
  EXPECT_EQ(info->size(), 6u);
  EXPECT_NE(info->find("volumekind")->ifString()->size(), 0u);
  EXPECT_FALSE(TQVornexUtil::assetVolumeInfoFromVolumePath(std::nullopt));
}
