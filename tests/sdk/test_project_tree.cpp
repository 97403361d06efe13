#include <filesystem>
#include <fstream>

#include "core/StatusCode.h"
#include "foundation/Files.h"
#include "foundation/Json.h"
#include "foundation/PropertyList.h"
#include "sdk/ServedLibrary.h"
#include "server/store/ProjectTree.h"

namespace vornex::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

using NewNode = std::tuple<ProjectPtr, TQErrorPtr>;
using Outcome = std::tuple<bool, TQErrorPtr>;

std::vector<std::string> names(const std::vector<ProjectPtr>& nodes) {
  std::vector<std::string> result;
  for (const ProjectPtr& node : nodes) result.push_back(*node->name);
  return result;
}

class ProjectTree : public ServedLibrary {
 protected:
  void SetUp() override {
    ServedLibrary::SetUp();
    std::filesystem::create_directory(folder_ / "Project");
  }

  Dictionary file() const { return readDictionaryFile(folder_ / "Project/project.plist").value(); }
  void writeFile(const Value& content) const {
    ASSERT_TRUE(writePropertyListFile(folder_ / "Project/project.plist", content));
  }
  /// Nothing can be written where a file stands instead of the folder.
  void blockSaving() const {
    std::filesystem::remove_all(folder_ / "Project");
    std::ofstream(folder_ / "Project") << "in the way";
  }

  NewNode addProject(const OptionalString& name) {
    return await<ProjectPtr, TQErrorPtr>([&](auto finish) { library_->addProject(name, finish); });
  }
  NewNode addGroup(const ProjectPtr& parent, const OptionalString& name) {
    return await<ProjectPtr, TQErrorPtr>([&](auto finish) { parent->addGroupWithName(name, finish); });
  }
  Outcome removeProject(const ProjectPtr& project) {
    return await<bool, TQErrorPtr>([&](auto finish) { library_->removeProject(project, finish); });
  }
  Outcome removeGroup(const ProjectPtr& group) {
    return await<bool, TQErrorPtr>([&](auto finish) { library_->projects[0]->removeGroup(group, finish); });
  }
  /// The code that both forms of renaming give.
  std::int64_t renameCode(const ProjectPtr& node, const OptionalString& name) {
    OptionalString before = node->name;
    TQErrorPtr error;
    bool ok = node->rename(name, &error);
    EXPECT_EQ(node->name, ok ? name : before);
    node->name = before;
    auto [okLater, laterError] = await<bool, TQErrorPtr>([&](auto finish) { node->rename(name, finish); });
    EXPECT_EQ(ok, !error);
    EXPECT_EQ(okLater, ok);
    EXPECT_EQ(node->name, ok ? name : before);
    EXPECT_EQ(codeOf(laterError), codeOf(error));
    return codeOf(error);
  }
};

TEST_F(ProjectTree, ReadsAndWritesNodes) {
  const Dictionary form = {{"id", "1"}, {"name", "n"}, {"dbname", "d"}, {"type", 1}};
  EXPECT_EQ(TQProject::projectWithDictionary(form)->projectDictionary(), form);
  for (const char* key : {"id", "name", "dbname"}) {
    Dictionary broken = form;
    broken.set(key, 5);
    EXPECT_FALSE(TQProject::projectWithDictionary(broken));
    ProjectPtr kept = TQProject::projectWithDictionary(form);
    kept->setDictionary(broken);
    EXPECT_EQ(kept->projectDictionary(), form);
  }
  ProjectPtr untyped = TQProject::projectWithDictionary({{"id", "1"}, {"name", "n"}, {"dbname", "d"}});
  EXPECT_EQ(untyped->projectType, -1);
  untyped->name = std::nullopt;
  EXPECT_EQ(untyped->projectDictionary(), std::nullopt);
}

TEST_F(ProjectTree, HasOneUndefinedProject) {
  ProjectPtr undefined = TQProject::undefinedProjectWithLibrary(library_);
  LibraryPtr first = library_;
  useLibrary(kLibraryTypeNetwork);
  library_->dbName = "second";
  EXPECT_EQ(TQProject::undefinedProjectWithLibrary(library_), undefined);
  EXPECT_EQ(undefined->library.lock(), library_);
  EXPECT_EQ(undefined->dbName, "second");
  EXPECT_EQ(undefined->id, "UnDefined UUID");
  EXPECT_EQ(undefined->groupWithID("UnDefined UUID"), undefined);
  EXPECT_EQ(undefined->groupWithID("G"), nullptr);
  EXPECT_EQ(undefined->rootProject.lock(), undefined);
}

TEST_F(ProjectTree, LoadsFromTheServerAndKeepsRootObjects) {
  answer(R"({"hash": "h1", "projects": [
      {"id": "A", "name": "a", "dbname": "db", "type": 0, "group": [
        {"id": "G", "name": "g", "dbname": "db", "type": 1, "group": [
          {"id": "H", "name": "h", "dbname": "db", "type": 1}, {"name": "no identifier"}]}]},
      {"name": "no identifier"}, 7,
      {"id": "B", "name": "b", "dbname": "db", "type": 0}]})");
  TQErrorPtr error;
  ASSERT_TRUE(library_->loadProjects(&error));
  EXPECT_EQ(lastTarget(), "GET /vornex/libraries/db/projects");
  EXPECT_THAT(names(library_->projects), ElementsAre("a", "b"));
  EXPECT_EQ(library_->projectHashValue, "h1");
  ProjectPtr root = library_->projects[0];
  ProjectPtr deep = library_->projectWithID("H");
  ASSERT_TRUE(deep);
  EXPECT_EQ(deep->level, 2);
  EXPECT_EQ(deep->rootProject.lock(), root);
  EXPECT_EQ(deep->parent.lock(), library_->projectWithID("G"));
  EXPECT_EQ(TQProject::findProjectWithGroup(deep), root);
  EXPECT_EQ(root->descendantCount(), 2);
  deep->parent.lock()->projectType = -1;
  EXPECT_FALSE(TQProject::findProjectWithGroup(deep));

  answer(R"({"hash": "h2", "projects": [
      {"id": "B", "name": "b", "dbname": "db", "type": 0},
      {"id": "A", "name": "renamed", "dbname": "db", "type": 0, "group": [
        {"id": "G", "name": "g", "dbname": "db", "type": 1}]}]})");
  auto loaded = await<std::optional<std::vector<ProjectPtr>>, TQErrorPtr>(
      [&](auto finish) { library_->loadProjects(finish); });
  EXPECT_THAT(names(*std::get<0>(loaded)), ElementsAre("b", "renamed"));
  EXPECT_EQ(library_->projects[1], root);
  EXPECT_NE(library_->projectWithID("G"), deep->parent.lock());
  EXPECT_FALSE(library_->projectWithID("H"));

  answer(R"({"hash": "h3", "projects": [
      {"id": "A", "name": "a", "dbname": "db", "type": 0, "group": [
        {"id": "G", "name": "g", "dbname": "db", "type": 1}]},
      {"id": "A", "name": "twice", "dbname": "db", "type": 0}]})");
  ASSERT_TRUE(library_->loadProjects(nullptr));
  EXPECT_EQ(library_->projects[0], root);
  EXPECT_THAT(names(library_->projects), ElementsAre("a", "twice"));
  EXPECT_THAT(names(root->childGroups), ElementsAre("g"));
}

TEST_F(ProjectTree, KeepsTheTreeWhenLoadingFails) {
  addRoot("A", "a");
  TQErrorPtr error;
  for (const char* useless : {"{}", "[]", R"({"projects": 3})"}) {
    answer(useless);
    EXPECT_FALSE(library_->loadProjects(&error));
    EXPECT_EQ(codeOf(error), 10004);
  }
  refuse(4);
  EXPECT_FALSE(library_->loadProjects(&error));
  EXPECT_EQ(codeOf(error), 4);
  const std::size_t sent = requestCount();
  for (const UserPtr& nobody : {UserPtr(), TQUser::userWithID("me", "", kUserTypeNetwork, std::nullopt)}) {
    library_->connection->user = nobody;
    EXPECT_FALSE(library_->loadProjects(&error));
    EXPECT_EQ(codeOf(error), 10000);
  }
  EXPECT_EQ(requestCount(), sent);
  EXPECT_THAT(names(library_->projects), ElementsAre("a"));
}

TEST_F(ProjectTree, SavesWithAFreshHashAndKeepsOtherKeys) {
  writeFile(Dictionary{{"projects", Array{}}, {"hash", "old"}, {"of the future", 1}});
  ProjectPtr root = addRoot("A", "a");
  addBelow(root, "G", "g");
  addRoot("B", "b");
  EXPECT_FALSE(library_->saveProjects()) << "the tree was not made from that file";
  library_->projectHashValue = "old";
  ASSERT_TRUE(library_->saveProjects());
  Dictionary first = file();
  EXPECT_EQ(first.find("hash")->ifString()->size(), 32U);
  EXPECT_EQ(*first.find("hash")->ifString(), library_->projectHashValue);
  EXPECT_TRUE(first.contains("of the future"));
  const Array& roots = *first.find("projects")->ifArray();
  ASSERT_EQ(roots.size(), 2U);
  EXPECT_EQ(*roots[0].find("group"),
            Value(Array{Dictionary{{"id", "G"}, {"name", "g"}, {"dbname", "db"}, {"type", 1}}}));
  EXPECT_EQ(roots[1].find("group"), nullptr);
  ASSERT_TRUE(library_->saveProjects());
  EXPECT_NE(*file().find("hash"), *first.find("hash"));
  root->childGroups[0]->dbName = std::nullopt;
  EXPECT_FALSE(library_->saveProjects());
}

TEST_F(ProjectTree, NeverLosesATreeThatWasNotLoaded) {
  addRoot("A", "a");
  ASSERT_TRUE(library_->saveProjects());
  useLibrary(kLibraryTypeLocal);
  EXPECT_TRUE(std::get<0>(addProject("b")));
  EXPECT_THAT(names(library_->projects), ElementsAre("a", "b"));

  // What cannot be read whole is neither taken over nor written over.
  const Array nameless = {Dictionary{{"id", "G"}, {"dbname", "db"}, {"type", 1}}};
  const Dictionary whole = {{"id", "A"}, {"name", "a"}, {"dbname", "db"}, {"type", 0}, {"group", nameless}};
  for (const Value& bad : {Value(Dictionary{{"hash", "h"}}), Value(Dictionary{{"projects", "none"}}),
                           Value(Dictionary{{"projects", Array{whole}}, {"hash", "h"}}), Value(Array())}) {
    writeFile(bad);
    const std::string before = readFile(folder_ / "Project/project.plist").value();
    useLibrary(kLibraryTypeLocal);
    EXPECT_EQ(codeOf(std::get<1>(addProject("c"))), 10003);
    EXPECT_THAT(library_->projects, IsEmpty());
    EXPECT_EQ(readFile(folder_ / "Project/project.plist").value(), before);
  }
  library_->packageFolder = std::nullopt;
  EXPECT_EQ(codeOf(std::get<1>(addProject("c"))), 10003);
  EXPECT_FALSE(std::filesystem::exists("..lock"));
}

TEST_F(ProjectTree, DoesNotOverwriteWhatAnArchiveHasMissed) {
  ProjectPtr root = addRoot("A", "a");
  ASSERT_TRUE(library_->saveProjects());
  const Data bytes = KeyedArchiver::archivedData(library_).value();
  ASSERT_TRUE(std::get<0>(addProject("b")));
  library_ = KeyedUnarchiver::unarchivedObject<TQLibrary>(bytes);
  EXPECT_EQ(codeOf(std::get<1>(addProject("c"))), 10003);
  EXPECT_EQ(codeOf(std::get<1>(addGroup(library_->projects[0], "g"))), 10003);
  EXPECT_EQ(file().find("projects")->ifArray()->size(), 2U);
  answer(writeJson(file()));
  ASSERT_TRUE(library_->loadProjects(nullptr));
  EXPECT_TRUE(std::get<0>(addProject("c")));
  // The other way round, an archive of the tree as it is can be worked with at once.
  library_ = KeyedUnarchiver::unarchivedObject<TQLibrary>(KeyedArchiver::archivedData(library_).value());
  EXPECT_TRUE(std::get<0>(addProject("d")));
  EXPECT_EQ(file().find("projects")->ifArray()->size(), 4U);
}

TEST_F(ProjectTree, RemovesNothingFromAFileThatChangedMeanwhile) {
  ProjectPtr root = addRoot("A", "a");
  ASSERT_TRUE(library_->saveProjects());
  LibraryPtr other = library_;
  useLibrary(kLibraryTypeLocal);
  meanwhile_ = [&] { EXPECT_TRUE(other->saveProjects()); };
  answer(R"({"items": [], "total": 0})");
  EXPECT_EQ(codeOf(std::get<1>(removeProject(root))), 10003);
  EXPECT_THAT(names(library_->projects), ElementsAre("a"));
  EXPECT_EQ(file().find("projects")->ifArray()->size(), 1U);
}

/// What the server and this program do to one file.
TEST_F(ProjectTree, SharesItsFileWithTheServer) {
  server::ProjectTree served(*library_->packageFolder);
  auto load = [&] {
    answer(*served.json().value());
    ASSERT_TRUE(library_->loadProjects(nullptr));
  };
  ProjectPtr a = std::get<0>(addProject("a")), b = std::get<0>(addProject("b"));
  ProjectPtr group = std::get<0>(addGroup(a, "g"));
  const OptionalString stale = library_->projectHashValue;
  EXPECT_EQ(served.hash(), *stale);
  ASSERT_TRUE(served.move(*group->id, *b->id, 0, stale));
  EXPECT_FALSE(library_->moveItem(a, 2));
  load();
  EXPECT_THAT(names(b->childGroups), ElementsAre("g"));
  ASSERT_TRUE(library_->moveItem(a, 2));
  // A stale client is refused, one that knows the tree or does not tell is served.
  auto refused = served.move(*a->id, *a->id, 0, stale);
  ASSERT_FALSE(refused);
  EXPECT_EQ(refused.error().code, static_cast<std::int64_t>(StatusCode::hashMismatch));
  ASSERT_TRUE(served.rename(*b->id, "B", library_->projectHashValue));
  ASSERT_TRUE(served.create("c", "", "db"));
  load();
  EXPECT_THAT(names(library_->projects), ElementsAre("B", "a", "c"));
  answer(R"({"items": [], "total": 0})");
  ASSERT_TRUE(std::get<0>(removeProject(a)));
  EXPECT_FALSE(served.rename(*a->id, "x"));
  ASSERT_TRUE(served.create("d", "", "db"));
  EXPECT_FALSE(library_->saveProjects());
  load();
  EXPECT_THAT(names(library_->projects), ElementsAre("B", "c", "d"));
}

TEST_F(ProjectTree, DoesNotOverwriteWhatAnotherProgramChanged) {
  ProjectPtr root = addRoot("A", "a");
  ProjectPtr group = addBelow(root, "G", "g");
  ProjectPtr second = addRoot("B", "b");
  ASSERT_TRUE(library_->saveProjects());
  LibraryPtr first = library_;
  const OptionalString hash = first->projectHashValue;
  // Another program's copy of the tree.
  useLibrary(kLibraryTypeLocal);
  ASSERT_TRUE(std::get<0>(addProject("other")));
  std::swap(first, library_);

  answer(R"({"items": [], "total": 0})");
  EXPECT_EQ(codeOf(std::get<1>(addProject("c"))), 10003);
  EXPECT_EQ(codeOf(std::get<1>(addGroup(root, "h"))), 10003);
  EXPECT_EQ(renameCode(group, "new"), 10003);
  EXPECT_EQ(codeOf(std::get<1>(removeGroup(group))), 10003);
  EXPECT_EQ(codeOf(std::get<1>(removeProject(second))), 10003);
  EXPECT_FALSE(library_->moveItem(root, 2));
  EXPECT_FALSE(root->moveItem(group, 0, second));
  EXPECT_FALSE(library_->saveProjects());
  EXPECT_THAT(names(library_->projects), ElementsAre("a", "b"));
  EXPECT_THAT(names(root->childGroups), ElementsAre("g"));
  EXPECT_EQ(group->parent.lock(), root);
  EXPECT_EQ(library_->projectHashValue, hash);
  EXPECT_EQ(file().find("projects")->ifArray()->size(), 3U);

  // A useless answer changes nothing about that. Loaded again, the tree can be changed; the other program has
  // now the older copy.
  EXPECT_FALSE(library_->loadProjects(nullptr));
  EXPECT_FALSE(library_->saveProjects());
  answer(writeJson(file()));
  ASSERT_TRUE(library_->loadProjects(nullptr));
  EXPECT_TRUE(std::get<0>(addProject("c")));
  EXPECT_EQ(file().find("projects")->ifArray()->size(), 4U);
  EXPECT_FALSE(first->saveProjects());
}

TEST_F(ProjectTree, FindsNodesAsAWalkWouldWhateverChanges) {
  ProjectPtr a = addRoot("A", "a"), b = addRoot("B", "b");
  ProjectPtr g = addBelow(a, "G", "g"), inner = addBelow(g, "inner", "i");
  EXPECT_EQ(library_->projectWithID("inner"), inner);
  EXPECT_EQ(b->groupWithID("inner"), nullptr);
  ASSERT_TRUE(a->moveItem(g, 0, b));
  EXPECT_EQ(a->groupWithID("inner"), nullptr);
  EXPECT_EQ(b->groupWithID("inner"), inner);
  g->setDictionary({{"id", "new"}, {"name", "g"}, {"dbname", "db"}, {"type", 1}});
  EXPECT_EQ(library_->projectWithID("G"), nullptr);
  EXPECT_EQ(library_->projectWithID("new"), g);
  // Of equal identifiers a root comes first, then the first of the walk; within a node only its own count.
  ProjectPtr early = addBelow(a, "twice", "early"), late = addBelow(b, "twice", "late"),
             likeRoot = addBelow(a, "B", "x");
  EXPECT_EQ(library_->projectWithID("twice"), early);
  EXPECT_EQ(b->groupWithID("twice"), late);
  EXPECT_EQ(library_->projectWithID("B"), b);
  EXPECT_EQ(a->groupWithID("B"), likeRoot);
  ASSERT_TRUE(std::get<0>(removeGroup(early)));
  EXPECT_EQ(library_->projectWithID("twice"), late);
  EXPECT_EQ(early->groupWithID("twice"), early);
  ASSERT_TRUE(std::get<0>(await<bool, TQErrorPtr>([&](auto finish) { b->removeGroup(g, finish); })));
  EXPECT_EQ(library_->projectWithID("inner"), nullptr);
  EXPECT_EQ(g->groupWithID("inner"), inner);
}

TEST_F(ProjectTree, ReordersByPositionsBeforeTheMove) {
  struct Case {
    const char* item;
    std::int64_t to;
    std::vector<std::string> order;
  };
  for (const Case& move :
       {Case{"a", 0, {"a", "b", "c"}}, Case{"a", 1, {"a", "b", "c"}}, Case{"a", 2, {"b", "a", "c"}},
        Case{"a", 3, {"b", "c", "a"}}, Case{"c", 0, {"c", "a", "b"}}, Case{"b", 2, {"a", "b", "c"}}}) {
    useLibrary(kLibraryTypeLocal);
    std::filesystem::remove(folder_ / "Project/project.plist");
    for (const char* name : {"a", "b", "c"}) addRoot(name, name);
    ProjectPtr root = library_->projects[0];
    for (const char* name : {"a", "b", "c"}) addBelow(root, std::string("below ") + name, name);
    EXPECT_TRUE(library_->moveItem(library_->projectWithID(move.item), move.to));
    EXPECT_EQ(names(library_->projects), move.order);
    EXPECT_TRUE(root->moveItem(root->findGroupWithName(move.item), move.to));
    EXPECT_EQ(names(root->childGroups), move.order);
    EXPECT_FALSE(library_->moveItem(library_->projects[0], 4));
    EXPECT_FALSE(root->moveItem(root->childGroups[0], -1));
    EXPECT_FALSE(root->moveItem(root, 0));
  }
}

TEST_F(ProjectTree, MovesGroupsIntoOtherParents) {
  ProjectPtr root = addRoot("A", "a");
  ProjectPtr other = addRoot("B", "b");
  ProjectPtr group = addBelow(root, "G", "g");
  ProjectPtr inner = addBelow(group, "H", "h");
  addBelow(other, "I", "i");
  EXPECT_FALSE(root->moveItem(group, 0, group));
  EXPECT_FALSE(root->moveItem(group, 0, inner));
  EXPECT_FALSE(root->moveItem(group, 2, other));
  EXPECT_FALSE(root->moveItem(inner, 0, other));
  LibraryPtr library = library_;
  useLibrary(kLibraryTypeLocal);
  ProjectPtr foreign = addRoot("F", "f");
  std::swap(library, library_);
  TQErrorPtr error;
  EXPECT_FALSE(root->moveItem(group, 0, foreign, &error));
  EXPECT_EQ(codeOf(error), 10000);
  EXPECT_TRUE(root->moveItem(group, 1, other, &error));
  EXPECT_FALSE(error);
  EXPECT_THAT(root->childGroups, IsEmpty());
  EXPECT_THAT(names(other->childGroups), ElementsAre("i", "g"));
  EXPECT_EQ(group->parent.lock(), other);
  EXPECT_TRUE(other->moveItem(group, 0, other));
  EXPECT_THAT(names(other->childGroups), ElementsAre("g", "i"));
  EXPECT_TRUE(other->moveItem(group, 1, other));
  EXPECT_THAT(names(other->childGroups), ElementsAre("i", "g"));
  EXPECT_FALSE(other->moveItem(group, 2, other));
  ProjectPtr deep = root;
  for (int level = 1; level <= 254; ++level) deep = addBelow(deep, "L" + std::to_string(level), "n");
  EXPECT_TRUE(library_->saveProjects());
  EXPECT_EQ(codeOf(std::get<1>(addGroup(deep, "too deep"))), 10001);
  EXPECT_FALSE(other->moveItem(group, 0, deep->parent.lock(), &error));
  EXPECT_EQ(codeOf(error), 10001);
  root->childGroups.clear();
  EXPECT_TRUE(library_->saveProjects());
  EXPECT_EQ(file().find("projects")->ifArray()->at(0).find("group"), nullptr);
}

TEST_F(ProjectTree, ChangesALocalTree) {
  ProjectPtr root = std::get<0>(addProject("a"));
  ASSERT_TRUE(root);
  EXPECT_EQ(root->rootProject.lock(), root);
  EXPECT_EQ(codeOf(std::get<1>(addProject("a"))), 10002);
  EXPECT_EQ(codeOf(std::get<1>(addProject(std::nullopt))), 10000);
  EXPECT_EQ(codeOf(std::get<1>(addProject(""))), 10000);
  EXPECT_EQ(codeOf(std::get<1>(addGroup(root, ""))), 10000);
  ASSERT_TRUE(std::get<0>(addProject("A")));
  ProjectPtr group = std::get<0>(addGroup(root, "g"));
  ProjectPtr inner = std::get<0>(addGroup(group, "g"));
  ASSERT_TRUE(inner);
  EXPECT_EQ(inner->rootProject.lock(), root);
  EXPECT_EQ(inner->level, 0);
  EXPECT_EQ(codeOf(std::get<1>(addGroup(root, "g"))), 10002);
  ASSERT_TRUE(std::get<0>(addGroup(root, "h")));
  EXPECT_EQ(renameCode(group, "h"), 10002);
  EXPECT_EQ(renameCode(group, "g"), 10002);
  EXPECT_EQ(renameCode(root, "A"), 10002);
  EXPECT_EQ(renameCode(root, ""), 10000);
  EXPECT_EQ(renameCode(root, std::nullopt), 10000);
  EXPECT_EQ(renameCode(group, "new"), 0);
  EXPECT_EQ(requestCount(), 0U);
  EXPECT_TRUE(std::get<0>(removeGroup(inner)));
  EXPECT_THAT(group->childGroups, IsEmpty());
  EXPECT_EQ(codeOf(std::get<1>(removeGroup(inner))), 10000);
  const Value saved = file().find("projects")->ifArray()->at(0);
  EXPECT_EQ(*saved.find("group")->ifArray()->at(0).find("name"), Value("new"));
}

TEST_F(ProjectTree, TakesChangesBackThatCannotBeSaved) {
  ProjectPtr root = addRoot("A", "a");
  ProjectPtr group = addBelow(root, "G", "g");
  ASSERT_TRUE(library_->saveProjects());
  blockSaving();
  answer(R"({"items": [], "total": 0})");
  EXPECT_EQ(codeOf(std::get<1>(addProject("b"))), 10003);
  EXPECT_EQ(codeOf(std::get<1>(addGroup(root, "h"))), 10003);
  EXPECT_EQ(renameCode(group, "new"), 10003);
  EXPECT_EQ(codeOf(std::get<1>(removeGroup(group))), 10003);
  EXPECT_EQ(codeOf(std::get<1>(removeProject(root))), 10003);
  EXPECT_THAT(names(library_->projects), ElementsAre("a"));
  EXPECT_THAT(names(root->childGroups), ElementsAre("g"));
  EXPECT_EQ(group->name, "g");
  // A move is kept, and tells why it is not in the file.
  addBelow(root, "H", "h");
  TQErrorPtr error;
  EXPECT_TRUE(root->moveItem(group, 2, &error));
  EXPECT_THAT(names(root->childGroups), ElementsAre("h", "g"));
  EXPECT_EQ(codeOf(error), 10003);
  EXPECT_THAT(*error->userInfo().find(kLocalizedFailureReasonKey)->ifString(),
              HasSubstr(folder_ / "Project"));
}

TEST_F(ProjectTree, ChangesNothingThroughNodesThatAreInNoTree) {
  ProjectPtr root = addRoot("A", "a"), group = addBelow(root, "G", "g"), inner = addBelow(group, "H", "h");
  ASSERT_TRUE(library_->saveProjects());
  const Dictionary saved = file();
  answer(writeJson(saved));
  ASSERT_TRUE(library_->loadProjects(nullptr));
  TQErrorPtr error;
  EXPECT_EQ(renameCode(group, "new"), 10000);
  EXPECT_EQ(codeOf(std::get<1>(addGroup(group, "i"))), 10000);
  EXPECT_EQ(codeOf(std::get<1>(removeGroup(inner))), 10000);
  EXPECT_FALSE(group->moveItem(inner, 0, &error));
  EXPECT_EQ(codeOf(error), 10000);
  EXPECT_EQ(file(), saved);
  EXPECT_TRUE(std::get<0>(removeGroup(group))) << "by its identifier, from a parent that is there";
  EXPECT_THAT(root->childGroups, IsEmpty());

  // A server knows the node, and the one that is in the tree follows.
  useLibrary(kLibraryTypeNetwork);
  Dictionary reply = saved;
  reply.set("id", "N");
  answer(writeJson(reply));
  ASSERT_TRUE(library_->loadProjects(nullptr));
  group = library_->projectWithID("G");
  ASSERT_TRUE(library_->loadProjects(nullptr));
  ProjectPtr present = library_->projectWithID("G");
  EXPECT_NE(present, group);
  EXPECT_EQ(renameCode(group, "new"), 0);
  EXPECT_EQ(present->name, "new");
  EXPECT_EQ(std::get<0>(addGroup(group, "i"))->parent.lock(), present);
  EXPECT_FALSE(group->moveItem(group->childGroups[0], 0));
}

TEST_F(ProjectTree, IsOfALibraryWhoseServerTellsWhatIsAllowed) {
  EXPECT_TRUE(library_->isCreatable() && library_->isEditable());
  EXPECT_EQ(requestCount(), 0U);
  useLibrary(kLibraryTypeNetwork);
  answer(R"({"items": [{"uploadable": true, "editable": 0}]})");
  EXPECT_TRUE(library_->isCreatable());
  EXPECT_FALSE(library_->isEditable());
  EXPECT_EQ(lastTarget(), "GET /vornex/libraries/db");
  answer(R"({"items": []})");
  EXPECT_FALSE(library_->isCreatable()) << "whatever is stored";
  refuse(4);
  EXPECT_FALSE(library_->isCreatable());
}

TEST_F(ProjectTree, RemovesOnlyEmptyProjects) {
  ProjectPtr root = addRoot("A", "a");
  answer(R"({"items": [{"_id": "1", "name": "x"}], "total": 1})");
  EXPECT_EQ(codeOf(std::get<1>(removeProject(root))), 10004);
  EXPECT_EQ(*lastBody().find("query"), Value(R"(project == "A" AND trash == 0)"));
  EXPECT_EQ(*lastBody().find("limit"), Value(1));
  refuse(2);
  EXPECT_EQ(codeOf(std::get<1>(removeProject(root))), 2);
  EXPECT_THAT(names(library_->projects), ElementsAre("a"));
  answer(R"({"items": [], "total": 0})");
  EXPECT_TRUE(std::get<0>(removeProject(root)));
  EXPECT_THAT(library_->projects, IsEmpty());
  EXPECT_THAT(*file().find("projects")->ifArray(), IsEmpty());
}

TEST_F(ProjectTree, ChangesANetworkTreeOnItsServerFirst) {
  useLibrary(kLibraryTypeNetwork);
  answer(R"({"id": "N", "hash": "h"})");
  ProjectPtr root = std::get<0>(addProject("a"));
  ASSERT_TRUE(root);
  EXPECT_EQ(root->id, "N");
  EXPECT_EQ(library_->projectHashValue, "h");
  EXPECT_EQ(lastTarget(), "POST /vornex/libraries/db/projects/create");
  EXPECT_EQ(lastItem(), Value(Dictionary{{"name", "a"}, {"parentid", ""}, {"type", 0}}));
  ProjectPtr group = std::get<0>(addGroup(root, "g"));
  ASSERT_TRUE(group);
  EXPECT_EQ(lastItem(), Value(Dictionary{{"name", "g"}, {"parentid", "N"}, {"type", 1}, {"hash", "h"}}));
  EXPECT_EQ(group->rootProject.lock(), root);
  EXPECT_EQ(renameCode(group, "new"), 0);
  EXPECT_EQ(group->name, "new");
  EXPECT_EQ(lastTarget(), "POST /vornex/libraries/db/projects/update");
  EXPECT_EQ(lastItem(),
            Value(Dictionary{{"name", "new"}, {"parentid", "N"}, {"id", "N"}, {"type", 1}, {"hash", "h"}}));
  EXPECT_TRUE(library_->moveItem(root, 1));
  EXPECT_EQ(lastTarget(), "POST /vornex/libraries/db/projects/move");
  EXPECT_EQ(lastItem(),
            Value(Dictionary{{"id", "N"}, {"parentid", "N"}, {"toindex", 1}, {"type", 0}, {"hash", "h"}}));
  EXPECT_EQ(codeOf(std::get<1>(removeProject(root))), 10005);
  EXPECT_EQ(codeOf(std::get<1>(removeGroup(group))), 10005);
  EXPECT_FALSE(itemExists(folder_ / "Project/project.plist"));
  root->dbName = std::nullopt;
  EXPECT_EQ(codeOf(std::get<1>(addGroup(root, "h"))), 10004) << "made, but of no library";
}

TEST_F(ProjectTree, LeavesANetworkTreeAsItWasWhenTheServerDoesNotFollow) {
  useLibrary(kLibraryTypeNetwork);
  ProjectPtr root = addRoot("A", "a");
  ProjectPtr other = addRoot("B", "b");
  ProjectPtr group = addBelow(root, "G", "g");
  auto expectNoChange = [&](std::int64_t code) {
    EXPECT_EQ(codeOf(std::get<1>(addProject("c"))), code);
    EXPECT_EQ(codeOf(std::get<1>(addGroup(root, "h"))), code);
    EXPECT_EQ(renameCode(group, "new"), code);
    EXPECT_FALSE(library_->moveItem(root, 2));
    TQErrorPtr error;
    EXPECT_FALSE(root->moveItem(group, 0, other, &error));
    EXPECT_EQ(codeOf(error), code);
    EXPECT_THAT(names(library_->projects), ElementsAre("a", "b"));
    EXPECT_THAT(names(root->childGroups), ElementsAre("g"));
  };
  refuse(4);
  expectNoChange(4);
  answer(R"({"hash": "h"})");
  expectNoChange(10004);
  EXPECT_EQ(library_->projectHashValue, std::nullopt);
}

TEST_F(ProjectTree, TravelsInArchivesWithItsCycles) {
  ProjectPtr root = addRoot("A", "a");
  ProjectPtr group = addBelow(root, "G", "g");
  addBelow(group, "H", "h");
  library_->isShared = library_->storedIsEditable = library_->fromBrindle = true;
  library_->projectHashValue = "hash";
  library_->connection->user->name = std::nullopt;
  library_->liveFolderDict = {{"hash", "l"}};
  Data bytes = KeyedArchiver::archivedData(library_).value();
  auto library = KeyedUnarchiver::unarchivedObject<TQLibrary>(bytes);
  ASSERT_TRUE(library);
  EXPECT_EQ(library->libDictionary(), library_->libDictionary());
  EXPECT_EQ(library->bonjourName, std::nullopt);
  EXPECT_TRUE(library->fromBrindle && library->isShared && !library->onlineStatus);
  EXPECT_EQ(library->liveFolderDict, library_->liveFolderDict);
  EXPECT_EQ(library->connection->user->id, "me");
  ProjectPtr inner = library->projectWithID("H");
  ASSERT_TRUE(inner);
  EXPECT_EQ(inner->parent.lock(), library->projectWithID("G"));
  EXPECT_EQ(inner->rootProject.lock(), library->projects.at(0));
  EXPECT_EQ(inner->library.lock(), library);
  EXPECT_EQ(TQProject::findProjectWithGroup(inner), library->projects.at(0));
  EXPECT_EQ(KeyedArchiver::archivedData(library), bytes);

  // A node alone: what it refers to has no owner in what is read. A node in two lists keeps one place, so
  // that no archive unfolds to more than it holds.
  group->childGroups.push_back(group->childGroups[0]);
  group->childGroups[0]->parent = group->childGroups[0];
  auto alone = KeyedUnarchiver::unarchivedObject<TQProject>(KeyedArchiver::archivedData(group).value());
  ASSERT_TRUE(alone);
  EXPECT_EQ(alone->id, "G");
  ASSERT_EQ(alone->childGroups.size(), 1U);
  EXPECT_EQ(alone->childGroups[0]->parent.lock(), alone);
  EXPECT_FALSE(alone->parent.lock() || alone->library.lock());
  group->childGroups.push_back(root);
  EXPECT_FALSE(KeyedUnarchiver::unarchivedObject<TQLibrary>(KeyedArchiver::archivedData(library_).value()));
  group->childGroups.pop_back();
}

}  // namespace
}  // namespace vornex::testing
