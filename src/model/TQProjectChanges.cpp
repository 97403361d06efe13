#include <vornex/Log.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQProject.h>

#include "core/ProjectRules.h"
#include "model/ProjectTree.h"

namespace vornex {

OptionalString TQProject::parentID() const {
  if (Ptr above = parent.lock()) return above->id;
  Ptr root = rootProject.lock();
  return root ? root->id : id;
}

bool TQProject::moveItem(const Ptr& item, std::int64_t toIndex, TQErrorPtr* error) {
  TQErrorPtr ignored;
  TQErrorPtr& failure = error ? *error : ignored;
  failure = nullptr;
  LibraryPtr owner = library.lock();
  std::int64_t from = indexOfGroup(item);
  if (!owner || from < 0 || !tree::isInsertionIndex(childGroups, toIndex)) {
    failure = tree::error(10000, "request.error.param.nil");
    return false;
  }
  if (!owner->confirmMove(*item, item->parentID(), toIndex, failure)) return false;
  ProjectList before = childGroups;
  tree::reorder(childGroups, from, toIndex);
  if (owner->saveMove(failure)) return true;
  childGroups = before;
  return false;
}

TQErrorPtr TQProject::refusalOfMove(const TQProject& item, std::int64_t toIndex,
                                    const TQProject& inParent) const {
  LibraryPtr owner = library.lock();
  // Below itself a node would be cut off from the tree, with all that it holds.
  if (!owner || !owner->holds(*this) || !owner->holds(inParent) || tree::isWithin(inParent, item) ||
      !tree::isInsertionIndex(inParent.childGroups, toIndex))
    return tree::error(10000, "request.error.param.nil");
  if (tree::depthOf(inParent) + 1 + tree::levelsBelow(item) > kDeepestLevel)
    return tree::error(10001, "group.error.too.deep");
  return nullptr;
}

bool TQProject::moveItem(const Ptr& item, std::int64_t toIndex, const Ptr& inParent, TQErrorPtr* error) {
  TQErrorPtr ignored;
  TQErrorPtr& failure = error ? *error : ignored;
  auto place = std::find(childGroups.begin(), childGroups.end(), item);
  if (inParent && inParent.get() == this && place != childGroups.end() && toIndex >= 0 &&
      toIndex < static_cast<std::int64_t>(childGroups.size())) {
    // To the server this is a reordering, whose index counts the item in its old place.
    const std::int64_t from = place - childGroups.begin();
    return moveItem(Ptr(*place), toIndex <= from ? toIndex : toIndex + 1, error);
  }
  const bool isMove = inParent && inParent.get() != this && place != childGroups.end();
  failure = isMove ? refusalOfMove(*item, toIndex, *inParent) : tree::error(10000, "request.error.param.nil");
  if (failure) return false;
  LibraryPtr owner = library.lock();
  if (!owner->confirmMove(*item, inParent->id, toIndex, failure)) return false;
  const Ptr moved = item;
  const ProjectList before = childGroups;
  const ProjectList beforeThere = inParent->childGroups;
  childGroups.erase(place);
  inParent->childGroups.insert(inParent->childGroups.begin() + toIndex, moved);
  moved->parent = inParent;
  if (owner->saveMove(failure)) return true;
  childGroups = before;
  inParent->childGroups = beforeThere;
  moved->parent = weak_from_this();
  return false;
}

Dictionary TQProject::renameRequest(const std::string& newName) const {
  return {{"name", newName}, {"parentid", parentID()}, {"id", id}, {"type", projectType}};
}

TQErrorPtr TQProject::renameLocally(const std::string& newName, TQLibrary& owner) {
  Ptr above = parent.lock();
  bool isGroup = above != nullptr;
  bool isTaken = isGroup ? above->isExistNameInChildGroups(newName) : owner.isExistNameInProjects(newName);
  if (isTaken) {
    const char* what = isGroup ? "Already exist name : " : "Already exist project name : ";
    logLine(LogLevel::warning, what + name.value_or("") + ", " + newName);
    return tree::error(10002, isGroup ? "group.message.exist" : "project.message.exist");
  }
  OptionalString oldName = std::exchange(name, newName);
  if (owner.saveProjects()) return nullptr;
  name = oldName;
  return owner.projectsNotSaved();
}

void TQProject::rename(const OptionalString& newName, Completion completion) {
  LibraryPtr owner = library.lock();
  if (!owner || !newName || newName->empty())
    return completion(false, tree::error(10000, "request.error.param.nil"));
  if (owner->libraryType != kLibraryTypeNetwork) {
    TQErrorPtr error = renameLocally(*newName, *owner);
    return completion(!error, error);
  }
  Dictionary item = renameRequest(*newName);
  OptionalString oldName = std::exchange(name, newName);
  owner->sendTreeChange(
      "update", item,
      [self = shared_from_this(), oldName, completion](OptionalString sentID, TQErrorPtr error) {
        if (!sentID) self->name = oldName;
        completion(sentID.has_value(), error);
      });
}

bool TQProject::rename(const OptionalString& newName, TQErrorPtr* error) {
  TQErrorPtr failure;
  LibraryPtr owner = library.lock();
  if (!owner || !newName || newName->empty()) {
    failure = tree::error(10000, "request.error.param.nil");
  } else if (owner->libraryType != kLibraryTypeNetwork) {
    failure = renameLocally(*newName, *owner);
  } else {
    Dictionary item = renameRequest(*newName);
    OptionalString oldName = std::exchange(name, newName);
    if (!owner->sendTreeChange("update", item, failure)) name = oldName;
  }
  if (error) *error = failure;
  return !failure;
}

void TQProject::adoptGroup(const Ptr& group) {
  Ptr self = shared_from_this();
  group->rootProject = projectType == kProjectTypeProject ? self : findProjectWithGroup(self);
  group->parent = self;
  group->library = library;
  childGroups.push_back(group);
}

void TQProject::addGroupWithName(const OptionalString& groupName,
                                 std::function<void(Ptr group, TQErrorPtr error)> completion) {
  LibraryPtr owner = library.lock();
  if (!owner || !groupName || groupName->empty())
    return completion(nullptr, tree::error(10000, "request.error.param.nil"));
  if (owner->libraryType == kLibraryTypeNetwork) {
    Dictionary item = {{"name", *groupName}, {"parentid", id}, {"type", kProjectTypeGroup}};
    owner->sendTreeChange(
        "create", item,
        [self = shared_from_this(), groupName, completion](OptionalString newID, TQErrorPtr error) {
          if (!newID) return completion(nullptr, error);
          Ptr group = projectWithID(newID, groupName, self->dbName, kProjectTypeGroup);
          if (!group) return completion(nullptr, tree::error(10004, "response.error.invalid"));
          self->adoptGroup(group);
          completion(group, nullptr);
        });
    return;
  }
  if (isExistNameInChildGroups(*groupName)) {
    logLine(LogLevel::warning, "Already exist project name : " + *groupName);
    return completion(nullptr, tree::error(10002, "group.message.exist"));
  }
  if (tree::depthOf(*this) >= kDeepestLevel)
    return completion(nullptr, tree::error(10001, "group.error.too.deep"));
  Ptr group = projectWithName(groupName, dbName, kProjectTypeGroup);
  if (!group) return completion(nullptr, tree::error(10000, "request.error.param.nil"));
  adoptGroup(group);
  if (owner->saveProjects()) return completion(group, nullptr);
  childGroups.pop_back();
  completion(nullptr, owner->projectsNotSaved());
}

void TQProject::removeGroup(const Ptr& group, Completion completion) {
  LibraryPtr owner = library.lock();
  if (!owner || !group) return completion(false, tree::error(10000, "request.error.param.nil"));
  if (owner->libraryType == kLibraryTypeNetwork)
    return completion(false, tree::error(10005, "library.error.no.authority.network"));
  Ptr above = group->parent.lock();
  std::int64_t index = above ? above->indexOfGroup(group) : -1;
  if (index < 0) return completion(false, tree::error(10000, "request.error.param.nil"));
  auto place = above->childGroups.begin() + index;
  Ptr removed = *place;
  above->childGroups.erase(place);
  if (owner->saveProjects()) return completion(true, nullptr);
  above->childGroups.insert(above->childGroups.begin() + index, removed);
  completion(false, owner->projectsNotSaved());
}

}  // namespace vornex
