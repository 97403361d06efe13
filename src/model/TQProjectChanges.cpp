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
  if (!owner || from < 0 || !owner->holds(*this) || !isInsertionIndex(childGroups, toIndex)) {
    failure = tree::error(10000, "request.error.param.nil");
    return false;
  }
  const TQProject& moved = *childGroups[static_cast<std::size_t>(from)];
  if (!owner->confirmMove(moved, moved.parentID(), toIndex, failure)) return false;
  ProjectList before = childGroups;
  reorder(childGroups, from, toIndex);
  if (owner->saveMove(failure)) return true;
  childGroups = before;
  return false;
}

TQErrorPtr TQProject::refusalOfMove(const Ptr& item, std::int64_t toIndex, const TQProject& inParent) const {
  LibraryPtr owner = library.lock();
  // Below itself a node would be cut off from the tree, with all that it holds.
  if (!owner || !owner->holds(*this) || !owner->holds(inParent) || tree::isWithin(inParent, *item) ||
      !isInsertionIndex(inParent.childGroups, toIndex))
    return tree::error(10000, "request.error.param.nil");
  if (tree::depthOf(inParent) + 1 + tree::heightOf(item) > kDeepestLevel)
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
  failure = isMove ? refusalOfMove(item, toIndex, *inParent) : tree::error(10000, "request.error.param.nil");
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
  if (!owner.holds(*this)) return tree::error(10000, "request.error.param.nil");
  const bool isGroup = projectType != kProjectTypeProject;
  const bool isTaken =
      isGroup ? isExistNameInChildGroups(newName, parent.lock()) : owner.isExistNameInProjects(newName);
  if (isTaken) {
    const char* what = isGroup ? "Already exist name : " : "Already exist project name : ";
    logLine(LogLevel::warning, what + name.value_or("") + ", " + newName);
    return tree::error(10002, isGroup ? "group.message.exist" : "project.message.exist");
  }
  OptionalString oldName = std::exchange(name, newName);
  TQErrorPtr error = owner.saveTree();
  if (error) name = oldName;
  return error;
}

TQProject::Ptr TQProject::nodeInTree() {
  LibraryPtr owner = library.lock();
  Ptr known = owner && id && !owner->holds(*this) ? owner->projectWithID(*id) : nullptr;
  return known ? known : shared_from_this();
}

void TQProject::endRename(bool isDone, const OptionalString& oldName) {
  if (isDone)
    nodeInTree()->name = name;
  else
    name = oldName;
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
        self->endRename(sentID.has_value(), oldName);
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
    endRename(owner->sendTreeChange("update", item, failure).has_value(), oldName);
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
          self->nodeInTree()->adoptGroup(group);
          completion(group, nullptr);
        });
    return;
  }
  if (!owner->holds(*this)) return completion(nullptr, tree::error(10000, "request.error.param.nil"));
  if (isExistNameInChildGroups(*groupName)) {
    logLine(LogLevel::warning, "Already exist project name : " + *groupName);
    return completion(nullptr, tree::error(10002, "group.message.exist"));
  }
  if (tree::depthOf(*this) >= kDeepestLevel)
    return completion(nullptr, tree::error(10001, "group.error.too.deep"));
  Ptr group = projectWithName(groupName, dbName, kProjectTypeGroup);
  if (!group) return completion(nullptr, tree::error(10000, "request.error.param.nil"));
  adoptGroup(group);
  TQErrorPtr error = owner->saveTree();
  if (!error) return completion(group, nullptr);
  childGroups.pop_back();
  completion(nullptr, error);
}

void TQProject::removeGroup(const Ptr& group, Completion completion) {
  LibraryPtr owner = library.lock();
  if (!owner || !group) return completion(false, tree::error(10000, "request.error.param.nil"));
  if (owner->libraryType == kLibraryTypeNetwork)
    return completion(false, tree::error(10005, "library.error.no.authority.network"));
  Ptr above = group->parent.lock();
  std::int64_t index = above && owner->holds(*above) ? above->indexOfGroup(group) : -1;
  if (index < 0) return completion(false, tree::error(10000, "request.error.param.nil"));
  auto place = above->childGroups.begin() + index;
  Ptr removed = *place;
  above->childGroups.erase(place);
  TQErrorPtr error = owner->saveTree();
  if (error) above->childGroups.insert(above->childGroups.begin() + index, removed);
  completion(!error, error);
}

}  // namespace vornex
