#include <gtest/gtest.h>

#include <set>

#include "core/StorageLayout.h"
#include "core/TypeTables.h"
#include "foundation/Text.h"
#include "support/TemporaryFolder.h"

using namespace vornex;
using vornex::testing::TemporaryFolder;

TEST(TypeTables, KnowsWhatAStudioBringsIn) {
  const TypeTables& tables = TypeTables::shared();
  auto typeOf = [&](std::initializer_list<const char*> extensions, std::int64_t type) {
    for (const char* extension : extensions) EXPECT_EQ(tables.assetType(extension), type) << extension;
  };
  typeOf({"mov", "MOV", "mxf", "r3d", "braw", "mts", "mkv"}, 0);
  typeOf({"wav", "aiff", "m4a", "FLAC"}, 1);
  typeOf({"jpg", "HEIC", "cr3", "arw", "ari", "dng", "dpx", "exr", "psd"}, 2);
  typeOf({"pdf", "docx", "hwp", "key"}, 3);
  typeOf({"xmp", "rmd", "srt", "cube", "zip", "unheard-of", ""}, 4);
  EXPECT_EQ(tables.description("mov"), "QuickTime movie");
  EXPECT_EQ(tables.description("MOV"), "");
  EXPECT_EQ(tables.description(std::nullopt), "");
}

TEST(TypeTables, ShippedTablesAreWellFormed) {
  const TypeTables& tables = TypeTables::shared();
  ASSERT_TRUE(tables.extensions() && tables.metadata());
  std::set<std::string> seen;
  for (const char* category : {"Video", "Image", "Audio", "Document", "Extra"}) {
    const Value* entries = tables.extensions()->find(category);
    ASSERT_TRUE(entries && entries->ifDictionary()) << category;
    for (const auto& [extension, description] : *entries->ifDictionary()) {
      EXPECT_TRUE(seen.insert(extension).second) << extension << " is listed twice";
      EXPECT_EQ(lowercased(extension), extension);
      EXPECT_TRUE(description.ifString() && !description.ifString()->empty()) << extension;
    }
  }
  EXPECT_EQ(tables.extensions()->size(), 5u);
  const std::pair<const char*, std::int64_t> kinds[] = {
      {"name", 0}, {"flagged", 1}, {"rating", 2}, {"filesize", 3}, {"importdate", 4}, {"unheard-of", 0}};
  for (auto [key, kind] : kinds) EXPECT_EQ(tables.metadataType(key), kind) << key;
  for (const auto& [key, kind] : *tables.metadata())
    EXPECT_TRUE(tables.metadataType(key) != 0 || kind == Value("string")) << key;
}

TEST(TypeTables, MissingTablesGiveTheFallbacks) {
  TemporaryFolder folder;
  TypeTables tables(folder.path());
  EXPECT_EQ(tables.assetType("mov"), 4);
  EXPECT_EQ(tables.description("mov"), "");
  EXPECT_EQ(tables.metadataType("name"), 4);
}

TEST(StorageLayout, RootFollowsTheEnvironment) {
  ::setenv("HOME", "/home/u", 1);
  ::unsetenv("VORNEX_ROOT");
  ::unsetenv("XDG_DATA_HOME");
  EXPECT_EQ(layout::rootFolder(), "/home/u/.local/share/com.tarnel.vornex/Vornex");
  ::setenv("XDG_DATA_HOME", "relative", 1);
  EXPECT_EQ(layout::rootFolder(), "/home/u/.local/share/com.tarnel.vornex/Vornex");
  ::setenv("XDG_DATA_HOME", "/data/", 1);
  EXPECT_EQ(layout::rootFolder(), "/data/com.tarnel.vornex/Vornex");
  ::setenv("VORNEX_ROOT", "/srv/./vornex//", 1);
  EXPECT_EQ(layout::rootFolder(), "/srv/vornex");
  EXPECT_EQ(layout::userPlist(), "/srv/vornex/Preference/users.plist");
  EXPECT_EQ(layout::databaseFolder("db"), "/srv/vornex/Database/db");
  ::setenv("VORNEX_ROOT", "here", 1);
  EXPECT_EQ(layout::rootFolder(), std::filesystem::current_path() / "here");
}
