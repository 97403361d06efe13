// A project tree of 100,000 groups, 50 deep: read, written, changed and searched, beside Python's plistlib on
// the same file and a plain hash map of the same identifiers.

#include <benchmark/benchmark.h>
#include <fmt/format.h>
#include <vornex/Log.h>
#include <vornex/TQAsset.h>
#include <vornex/TQConnection.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQProject.h>
#include <vornex/TQSearchManager.h>

#include <cstdio>
#include <filesystem>
#include <random>

#include "core/StorageLayout.h"
#include "foundation/Files.h"
#include "foundation/Json.h"
#include "foundation/PropertyList.h"
#include "foundation/Text.h"
#include "server/store/ProjectTree.h"
#include "support/TemporaryFolder.h"

using namespace vornex;

namespace {

constexpr int kProjects = 20;
constexpr int kChains = 100;
constexpr int kDepth = 50;

class Tree {
 public:
  static Tree& shared() {
    static Tree tree;
    return tree;
  }

  LibraryPtr library;
  std::vector<std::string> ids;
  std::string path;

 private:
  Tree() {
    setLogSink([](LogLevel, const std::string&) {});
    library = TQLibrary::libraryWithName("Large", "", kLibraryTypeLocal, false, true, true, folder_.path(),
                                         "", std::make_shared<TQConnection>());
    path = layout::projectPlist(folder_.path());
    std::filesystem::create_directories(deletingLastPathComponent(path));
    for (int i = 0; i < kProjects; ++i) {
      Array chains;
      for (int j = 0; j < kChains; ++j) chains.push_back(chain(kDepth));
      Dictionary form = node(0);
      ProjectPtr project = TQProject::projectWithDictionary(form);
      project->library = library;
      project->rootProject = project;
      form.set("group", std::move(chains));
      library->loadGroups(form, project, project);
      library->projects.push_back(project);
    }
    if (!library->saveProjects()) std::abort();
  }

  Dictionary node(int type) {
    ids.push_back(makeUUID());
    return {{"id", ids.back()},
            {"name", fmt::format("node {}", ids.size())},
            {"dbname", *library->dbName},
            {"type", type}};
  }
  Dictionary chain(int depth) {
    Dictionary form = node(1);
    if (depth > 1) form.set("group", Array{chain(depth - 1)});
    return form;
  }

  vornex::testing::TemporaryFolder folder_;
};

/// A page of 100 assets in random groups.
Value page() {
  Tree& tree = Tree::shared();
  std::mt19937 random(1);
  Array items;
  while (items.size() < 100) {
    ProjectPtr group = tree.library->projectWithID(tree.ids[random() % tree.ids.size()]);
    items.push_back(Dictionary{{"_id", makeUUID()},
                               {"name", "asset"},
                               {"type", 2},
                               {"project", group->rootProject.lock()->id},
                               {"group", group->id}});
  }
  return Dictionary{{"items", std::move(items)}, {"total", 100}};
}

void serverReadsFile(benchmark::State& state) {
  std::string package = deletingLastPathComponent(deletingLastPathComponent(Tree::shared().path));
  for (auto _ : state) {
    server::ProjectTree tree(package);
    if (!tree.json()) state.SkipWithError("not read");
  }
}

void serverRenames(benchmark::State& state) {
  Tree& tree = Tree::shared();
  server::ProjectTree served(deletingLastPathComponent(deletingLastPathComponent(tree.path)));
  int number = 0;
  for (auto _ : state)
    if (!served.rename(tree.ids.back(), fmt::format("renamed {}", ++number)))
      state.SkipWithError("not renamed");
}

void libraryTakesAnswer(benchmark::State& state) {
  Tree& tree = Tree::shared();
  server::ProjectTree served(deletingLastPathComponent(deletingLastPathComponent(tree.path)));
  std::string answer = *served.json().value();
  for (auto _ : state) {
    Value content = parseJson(answer).value();
    for (const Value& form : *content.find("projects")->ifArray()) {
      ProjectPtr project = TQProject::projectWithDictionary(*form.ifDictionary());
      tree.library->loadGroups(*form.ifDictionary(), project, project);
      benchmark::DoNotOptimize(project);
    }
  }
}

/// Reordering a group: in memory it is nothing, so this is what saving costs.
void libraryMovesAndSaves(benchmark::State& state) {
  Tree& tree = Tree::shared();
  // The server's renames have changed the file: a copy of its own.
  LibraryPtr library = TQLibrary::libraryWithDictionary(*tree.library->libDictionary());
  vornex::testing::TemporaryFolder folder;
  library->packageFolder = folder.path();
  std::filesystem::create_directories(deletingLastPathComponent(layout::projectPlist(folder.path())));
  library->projects = tree.library->projects;
  for (const ProjectPtr& project : library->projects) project->library = library;
  const ProjectPtr parent = library->projects[0];
  for (auto _ : state)
    if (!parent->moveItem(parent->childGroups[0], kChains)) state.SkipWithError("not moved");
  for (const ProjectPtr& project : library->projects) project->library = tree.library;
}

void findsByIdentifier(benchmark::State& state) {
  Tree& tree = Tree::shared();
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(tree.library->projectWithID(tree.ids[i]));
    i = (i + 7919) % tree.ids.size();
  }
}

void findsFirstAfterChange(benchmark::State& state) {
  Tree& tree = Tree::shared();
  for (auto _ : state) {
    tree.library->projects.noteChange();
    benchmark::DoNotOptimize(tree.library->projectWithID(tree.ids.back()));
  }
}

void plainHashMap(benchmark::State& state) {
  Tree& tree = Tree::shared();
  std::unordered_map<std::string, ProjectPtr> map;
  for (const std::string& id : tree.ids) map.emplace(id, tree.library->projectWithID(id));
  std::size_t i = 0;
  for (auto _ : state) {
    ProjectPtr found = map.find(tree.ids[i])->second;
    benchmark::DoNotOptimize(found);
    i = (i + 7919) % tree.ids.size();
  }
}

void linksPageOfAssets(benchmark::State& state) {
  Value answer = page();
  for (auto _ : state) {
    auto assets = TQSearchManager::sharedManager().extractAssetInfo(answer, Tree::shared().library);
    if (assets.size() != 100 || !assets[0]->group) state.SkipWithError("not linked");
  }
}

/// Python measures itself: the start of the interpreter does not count.
void pythonRuns(benchmark::State& state, const std::string& work) {
  std::string program = fmt::format(
      "import io, plistlib, time; data = open('{}', 'rb').read(); tree = plistlib.loads(data); "
      "start = time.perf_counter(); {}; print(time.perf_counter() - start)",
      Tree::shared().path, work);
  for (auto _ : state) {
    std::FILE* python = ::popen(("python3 -c \"" + program + "\"").c_str(), "r");
    double seconds = 0;
    if (!python || std::fscanf(python, "%lf", &seconds) != 1) state.SkipWithError("no python3");
    if (python) ::pclose(python);
    state.SetIterationTime(seconds);
  }
}
void pythonReads(benchmark::State& state) {
  pythonRuns(state, "plistlib.loads(data)");
}
void pythonWrites(benchmark::State& state) {
  pythonRuns(state, "plistlib.dumps(tree)");
}

BENCHMARK(findsByIdentifier);
BENCHMARK(plainHashMap);
BENCHMARK(findsFirstAfterChange)->Unit(benchmark::kMillisecond);
BENCHMARK(linksPageOfAssets)->Unit(benchmark::kMillisecond);
BENCHMARK(libraryTakesAnswer)->Unit(benchmark::kMillisecond);
BENCHMARK(libraryMovesAndSaves)->Unit(benchmark::kMillisecond);
BENCHMARK(serverReadsFile)->Unit(benchmark::kMillisecond);
BENCHMARK(serverRenames)->Unit(benchmark::kMillisecond);
BENCHMARK(pythonReads)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(3);
BENCHMARK(pythonWrites)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(3);

}  // namespace

BENCHMARK_MAIN();
