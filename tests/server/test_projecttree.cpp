#include <atomic>
#include <filesystem>
#include <set>
#include <thread>

#include "server/ServerFixture.h"
#include "server/store/ProjectTree.h"

namespace vornex::server::testing {
namespace {

/// "name(name name(name))" for each project of a tree in JSON.
std::string outline(const Value& nodes) {
  std::string text;
  for (const Value& node : *nodes.ifArray()) {
    if (!text.empty()) text += ' ';
    text += *node.find("name")->ifString();
    if (const Value* group = node.find("group")) text += "(" + outline(*group) + ")";
  }
  return text;
}

class ProjectTreeTest : public RouterTest {
 protected:
  void SetUp() override {
    RouterTest::SetUp();
    path_ = layout::projectPlist(packageFolder(kDbName));
    ASSERT_TRUE(createDirectories(deletingLastPathComponent(path_)));
  }

  void write(const std::string& json) const { ASSERT_TRUE(writePropertyListFile(path_, *parseJson(json))); }
  std::string served() { return get(library("/projects")).body; }
  std::string outlineServed() { return outline(*json(get(library("/projects"))).find("projects")); }

  Response change(const std::string& operation, const Dictionary& item) {
    return post(library("/projects/" + operation), writeJson(Dictionary{{"items", Array{item}}}));
  }
  /// The new node's identifier, "" when it is refused.
  std::string create(const std::string& name, const std::string& parent) {
    Value reply =
        json(change("create", {{"name", name}, {"parentid", parent}, {"type", parent.empty() ? 0 : 1}}));
    return coerce::string(reply.find("id")).value_or("");
  }
  std::int64_t rename(const std::string& id, const std::string& name) {
    return code(change("update", {{"id", id}, {"name", name}, {"parentid", ""}, {"type", 1}}));
  }
  std::int64_t move(const std::string& id, const std::string& parent, int toIndex) {
    return code(change("move", {{"id", id}, {"parentid", parent}, {"toindex", toIndex}, {"type", 1}}));
  }

  std::string path_;
};

TEST_F(ProjectTreeTest, FollowsTheFile) {
  EXPECT_EQ(served(), R"({"hash":"","projects":[]})");
  write(R"({"hash":"H1","projects":[{"id":"1","name":"P","dbname":"d","type":0,"extra":1,"group":[)"
        R"({"id":"2","name":"G","dbname":"d","type":1}]}],"kept":"x"})");
  EXPECT_EQ(served(), R"({"hash":"H1","projects":[{"id":"1","name":"P","dbname":"d","type":0,"group":[)"
                      R"({"id":"2","name":"G","dbname":"d","type":1}]}]})");
  // Of the same size, so that only the time or the inode tells.
  write(R"({"hash":"H2","projects":[{"id":"1","name":"Q","dbname":"d","type":0,"extra":1,"group":[)"
        R"({"id":"2","name":"G","dbname":"d","type":1}]}],"kept":"x"})");
  EXPECT_EQ(*json(get(library("/projects"))).find("hash"), Value("H2"));

  // What cannot be read is an error, and is not written over.
  for (const std::string& bad : {std::string("<plist><dict>"), std::string("nonsense")}) {
    ASSERT_TRUE(writeFileAtomically(path_, bad));
    EXPECT_EQ(get(library("/projects")).status, 500u);
    EXPECT_EQ(create("P", ""), "");
    EXPECT_EQ(readFile(path_).value(), bad);
  }
  for (const char* bad : {R"({"hash":"H"})", R"({"projects":[5]})", R"({"projects":[{"id":"1","name":"P"}]})",
                          R"({"projects":[{"id":"1","name":"P","dbname":"d","group":{}}]})"}) {
    write(bad);
    EXPECT_EQ(get(library("/projects")).status, 500u) << bad;
    EXPECT_EQ(create("P", ""), "") << bad;
  }
  write(R"({"projects":[{"id":"1","name":"P","dbname":"d","type":"1"}]})");
  EXPECT_EQ(*json(get(library("/projects"))).find("projects")->ifArray()->at(0).find("type"), Value(1));
  write(R"({"projects":[]})");
  EXPECT_EQ(served(), R"({"hash":"","projects":[]})");

  // A folder that is not there, as on a volume that is not mounted, is no empty tree.
  std::filesystem::rename(packageFolder(kDbName), packageFolder("elsewhere"));
  EXPECT_EQ(get(library("/projects")).status, 404u);
  EXPECT_EQ(create("P", ""), "");
  std::filesystem::rename(packageFolder("elsewhere"), packageFolder(kDbName));
  EXPECT_EQ(served(), R"({"hash":"","projects":[]})");
}

TEST_F(ProjectTreeTest, RefusesChangesOfATreeThatIsNotTheExpectedOne) {
  std::string a = create("a", ""), b = create("b", "");
  auto with = [&](const Value& hash, Dictionary item) {
    item.set("hash", hash);
    return item;
  };
  Value stale = *json(get(library("/projects"))).find("hash");
  Value reply = json(change("update", with(stale, {{"id", a}, {"name", "A"}})));
  for (const auto& [operation, item] :
       {std::pair{"update", Dictionary{{"id", a}, {"name", "lost"}}},
        std::pair{"move", Dictionary{{"id", b}, {"parentid", b}, {"toindex", 0}}},
        std::pair{"create", Dictionary{{"name", "c"}, {"parentid", ""}, {"type", 0}}}}) {
    Response refused = change(operation, with(stale, item));
    EXPECT_EQ(refused.status, 409u);
    EXPECT_EQ(code(refused), 13);
    EXPECT_EQ(code(change(operation, with(7, item))), 3);
  }
  EXPECT_EQ(outlineServed(), "A b");
  EXPECT_EQ(code(change("move", with(*reply.find("hash"), {{"id", b}, {"parentid", b}, {"toindex", 0}}))), 0);
  EXPECT_EQ(outlineServed(), "b A");
}

TEST_F(ProjectTreeTest, ChangesByTheRulesOfLocalLibraries) {
  std::string a = create("a", ""), b = create("b", ""), c = create("c", "");
  std::string g = create("g", a), h = create("h", a), inner = create("inner", g);
  EXPECT_EQ(outlineServed(), "a(g(inner) h) b c");
  EXPECT_EQ(create("a", ""), "");
  EXPECT_EQ(create("g", a), "");
  EXPECT_EQ(create("", a), "");
  EXPECT_EQ(create("x", "unknown"), "");
  EXPECT_EQ(code(change("create", {{"name", "x"}, {"parentid", a}, {"type", 0}})), 3);
  EXPECT_EQ(code(post(library("/projects/create"), R"({"items":[]})")), 3);

  EXPECT_EQ(rename(h, "g"), 6);
  EXPECT_EQ(rename(h, "h"), 6);
  EXPECT_EQ(rename(h, ""), 3);
  EXPECT_EQ(rename("unknown", "x"), 5);
  EXPECT_EQ(rename(h, "H"), 0);

  // The index counts positions before the move.
  EXPECT_EQ(move(a, a, 1), 0);
  EXPECT_EQ(outlineServed(), "a(g(inner) H) b c");
  EXPECT_EQ(move(a, a, 2), 0);
  EXPECT_EQ(outlineServed(), "b a(g(inner) H) c");
  EXPECT_EQ(move(c, c, 0), 0);
  EXPECT_EQ(move(b, b, 3), 0);
  EXPECT_EQ(outlineServed(), "c a(g(inner) H) b");
  EXPECT_EQ(move(h, a, 0), 0);
  EXPECT_EQ(outlineServed(), "c a(H g(inner)) b");
  EXPECT_EQ(move(b, b, 4), 3);
  EXPECT_EQ(move(b, b, -1), 3);
  // Into other parents: the new parent lies behind the node in the file, then before it.
  EXPECT_EQ(move(g, b, 0), 0);
  EXPECT_EQ(outlineServed(), "c a(H) b(g(inner))");
  EXPECT_EQ(move(g, a, 2), 3);
  EXPECT_EQ(move(g, g, 0), 3);
  EXPECT_EQ(move(g, inner, 0), 3);
  EXPECT_EQ(move(g, "unknown", 0), 5);
  EXPECT_EQ(move(b, a, 0), 3);
  EXPECT_EQ(move(inner, h, 0), 0);
  EXPECT_EQ(move(g, h, 1), 0);
  EXPECT_EQ(outlineServed(), "c a(H(inner g)) b");
  EXPECT_EQ(served().find(R"("group":[])"), std::string::npos);
}

TEST_F(ProjectTreeTest, KeepsWhatItDoesNotKnowAndRefusesWhatCouldNotBeRead) {
  write(R"({"hash":"H1","projects":[{"id":"1","name":"P","dbname":"d","type":0,"extra":1}],"kept":"x"})");
  Value reply = json(change("update", {{"id", "1"}, {"name", "Q"}}));
  EXPECT_EQ(*reply.find("id"), Value("1"));
  Dictionary file = readDictionaryFile(path_).value();
  EXPECT_EQ(*file.find("hash"), *reply.find("hash"));
  EXPECT_EQ(coerce::string(file.find("hash"))->size(), 32u);
  EXPECT_TRUE(file.contains("kept"));
  EXPECT_TRUE(file.find("projects")->ifArray()->at(0).find("extra"));

  Value nodes = Array();
  for (int level = 254; level >= 0; --level) {
    Dictionary node{{"id", "L" + std::to_string(level)}, {"name", "n"}, {"dbname", "d"}, {"type", 1}};
    if (level < 254) node.set("group", nodes);
    nodes = Array{node};
  }
  write(writeJson(Dictionary{{"projects", nodes}}));
  ASSERT_EQ(get(library("/projects")).status, 200u);
  EXPECT_EQ(code(change("create", {{"name", "x"}, {"parentid", "L254"}, {"type", 1}})), 7);
  std::string other = create("other", "L0");
  EXPECT_EQ(move("L2", other, 0), 0);
  EXPECT_EQ(move(other, "L1", 0), 7);
}

TEST_F(ProjectTreeTest, NeedsTheRightToChange) {
  std::string project = create("P", "");
  Dictionary closed = record(kDbName);
  closed.set("editable", false);
  writeUsers({user("guest", "secret", kDbName)});
  authorization_ = basic("guest", "secret");
  EXPECT_EQ(rename(project, "Q"), 0);
  ASSERT_TRUE(service_->libraries().add(closed, true));
  EXPECT_EQ(rename(project, "R"), 4);
  EXPECT_EQ(outlineServed(), "Q");
}

TEST_F(ProjectTreeTest, LosesNoneOfTheChangesMadeAtOnce) {
  constexpr int kEach = 15;
  std::string root = create("root", "");
  std::atomic<int> winners = 0;
  auto addGroups = [&](const std::string& prefix) {
    // Another view of the same file, as another process has it.
    ProjectTree tree(packageFolder(kDbName));
    for (int i = 0; i < kEach; ++i) {
      EXPECT_TRUE(tree.create(prefix + std::to_string(i), root, kDbName));
      if (tree.create("wanted by all " + std::to_string(i), root, kDbName)) ++winners;
    }
  };
  std::thread first(addGroups, "a"), second(addGroups, "b");
  for (int i = 0; i < kEach; ++i) EXPECT_NE(create("c" + std::to_string(i), root), "");
  first.join();
  second.join();
  Value tree = json(get(library("/projects")));
  const Array groups = coerce::array(tree.find("projects")->ifArray()->at(0).find("group"));
  std::set<std::string> names;
  for (const Value& group : groups) names.insert(*group.find("name")->ifString());
  EXPECT_EQ(groups.size(), std::size_t{4 * kEach});
  EXPECT_EQ(names.size(), groups.size());
  EXPECT_EQ(winners, kEach);
}

}  // namespace
}  // namespace vornex::server::testing
