#pragma once

#include <vornex/ProjectList.h>

#include <mutex>
#include <string>
#include <unordered_map>

namespace vornex {

/// Finds the nodes of one library's project tree by identifier without walking it. It is made by prepare(),
/// or by the first question after a change of the tree.
///
/// Thread-safety: questions are safe on any thread as long as nobody changes the tree.
class ProjectIndex {
 public:
  void prepare(const ProjectList& roots);

  /// The root project with the identifier, or else the first node in the order of a depth-first walk; null
  /// when there is none.
  ProjectPtr find(const ProjectList& roots, const std::string& id);

  /// The same among a node and all below it. Absent when the index cannot tell: the node is not in the tree,
  /// or the identifier occurs more than once.
  std::optional<ProjectPtr> findWithin(const ProjectList& roots, const TQProject& top, const std::string& id);

 private:
  struct Entry {
    std::weak_ptr<TQProject> node;
    /// In a depth-first walk. What is below the node takes the places after it, before `end`.
    std::size_t place = 0;
    std::size_t end = 0;
    bool isRepeated = false;
  };

  /// The identifier's entry in an index that fits the tree; null when there is none.
  const Entry* entryOf(const ProjectList& roots, const std::string& id);
  void build(const ProjectList& roots);
  /// Takes in the node and all below it; gives the place after them.
  std::size_t add(const ProjectPtr& node, std::size_t place);

  std::mutex mutex_;
  /// Of the lists that the index was built from; builtAt_ is absent until then.
  const ProjectList::Counter changes_ = std::make_shared<std::atomic<std::uint64_t>>(0);
  std::optional<std::uint64_t> builtAt_;
  std::unordered_map<std::string, Entry> entries_;
};

}  // namespace vornex
