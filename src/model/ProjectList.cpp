#include <vornex/ProjectList.h>

#include <atomic>

namespace vornex {

static std::atomic<std::uint64_t> changes = 0;

ProjectList& ProjectList::operator=(const ProjectList& other) {
  nodes_ = other.nodes_;
  ++changes;
  return *this;
}

void ProjectList::push_back(ProjectPtr node) {
  nodes_.push_back(std::move(node));
  ++changes;
}

void ProjectList::pop_back() {
  nodes_.pop_back();
  ++changes;
}

ProjectList::const_iterator ProjectList::insert(const_iterator before, ProjectPtr node) {
  ++changes;
  return nodes_.insert(before, std::move(node));
}

ProjectList::const_iterator ProjectList::erase(const_iterator position) {
  ++changes;
  return nodes_.erase(position);
}

void ProjectList::clear() {
  nodes_.clear();
  ++changes;
}

std::uint64_t ProjectList::changeCount() {
  return changes;
}

void ProjectList::noteChange() {
  ++changes;
}

}  // namespace vornex
