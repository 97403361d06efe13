#include <vornex/Log.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQProject.h>
#include <vornex/TQVornexUtil.h>

#include "core/Coercion.h"
#include "foundation/Json.h"
#include "model/Conversion.h"
#include "model/ProjectIndex.h"
#include "model/ProjectTree.h"

namespace vornex {

static constexpr const char* kUndefinedID = "UnDefined UUID";
static constexpr const char* kUndefinedName = "Undefined Name";

TQProject::Ptr TQProject::projectWithID(OptionalString id, OptionalString name, OptionalString dbName,
                                        std::int64_t type) {
  if (!id || !name || !dbName) return nullptr;
  Ptr node(new TQProject);
  node->id = std::move(id);
  node->name = std::move(name);
  node->dbName = std::move(dbName);
  node->projectType = type;
  return node;
}

TQProject::Ptr TQProject::projectWithName(OptionalString name, OptionalString dbName, std::int64_t type) {
  return projectWithID(TQVornexUtil::UUIDString(), std::move(name), std::move(dbName), type);
}

static ProjectPtr readNode(const Dictionary& dictionary) {
  return TQProject::projectWithID(
      coerce::string(dictionary.find("id")), coerce::string(dictionary.find("name")),
      coerce::string(dictionary.find("dbname")), coerce::integer(dictionary.find("type")));
}

TQProject::Ptr TQProject::projectWithDictionary(const Dictionary& dictionary) {
  return conversion::caught("projectWithDictionary : ", [&] { return readNode(dictionary); });
}

const TQProject::Ptr& TQProject::undefinedProject() {
  // Never destroyed: workers may search while the process ends.
  static const auto* undefined = [] {
    Ptr made = projectWithID(kUndefinedID, kUndefinedName, "", kProjectTypeProject);
    made->rootProject = made;
    return new Ptr(made);
  }();
  return *undefined;
}

template <typename Field, typename Fresh>
static void setIfOther(Field& field, const Fresh& value) {
  if (field != value) field = value;
}

TQProject::Ptr TQProject::undefinedProjectWithLibrary(const LibraryPtr& library) {
  static std::mutex mutex;
  const Ptr& undefined = undefinedProject();
  std::lock_guard lock(mutex);
  // What already holds is not written again: others may be reading it.
  setIfOther(undefined->id, OptionalString(kUndefinedID));
  setIfOther(undefined->name, OptionalString(kUndefinedName));
  setIfOther(undefined->projectType, kProjectTypeProject);
  setIfOther(undefined->dbName, library ? library->dbName : std::nullopt);
  if (undefined->rootProject.lock() != undefined) undefined->rootProject = undefined;
  if (undefined->library.lock() != library || !library) undefined->library = library;
  return undefined;
}

std::optional<Dictionary> TQProject::projectDictionary() const {
  using conversion::required;
  return conversion::caught("libDictionary exception: ", [&]() -> std::optional<Dictionary> {
    return Dictionary{{"id", required(id, "id")},
                      {"name", required(name, "name")},
                      {"dbname", required(dbName, "dbname")},
                      {"type", projectType}};
  });
}

void TQProject::setDictionary(const Dictionary& dictionary) {
  ProjectPtr read = conversion::caught("setDictionary : ", [&] { return readNode(dictionary); });
  if (!read) return;
  id = std::move(read->id);
  name = std::move(read->name);
  dbName = std::move(read->dbName);
  projectType = read->projectType;
  childGroups.noteChange();
}

std::string TQProject::description() const {
  std::optional<Dictionary> dictionary = projectDictionary();
  return dictionary ? writeJson(*dictionary, JsonStyle::pretty) : "(null)";
}

std::int64_t TQProject::indexOfGroup(const Ptr& group) const {
  return group ? tree::indexOf(childGroups, group->id) : -1;
}

TQProject::Ptr TQProject::groupWithID(const std::string& wanted) {
  if (id == wanted) return shared_from_this();
  // It has no groups, and its library changes with the searches of other threads.
  if (this == undefinedProject().get()) return nullptr;
  if (LibraryPtr owner = library.lock())
    if (auto known = owner->projectIndex_->findWithin(owner->projects, *this, wanted)) return *known;
  Ptr found;
  findGroupWithID(wanted, shared_from_this(), &found);
  return found;
}

void TQProject::findGroupWithID(const std::string& wanted, const Ptr& from, Ptr* findGroup) {
  if (!from) return;
  for (const Ptr& child : from->childGroups) {
    if (child->id == wanted) *findGroup = child;
    if (!*findGroup) findGroupWithID(wanted, child, findGroup);
    if (*findGroup) return;
  }
}

TQProject::Ptr TQProject::findGroupWithName(const OptionalString& wanted) const {
  if (!wanted) return nullptr;
  for (const Ptr& child : childGroups)
    if (child->name == wanted) return child;
  return nullptr;
}

TQProject::Ptr TQProject::findProjectWithGroup(const Ptr& group) {
  if (!group) return nullptr;
  Ptr above = group->parent.lock();
  if (!above) return group;
  return group->projectType == kProjectTypeGroup ? findProjectWithGroup(above) : nullptr;
}

bool TQProject::isExistNameInChildGroups(const std::string& wanted) const {
  return tree::hasName(childGroups, wanted);
}

bool TQProject::isExistNameInChildGroups(const std::string& wanted, const Ptr& in) const {
  return in && tree::hasName(in->childGroups, wanted);
}

std::int64_t TQProject::descendantCount() const {
  auto count = static_cast<std::int64_t>(childGroups.size());
  for (const Ptr& child : childGroups) count += child->descendantCount();
  return count;
}

}  // namespace vornex
