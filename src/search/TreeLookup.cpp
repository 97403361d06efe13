#include "search/TreeLookup.h"

#include <vornex/TQLibrary.h>
#include <vornex/TQProject.h>

#include "core/Coercion.h"

namespace vornex {

static ProjectPtr nodeAt(const std::unordered_map<std::string, ProjectPtr>& nodes, const OptionalString& id) {
  auto found = id ? nodes.find(*id) : nodes.end();
  return found == nodes.end() ? nullptr : found->second;
}

TreeLookup::TreeLookup(const TQLibrary& library, const Array& items) {
  Identifiers wantedProjects;
  for (const Value& item : items) {
    if (OptionalString id = coerce::string(item.find("project"))) wantedProjects.insert(std::move(*id));
    if (OptionalString id = coerce::string(item.find("group"))) wantedGroups_.insert(std::move(*id));
  }
  // A root project comes before any group with the same identifier.
  for (const ProjectPtr& root : library.projects)
    if (root->id && wantedProjects.contains(*root->id)) projects_.emplace(*root->id, root);
  for (const ProjectPtr& root : library.projects) collect(root, wantedProjects, projects_);
}

void TreeLookup::collect(const ProjectPtr& node, const Identifiers& wanted, Nodes& found) {
  if (found.size() == wanted.size()) return;
  if (node->id && wanted.contains(*node->id)) found.emplace(*node->id, node);
  for (const ProjectPtr& child : node->childGroups) collect(child, wanted, found);
}

ProjectPtr TreeLookup::project(const OptionalString& id) const {
  return nodeAt(projects_, id);
}

ProjectPtr TreeLookup::group(const ProjectPtr& project, const OptionalString& id) {
  if (!id || id->empty()) return nullptr;
  auto [entry, isNew] = groups_.try_emplace(project);
  if (isNew) collect(project, wantedGroups_, entry->second);
  return nodeAt(entry->second, id);
}

}  // namespace vornex
