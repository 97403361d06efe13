#pragma once

#include <vornex/Types.h>

#include <atomic>
#include <initializer_list>
#include <memory>
#include <vector>

namespace vornex {

/// A library's projects, or the groups of a node, in display order. It reads like a vector; its changes are
/// counted where its tree's index asked for it, so that the index can know that it is out of date.
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
  /// A copy, or what is assigned, is the nodes alone.
  ProjectList(const ProjectList& other) : nodes_(other.nodes_) {}
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
  bool operator==(const ProjectList& other) const { return nodes_ == other.nodes_; }

  void push_back(ProjectPtr node);
  void pop_back();
  const_iterator insert(const_iterator before, ProjectPtr node);
  const_iterator erase(const_iterator position);
  void clear();

  /// To be called after a change that no list sees: another identifier of the node that these groups belong
  /// to, or of one of them.
  void noteChange();

 private:
  friend class ProjectIndex;
  using Counter = std::shared_ptr<std::atomic<std::uint64_t>>;

  Nodes nodes_;
  /// Of the index that has taken the list in; null while none has.
  mutable Counter changes_;
};

}  // namespace vornex
