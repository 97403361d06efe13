// A list of 10,000 libraries: loaded, saved, and searched by identifier, the last beside a plain hash map.
// library_list_reference.py does the first two with Python's plistlib on the same rows.

#include <benchmark/benchmark.h>
#include <fmt/format.h>
#include <vornex/Log.h>
#include <vornex/TQConnection.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQLibraryManager.h>
#include <vornex/TQVornexUtil.h>

#include <cstdlib>
#include <filesystem>
#include <future>
#include <unordered_map>

#include "foundation/Files.h"
#include "foundation/PropertyList.h"

using namespace vornex;

static constexpr int kLibraries = 10'000;

static std::string identifier(int number) {
  return fmt::format("{:08X}-0000-4000-8000-000000000000", number);
}

static Value row(int number) {
  LibraryPtr library = TQLibrary::libraryWithName(
      fmt::format("Library {}", number), "Rushes of one production", kLibraryTypeLocal, false, true, true,
      fmt::format("/media/disk/productions/Library {}", number), "/media/disk",
      std::make_shared<TQConnection>());
  library->dbName = identifier(number);
  return *library->libDictionary();
}

/// The manager with the libraries loaded.
static TQLibraryManager& manager() {
  static TQLibraryManager& shared = []() -> TQLibraryManager& {
    setLogSink([](LogLevel, const std::string&) {});
    Array rows;
    for (int i = 0; i < kLibraries; ++i) rows.push_back(row(i));
    if (!createDirectories(TQVornexUtil::preferenceFolder()) ||
        !writePropertyListFile(TQVornexUtil::localLibraryPlist(), Dictionary{{"library", std::move(rows)}}))
      std::abort();
    std::promise<void> loaded;
    TQLibraryManager::sharedManager().loadAllLibraries(
        [&](const std::vector<LibraryPtr>&) { loaded.set_value(); });
    loaded.get_future().wait();
    return TQLibraryManager::sharedManager();
  }();
  return shared;
}

static void load(benchmark::State& state) {
  TQLibraryManager& shared = manager();
  for (auto _ : state)
    benchmark::DoNotOptimize(shared.loadLibrariesFromPlistFile(TQVornexUtil::localLibraryPlist()));
}
BENCHMARK(load)->Unit(benchmark::kMillisecond);

static void save(benchmark::State& state) {
  TQLibraryManager& shared = manager();
  for (auto _ : state)
    if (!shared.saveLibrariesFileWithType(kLibraryTypeLocal)) state.SkipWithError("not saved");
}
BENCHMARK(save)->Unit(benchmark::kMillisecond);

static void lookup(benchmark::State& state) {
  TQLibraryManager& shared = manager();
  const OptionalString wanted = identifier(kLibraries / 2);
  for (auto _ : state) benchmark::DoNotOptimize(shared.libraryForDBName(wanted));
}
BENCHMARK(lookup);

static void lookupInAHashMap(benchmark::State& state) {
  std::unordered_map<std::string, LibraryPtr> map;
  for (const LibraryPtr& library : manager().libraries()) map.emplace(*library->dbName, library);
  const std::string wanted = identifier(kLibraries / 2);
  for (auto _ : state) benchmark::DoNotOptimize(map.find(wanted)->second);
}
BENCHMARK(lookupInAHashMap);

int main(int count, char** values) {
  std::string root = (std::filesystem::temp_directory_path() / "vornex-bench-XXXXXX").string();
  if (!::mkdtemp(root.data())) return 1;
  ::setenv("VORNEX_ROOT", root.c_str(), 1);
  benchmark::Initialize(&count, values);
  benchmark::RunSpecifiedBenchmarks();
  std::filesystem::remove_all(root);
  // The SDK's workers live until the process ends.
  std::fflush(nullptr);
  std::_Exit(0);
}
