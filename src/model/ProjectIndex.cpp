#include "model/ProjectIndex.h"

#include <vornex/TQProject.h>

namespace vornex {

void ProjectIndex::prepare(const ProjectList& roots) {
  std::lock_guard lock(mutex_);
  if (builtAt_ != *changes_) build(roots);
}

ProjectPtr ProjectIndex::find(const ProjectList& roots, const std::string& id) {
  std::lock_guard lock(mutex_);
  const Entry* entry = entryOf(roots, id);
  return entry ? entry->node.lock() : nullptr;
}

std::optional<ProjectPtr> ProjectIndex::findWithin(const ProjectList& roots, const TQProject& top,
                                                   const std::string& id) {
  std::lock_guard lock(mutex_);
  const Entry* above = top.id ? entryOf(roots, *top.id) : nullptr;
  if (!above || above->isRepeated || above->node.lock().get() != &top) return std::nullopt;
  const Entry* entry = entryOf(roots, id);
  if (!entry) return ProjectPtr();
  if (entry->isRepeated) return std::nullopt;
  bool isBelow = entry->place >= above->place && entry->place < above->end;
  return isBelow ? entry->node.lock() : nullptr;
}

const ProjectIndex::Entry* ProjectIndex::entryOf(const ProjectList& roots, const std::string& id) {
  if (builtAt_ != *changes_) build(roots);
  auto found = entries_.find(id);
  return found == entries_.end() ? nullptr : &found->second;
}

void ProjectIndex::build(const ProjectList& roots) {
  builtAt_ = *changes_;
  entries_.clear();
  roots.changes_ = changes_;
  // A root project comes before a group with the same identifier.
  for (const ProjectPtr& root : roots)
    if (root->id) entries_.try_emplace(*root->id, Entry{root});
  std::size_t place = 1;
  for (const ProjectPtr& root : roots) place = add(root, place);
}

std::size_t ProjectIndex::add(const ProjectPtr& node, std::size_t place) {
  Entry* entry = nullptr;
  if (node->id) {
    Entry& known = entries_.try_emplace(*node->id, Entry{node}).first->second;
    if (known.place == 0 && known.node.lock() == node)
      entry = &known;
    else
      known.isRepeated = true;
  }
  if (entry) entry->place = place;
  ++place;
  node->childGroups.changes_ = changes_;
  for (const ProjectPtr& child : node->childGroups) place = add(child, place);
  if (entry) entry->end = place;
  return place;
}

}  // namespace vornex
