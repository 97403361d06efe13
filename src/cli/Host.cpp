#include "cli/Host.h"

#include <fmt/format.h>
#include <vornex/TQConnection.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQLibraryManager.h>
#include <vornex/TQProject.h>
#include <vornex/VornexSDK.h>

#include <mutex>

#include "cli/Await.h"
#include "cli/Paths.h"
#include "foundation/Files.h"

namespace vornex::cli {
namespace {

using namespace std::chrono_literals;

constexpr auto kQuestionLimit = 1min;
// Opening many or large databases may take a while; the SDK gives up by itself when the service hangs.
constexpr auto kWorkLimit = 30min;

Error failureOf(const std::string& message) {
  return {"vornex", 0, message};
}

tl::unexpected<Error> noAnswer() {
  return tl::unexpected(failureOf("the service does not answer"));
}

VornexSDK& sdk() {
  static std::once_flag once;
  std::call_once(once, [] { VornexSDK::sharedInstance().initializeWAS(); });
  return VornexSDK::sharedInstance();
}

Result<std::int64_t> serveOn(std::int64_t port) {
  const auto started = await<bool, TQErrorPtr>(
      kWorkLimit, [&](Completion done) { sdk().startWASServiceWithPort(port, std::move(done)); });
  if (!started) return noAnswer();
  if (const auto& [ok, error] = *started; !ok) return tl::unexpected(fromSDK(error));
  return sdk().WASPort.load();
}

/// Runs an operation that may be repeated, again when the service is lost in the middle of it.
template <typename Operation>
auto persistently(Operation operation) {
  constexpr int kMostTries = 5;
  auto result = operation();
  for (int tries = 1; tries < kMostTries && !result && isServiceLost(result.error()); ++tries)
    result = operation();
  return result;
}

template <typename Item>
std::string namesOf(const std::vector<std::shared_ptr<Item>>& items) {
  constexpr std::size_t kMost = 10;
  std::string names;
  for (std::size_t i = 0; i < std::min(items.size(), kMost); ++i) {
    names += fmt::format("{}\"{}\"", i > 0 ? ", " : "", items[i]->name.value_or(""));
  }
  return items.size() > kMost ? names + ", …" : names;
}

std::vector<LibraryPtr> matching(const std::vector<LibraryPtr>& libraries, const std::string& wanted) {
  const std::string path = absolutePath(wanted);
  std::vector<LibraryPtr> byName, byPath;
  for (const LibraryPtr& library : libraries) {
    if (library->dbName == wanted) return {library};
    if (library->name == wanted) byName.push_back(library);
    if (library->packageFolder == path) byPath.push_back(library);
  }
  // A plain name means the same whatever the working folder is.
  const bool isPath = wanted.find('/') != std::string::npos;
  return byPath.empty() || (!isPath && !byName.empty()) ? byName : byPath;
}

Result<LibraryPtr> choose(const std::vector<LibraryPtr>& libraries, const OptionalString& wanted) {
  if (libraries.empty()) {
    return tl::unexpected(failureOf("there is no library yet; make one with: vornex library create PLACE"));
  }
  if (!wanted) {
    if (libraries.size() == 1) return libraries.front();
    return tl::unexpected(
        failureOf(fmt::format("say which library with --library; there are {}", namesOf(libraries))));
  }
  const std::vector<LibraryPtr> found = matching(libraries, *wanted);
  if (found.size() == 1) return found.front();
  if (found.empty()) {
    return tl::unexpected(
        failureOf(fmt::format("there is no library \"{}\"; there are {}", *wanted, namesOf(libraries))));
  }
  return tl::unexpected(
      failureOf(fmt::format("{} libraries are named \"{}\"; give the path of one", found.size(), *wanted)));
}

}  // namespace

std::optional<std::int64_t> Host::servicePort() {
  const auto state = await<bool, std::int64_t>(kQuestionLimit, [](auto done) { sdk().serviceState(done); });
  if (!state) return std::nullopt;
  const auto& [running, port] = *state;
  return running ? std::optional(port) : std::nullopt;
}

Result<std::int64_t> Host::startService() {
  if (servicePort()) return serveOn(0);
  auto port = serveOn(port_);
  // A service that was started and could not serve is of no use to anybody.
  if (!port && !servicePort()) await<>(kQuestionLimit, [](auto done) { sdk().terminateWAS(done); });
  return port;
}

Result<void> Host::restoreService() {
  auto port = persistently([] { return serveOn(sdk().WASPort); });
  if (!port) return tl::unexpected(port.error());
  return {};
}

Result<bool> Host::stopService() {
  const bool ran = servicePort().has_value();
  const auto ended = await<>(kWorkLimit, [](auto done) { sdk().terminateWAS(done); });
  if (!ended) return noAnswer();
  return ran;
}

Result<std::vector<LibraryPtr>> Host::libraries() {
  if (auto started = startService(); !started) return tl::unexpected(started.error());
  auto loaded = await<std::vector<LibraryPtr>>(
      kWorkLimit, [](auto done) { TQLibraryManager::sharedManager().loadAllLibraries(done); });
  if (!loaded) return noAnswer();
  return std::get<0>(std::move(*loaded));
}

Result<LibraryPtr> Host::library(const OptionalString& wanted) {
  return persistently([&] { return loadLibrary(wanted); });
}

Result<LibraryPtr> Host::listedLibrary(const OptionalString& wanted) {
  auto known = persistently([&] { return libraries(); });
  if (!known) return tl::unexpected(known.error());
  return choose(*known, wanted);
}

Result<LibraryPtr> Host::loadLibrary(const OptionalString& wanted) {
  auto known = libraries();
  if (!known) return tl::unexpected(known.error());
  auto library = choose(*known, wanted);
  if (!library) return library;
  if (auto there = checkFolder(*library); !there) return tl::unexpected(there.error());
  TQErrorPtr error;
  if (!(*library)->loadProjects(&error)) return tl::unexpected(fromSDK(error));
  // What a killed import left is settled before anything is shown or added; the SDK logs what it cannot
  // settle.
  (*library)->recoverInterruptedImports(nullptr);
  return library;
}

Result<ProjectPtr> Host::project(const LibraryPtr& library, const OptionalString& wanted) {
  const std::string name = library->name.value_or("");
  if (library->projects.empty()) {
    return tl::unexpected(failureOf(fmt::format(
        "the library \"{}\" has no project yet; make one with: vornex project add NAME --library \"{}\"",
        name, name)));
  }
  if (!wanted) {
    if (library->projects.size() == 1) return library->projects.front();
    return tl::unexpected(failureOf(fmt::format("say which project with --project; there are {}",
                                                namesOf<TQProject>(library->projects))));
  }
  if (ProjectPtr found = findProject(library, *wanted)) return found;
  return tl::unexpected(failureOf(fmt::format(
      "there is no project \"{}\" in \"{}\"; make it with: vornex project add \"{}\" --library \"{}\"",
      *wanted, name, *wanted, name)));
}

Result<void> checkFolder(const LibraryPtr& library) {
  const std::string folder = library->packageFolder.value_or("");
  if (library->libraryType != kLibraryTypeLocal || isDirectory(folder)) return {};
  return tl::unexpected(failureOf(
      fmt::format("there is no folder {}; if the library was moved, import it from where it is", folder)));
}

std::string projectPath(const ProjectPtr& project) {
  if (!project) return "-";
  const std::string name = project->name.value_or("");
  const ProjectPtr parent = project->parent.lock();
  return parent ? projectPath(parent) + "/" + name : name;
}

std::vector<std::string> projectNames(const std::string& path) {
  std::vector<std::string> names;
  for (std::size_t start = 0; start <= path.size();) {
    const std::size_t end = std::min(path.find('/', start), path.size());
    if (end > start) names.push_back(path.substr(start, end - start));
    start = end + 1;
  }
  return names;
}

ProjectPtr findProject(const LibraryPtr& library, const std::string& path) {
  ProjectPtr node;
  for (const std::string& name : projectNames(path)) {
    const auto& children = node ? node->childGroups : library->projects;
    const auto child = std::find_if(children.begin(), children.end(),
                                    [&](const ProjectPtr& each) { return each->name == name; });
    if (child == children.end()) return library->projectWithID(path);
    node = *child;
  }
  return node;
}

}  // namespace vornex::cli
