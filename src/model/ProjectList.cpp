#include <vornex/ProjectList.h>

namespace vornex {

ProjectList& ProjectList::operator=(const ProjectList& other) {
  nodes_ = other.nodes_;
  noteChange();
  return *this;
}

void ProjectList::push_back(ProjectPtr node) {
  nodes_.push_back(std::move(node));
  noteChange();
}

void ProjectList::pop_back() {
  nodes_.pop_back();
  noteChange();
}

ProjectList::const_iterator ProjectList::insert(const_iterator before, ProjectPtr node) {
  noteChange();
  return nodes_.insert(before, std::move(node));
}

ProjectList::const_iterator ProjectList::erase(const_iterator position) {
  noteChange();
  return nodes_.erase(position);
}

void ProjectList::clear() {
  nodes_.clear();
  noteChange();
}

void ProjectList::noteChange() {
  if (changes_) ++*changes_;
}

}  // namespace vornex
