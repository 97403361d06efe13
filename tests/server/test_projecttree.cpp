#include <gtest/gtest.h>

#include "core/StorageLayout.h"
#include "foundation/Files.h"
#include "foundation/Json.h"
#include "foundation/PropertyList.h"
#include "server/store/ProjectTree.h"
#include "support/TemporaryFolder.h"

namespace vornex::server {
namespace {

TEST(ProjectTree, FollowsTheFile) {
  testing::TemporaryFolder package;
  std::string path = layout::projectPlist(package.path());
  ASSERT_TRUE(createDirectories(deletingLastPathComponent(path)));
  ProjectTree tree(package.path());
  EXPECT_EQ(writeJson(tree.tree().value()), R"({"hash":"","projects":[]})");

  auto write = [&](const std::string& json) { ASSERT_TRUE(writePropertyListFile(path, *parseJson(json))); };
  write(R"({"hash":"H1","projects":[{"id":"1","name":"P","dbname":"d","type":0,"extra":1,"group":[)"
        R"({"id":"2","name":"G","dbname":"d","type":1}]}],"kept":"x"})");
  EXPECT_EQ(writeJson(tree.tree().value()),
            R"({"hash":"H1","projects":[{"id":"1","name":"P","dbname":"d","type":0,"group":[)"
            R"({"id":"2","name":"G","dbname":"d","type":1}]}]})");
  // Of the same size, so that only the time or the inode tells.
  write(R"({"hash":"H2","projects":[{"id":"1","name":"Q","dbname":"d","type":0,"extra":1,"group":[)"
        R"({"id":"2","name":"G","dbname":"d","type":1}]}],"kept":"x"})");
  EXPECT_EQ(*tree.tree()->find("hash"), Value("H2"));

  for (const std::string& bad : {std::string("<plist><dict>"), std::string("nonsense")}) {
    ASSERT_TRUE(writeFileAtomically(path, bad));
    EXPECT_FALSE(tree.tree());
  }
  for (const char* bad : {R"({"hash":"H"})", R"({"projects":[5]})", R"({"projects":[{"id":"1","name":"P"}]})",
                          R"({"projects":[{"id":"1","name":"P","dbname":"d","group":{}}]})"}) {
    write(bad);
    Result<Dictionary> read = tree.tree();
    ASSERT_FALSE(read) << bad;
    EXPECT_EQ(read.error().domain, "plist");
  }
  write(R"({"projects":[]})");
  EXPECT_EQ(writeJson(tree.tree().value()), R"({"hash":"","projects":[]})");
}

}  // namespace
}  // namespace vornex::server
