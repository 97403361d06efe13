#pragma once

#include <vornex/Types.h>

#include <initializer_list>
#include <vector>

namespace vornex {

/// A library's projects, or the groups of a node, in display order. It reads like a vector; every change of
/// any list is counted, so that what was derived from a tree can be known to be out of date.
///
/// Thread-safety: like a standard container. Concurrent reads are safe; a write excludes everything else.
class ProjectList {
 public:
  using Nodes = std::vector<ProjectPtr>;
  using value_type = ProjectPtr;
  using size_type = Nodes::size_type;
  using difference_type = Nodes::difference_type;
  using const_reference = Nodes::const_reference;
  using reference = const_reference;
  using const_iterator = Nodes::const_iterator;
  using iterator = const_iterator;

  ProjectList() = default;
  ProjectList(const ProjectList& other) = default;
  ProjectList(Nodes nodes) : nodes_(std::move(nodes)) {}
  ProjectList(std::initializer_list<ProjectPtr> nodes) : nodes_(nodes) {}
  ProjectList& operator=(const ProjectList& other);
  ~ProjectList() = default;

  operator const Nodes&() const { return nodes_; }
  bool empty() const { return nodes_.empty(); }
  size_type size() const { return nodes_.size(); }
  const_iterator begin() const { return nodes_.begin(); }
  const_iterator end() const { return nodes_.end(); }
  const ProjectPtr& operator[](size_type index) const { return nodes_[index]; }
  const ProjectPtr& at(size_type index) const { return nodes_.at(index); }
  const ProjectPtr& front() const { return nodes_.front(); }
  const ProjectPtr& back() const { return nodes_.back(); }
  bool operator==(const ProjectList& other) const = default;

  void push_back(ProjectPtr node);
  void pop_back();
  const_iterator insert(const_iterator before, ProjectPtr node);
  const_iterator erase(const_iterator position);
  void clear();

  /// How often lists have been changed in this process. Safe on any thread.
  static std::uint64_t changeCount();
  /// To be called after a change that no list sees: another identifier of a listed node.
  static void noteChange();

 private:
  Nodes nodes_;
};

}  // namespace vornex
