// links: vornex_server
#include <cstdint>

#include "core/Coercion.h"
#include "foundation/PropertyList.h"
#include "server/store/ProjectEdits.h"

using namespace vornex;
using namespace vornex::server;

static std::size_t countNodes(const Value* nodes) {
  std::size_t count = 0;
  for (const Value& node : coerce::array(nodes)) count += 1 + countNodes(node.find("group"));
  return count;
}

// Changes of any tree that a "project.plist" may hold, chosen by the first bytes: what fails changes nothing,
// and what succeeds loses no node.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 4) return 0;
  auto value = parsePropertyList(std::string_view(reinterpret_cast<const char*>(data + 4), size - 4));
  if (!value || !value->ifDictionary()) return 0;
  Dictionary content = *value->ifDictionary();
  if (!content.find("projects") || !content.find("projects")->ifArray()) return 0;
  const std::size_t before = countNodes(content.find("projects"));
  const std::string id(1, static_cast<char>(data[1])), parent(data[2] ? 1 : 0, static_cast<char>(data[2]));
  bool isChanged = false;
  std::size_t expected = before;
  if (data[0] % 3 == 0) {
    isChanged = projects::create(content, id, parent, "db").has_value();
    expected += isChanged ? 1 : 0;
  } else if (data[0] % 3 == 1) {
    isChanged = projects::rename(content, id, parent).has_value();
  } else {
    isChanged = projects::move(content, id, parent, data[3] % 8).has_value();
  }
  if (countNodes(content.find("projects")) != expected) __builtin_trap();
  if (!isChanged && !(content == *value->ifDictionary())) __builtin_trap();
  return 0;
}
