#pragma once

#include <vornex/Types.h>

#include <string>
#include <unordered_map>
#include <unordered_set>

namespace vornex {

/// Finds the projects and groups that the items of one answer name. A whole page costs one walk through the
/// tree, however many groups there are.
///
/// Lives as long as the answer is read: it does not see later changes of the tree. Thread-safety: none.
class TreeLookup {
 public:
  TreeLookup(const TQLibrary& library, const Array& items);

  /// As TQLibrary::projectWithID, for an identifier that an item names under "project"; null when unknown.
  ProjectPtr project(const OptionalString& id) const;
  /// As TQProject::groupWithID, for an identifier that an item names under "group"; null when unknown.
  ProjectPtr group(const ProjectPtr& project, const OptionalString& id);

 private:
  using Identifiers = std::unordered_set<std::string>;
  using Nodes = std::unordered_map<std::string, ProjectPtr>;

  /// Notes the first node with each wanted identifier, a node before its children, until all are found.
  static void collect(const ProjectPtr& node, const Identifiers& wanted, Nodes& found);

  Identifiers wantedGroups_;
  Nodes projects_;
  std::unordered_map<ProjectPtr, Nodes> groups_;
};

}  // namespace vornex
