// links: vornex_server
#include <vornex/Log.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>

#include "core/Coercion.h"
#include "core/StorageLayout.h"
#include "foundation/Files.h"
#include "foundation/Json.h"
#include "server/store/ProjectTree.h"

using namespace vornex;
using vornex::server::ProjectTree;

static std::size_t countNodes(const Value* nodes) {
  std::size_t count = 0;
  for (const Value& node : coerce::array(nodes)) count += 1 + countNodes(node.find("group"));
  return count;
}

/// Removed when the program ends.
struct PackageFolder {
  PackageFolder() {
    if (!::mkdtemp(path.data())) std::abort();
    std::filesystem::create_directory(path + "/Project");
  }
  ~PackageFolder() { std::filesystem::remove_all(path); }

  std::string path = (std::filesystem::temp_directory_path() / "vornex-fuzz-XXXXXX").string();
};

static const std::string& packageFolder() {
  static const PackageFolder folder;
  return folder.path;
}

static std::size_t countServed(ProjectTree& tree) {
  auto json = tree.json();
  auto value = json ? parseJson(**json) : parseJson("");
  if (!value) __builtin_trap();
  return countNodes(value->find("projects"));
}

// Changes of any tree that a "project.plist" may hold, chosen by the first bytes: what fails changes nothing,
// and what succeeds loses no node.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 4) return 0;
  setLogSink([](LogLevel, const std::string&) {});
  const std::string path = layout::projectPlist(packageFolder());
  const std::string file(reinterpret_cast<const char*>(data + 4), size - 4);
  if (!writeFileAtomically(path, file)) __builtin_trap();
  ProjectTree tree(packageFolder());
  const bool isReadable = tree.json().has_value();
  std::size_t expected = isReadable ? countServed(tree) : 0;
  const std::string id(1, static_cast<char>(data[1])), parent(data[2] ? 1 : 0, static_cast<char>(data[2]));
  auto changed = data[0] % 3 == 0   ? tree.create(id, parent, "db")
                 : data[0] % 3 == 1 ? tree.rename(id, parent)
                                    : tree.move(id, parent, data[3] % 8);
  if (!changed) {
    if (readFile(path).value_or("") != file) __builtin_trap();
    return 0;
  }
  if (data[0] % 3 == 0) ++expected;
  // As it is known from the change, and as another program reads it.
  ProjectTree fresh(packageFolder());
  if (!isReadable || countServed(tree) != expected || *tree.json().value() != *fresh.json().value())
    __builtin_trap();
  return 0;
}
