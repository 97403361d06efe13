#include "model/ProjectTree.h"

#include <vornex/TQProject.h>
#include <vornex/TQVornexUtil.h>

#include "core/ProjectRules.h"

namespace vornex::tree {

TQErrorPtr error(std::int64_t code, const std::string& key) {
  return TQVornexUtil::errorWithCode(code, LocalizedString(key));
}

std::int64_t indexOf(const ProjectList& nodes, const OptionalString& id) {
  if (!id) return -1;
  auto found =
      std::find_if(nodes.begin(), nodes.end(), [&](const ProjectPtr& node) { return node->id == id; });
  return found == nodes.end() ? -1 : found - nodes.begin();
}

bool holds(const ProjectList& nodes, const TQProject& node) {
  return std::any_of(nodes.begin(), nodes.end(), [&](const ProjectPtr& each) { return each.get() == &node; });
}

bool hasName(const ProjectList& nodes, const OptionalString& name) {
  return name &&
         std::any_of(nodes.begin(), nodes.end(), [&](const ProjectPtr& node) { return node->name == name; });
}

std::int64_t depthOf(const TQProject& node) {
  std::int64_t depth = 0;
  for (ProjectPtr above = node.parent.lock(); above; above = above->parent.lock()) ++depth;
  return depth;
}

std::int64_t heightOf(const ProjectPtr& node) {
  return levelsBelow(node, [](const ProjectPtr& each) -> const ProjectList& { return each->childGroups; });
}

bool isWithin(const TQProject& node, const TQProject& top) {
  if (&node == &top) return true;
  for (ProjectPtr above = node.parent.lock(); above; above = above->parent.lock())
    if (above.get() == &top) return true;
  return false;
}

}  // namespace vornex::tree
