#include <vornex/Log.h>
#include <vornex/Queue.h>
#include <vornex/TQConnection.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQProject.h>
#include <vornex/TQSearchManager.h>
#include <vornex/TQUser.h>
#include <vornex/TQVornexUtil.h>

#include "core/Coercion.h"
#include "foundation/Files.h"
#include "foundation/PropertyList.h"
#include "model/ProjectTree.h"

namespace vornex {

// Loading

std::optional<std::vector<ProjectPtr>> TQLibrary::loadProjects(TQErrorPtr* error) {
  TQErrorPtr ignored;
  TQErrorPtr& failure = error ? *error : ignored;
  failure = nullptr;
  if (!connection || !connection->user) {
    failure = tree::error(10000, "request.error.param.nil");
    return std::nullopt;
  }
  const UserPtr user = connection->user;
  Value response = TQVornexUtil::syncRequestURL(serverURL("/projects"), user->id, user->password, "GET",
                                                std::nullopt, &failure);
  if (failure) return std::nullopt;
  const Value* nodes = response.find("projects");
  if (!nodes || !nodes->ifArray()) {
    // Taking this for an empty tree would lose the known one with the next save.
    failure = tree::error(10004, "response.error.invalid");
    return std::nullopt;
  }
  projectHashValue = coerce::string(response.find("hash"));
  takeProjects(*nodes->ifArray());
  isTreeLoaded_ = true;
  return projects;
}

void TQLibrary::loadProjects(
    std::function<void(std::optional<std::vector<ProjectPtr>> projects, TQErrorPtr error)> completion) {
  GlobalQueue::shared().async([self = shared_from_this(), completion = std::move(completion)] {
    TQErrorPtr error;
    std::optional<std::vector<ProjectPtr>> loaded = self->loadProjects(&error);
    completion(std::move(loaded), error);
  });
}

void TQLibrary::takeProjects(const Array& nodes) {
  std::unordered_map<std::string, ProjectPtr> known;
  for (const ProjectPtr& project : projects)
    if (project->id) known.emplace(*project->id, project);
  std::vector<ProjectPtr> taken;
  for (const Value& value : nodes) {
    const Dictionary* node = value.ifDictionary();
    if (!node) continue;
    auto found = known.find(coerce::string(node->find("id")).value_or(""));
    ProjectPtr project = found == known.end() ? TQProject::projectWithDictionary(*node) : found->second;
    if (!project) continue;
    if (found == known.end()) {
      project->library = weak_from_this();
      project->rootProject = project;
    } else {
      project->setDictionary(*node);
      project->childGroups.clear();
    }
    loadGroups(*node, project, project->rootProject.lock());
    taken.push_back(std::move(project));
  }
  projects = std::move(taken);
}

void TQLibrary::loadGroups(const Dictionary& parent, const ProjectPtr& project,
                           const ProjectPtr& rootProject) {
  const Value* nodes = parent.find("group");
  if (!nodes || !nodes->ifArray()) return;
  for (const Value& node : *nodes->ifArray()) {
    ProjectPtr group = node.ifDictionary() ? TQProject::projectWithDictionary(*node.ifDictionary()) : nullptr;
    if (!group) continue;
    group->library = weak_from_this();
    group->parent = project;
    group->rootProject = rootProject;
    group->level = project->level + 1;
    project->childGroups.push_back(group);
    loadGroups(*node.ifDictionary(), group, rootProject);
  }
}

// Looking up

std::int64_t TQLibrary::indexOfProject(const ProjectPtr& project) const {
  return project ? tree::indexOf(projects, project->id) : -1;
}

ProjectPtr TQLibrary::projectWithID(const std::string& id) const {
  for (const ProjectPtr& project : projects)
    if (project->id == id) return project;
  for (const ProjectPtr& project : projects)
    if (ProjectPtr group = project->groupWithID(id)) return group;
  return nullptr;
}

bool TQLibrary::isExistNameInProjects(const std::string& wanted) const {
  return tree::hasName(projects, wanted);
}

// Saving

static std::optional<Array> childNodes(const TQProject& project);

/// The node with everything below it; absent when a node cannot be written.
static std::optional<Dictionary> treeNode(const TQProject& project) {
  std::optional<Dictionary> node = project.projectDictionary();
  std::optional<Array> children = childNodes(project);
  if (!node || !children) return std::nullopt;
  if (!children->empty()) node->set("group", std::move(*children));
  return node;
}

static std::optional<Array> childNodes(const TQProject& project) {
  Array nodes;
  for (const ProjectPtr& child : project.childGroups) {
    std::optional<Dictionary> node = treeNode(*child);
    if (!node) return std::nullopt;
    nodes.push_back(std::move(*node));
  }
  return nodes;
}

void TQLibrary::loadGroup(const ProjectPtr& project, Dictionary& parent) const {
  if (!project) return;
  std::optional<Array> children = childNodes(*project);
  if (children && !children->empty()) parent.set("group", std::move(*children));
}

bool TQLibrary::readProjectFile() {
  if (isProjectFileRead_) return true;
  OptionalString path = TQVornexUtil::projectPlistWithPackageFolder(packageFolder);
  if (!path) return false;
  if (itemExists(*path)) {
    Result<Dictionary> file = readDictionaryFile(*path);
    if (!file) {
      logLine(LogLevel::error, "Can't read project file : " + file.error().message);
      return false;
    }
    projectDict_ = std::move(*file);
    if (!isTreeLoaded_ && projects.empty()) takeProjects(coerce::array(projectDict_.find("projects")));
  }
  isProjectFileRead_ = true;
  return true;
}

bool TQLibrary::saveProjects() {
  if (!readProjectFile()) return false;
  Array nodes;
  for (const ProjectPtr& project : projects) {
    std::optional<Dictionary> node = treeNode(*project);
    if (!node) return false;
    nodes.push_back(std::move(*node));
  }
  projectDict_.set("projects", std::move(nodes));
  projectHashValue = MD5String(TQVornexUtil::UUIDString());
  projectDict_.set("hash", *projectHashValue);
  OptionalString path = TQVornexUtil::projectPlistWithPackageFolder(packageFolder);
  Result<void> written = writePropertyListFile(path.value_or(""), projectDict_);
  if (!written) logLine(LogLevel::error, "saveProjects: " + written.error().message);
  return written.has_value();
}

TQErrorPtr TQLibrary::projectsNotSaved() const {
  logLine(LogLevel::error, "Can't save project file : " + packageFolder.value_or(""));
  return tree::error(10003, "project.error.cannot.save");
}

// Changing

static Value treeChangeBody(const Dictionary& item) {
  return Dictionary{{"items", Array{item}}};
}

OptionalString TQLibrary::takeTreeChange(const Value& response, TQErrorPtr& error) {
  if (error) return std::nullopt;
  OptionalString id = coerce::string(response.find("id"));
  if (!id) error = tree::error(10004, "response.error.invalid");
  OptionalString hash = coerce::string(response.find("hash"));
  if (id && hash) projectHashValue = hash;
  return id;
}

OptionalString TQLibrary::sendTreeChange(const std::string& operation, const Dictionary& item,
                                         TQErrorPtr& error) {
  if (!connection || !connection->user) {
    error = tree::error(10000, "request.error.param.nil");
    return std::nullopt;
  }
  const UserPtr user = connection->user;
  Value response = TQVornexUtil::syncRequestURL(serverURL("/projects/" + operation), user->id, user->password,
                                                "POST", treeChangeBody(item), &error);
  return takeTreeChange(response, error);
}

void TQLibrary::sendTreeChange(const std::string& operation, const Dictionary& item,
                               std::function<void(OptionalString id, TQErrorPtr error)> completion) {
  if (!connection || !connection->user)
    return completion(std::nullopt, tree::error(10000, "request.error.param.nil"));
  const UserPtr user = connection->user;
  TQVornexUtil::requestURL(
      serverURL("/projects/" + operation), user->id, user->password, "POST", treeChangeBody(item),
      [self = shared_from_this(), completion = std::move(completion)](Value response, TQErrorPtr error) {
        OptionalString id = self->takeTreeChange(response, error);
        completion(id, error);
      });
}

bool TQLibrary::confirmMove(const TQProject& item, const OptionalString& parentID, std::int64_t toIndex) {
  if (libraryType == kLibraryTypeLocal) return true;
  Dictionary change = {
      {"id", item.id}, {"parentid", parentID}, {"toindex", toIndex}, {"type", item.projectType}};
  TQErrorPtr error;
  return sendTreeChange("move", change, error).has_value();
}

void TQLibrary::saveMove() {
  if (libraryType == kLibraryTypeLocal && !saveProjects()) projectsNotSaved();
}

bool TQLibrary::moveItem(const ProjectPtr& item, std::int64_t toIndex) {
  std::int64_t from = indexOfProject(item);
  if (from < 0 || !tree::isInsertionIndex(projects, toIndex)) return false;
  if (!confirmMove(*item, item->parentID(), toIndex)) return false;
  tree::reorder(projects, from, toIndex);
  saveMove();
  return true;
}

void TQLibrary::adoptProject(const ProjectPtr& project) {
  project->library = weak_from_this();
  project->rootProject = project;
  projects.push_back(project);
}

void TQLibrary::addProject(OptionalString newName,
                           std::function<void(ProjectPtr project, TQErrorPtr error)> completion) {
  GlobalQueue::shared().async(
      [self = shared_from_this(), newName = std::move(newName), completion = std::move(completion)] {
        if (!newName) {
          logLine(LogLevel::error, "Library not found: " + self->dbName.value_or(""));
          return completion(nullptr, tree::error(10000, "request.error.param.nil"));
        }
        if (self->libraryType == kLibraryTypeNetwork) return self->addNetworkProject(*newName, completion);
        TQErrorPtr error;
        ProjectPtr project = self->addLocalProject(*newName, error);
        completion(project, error);
      });
}

void TQLibrary::addNetworkProject(
    const std::string& newName, const std::function<void(ProjectPtr project, TQErrorPtr error)>& completion) {
  Dictionary item = {{"name", newName}, {"parentid", ""}, {"type", kProjectTypeProject}};
  sendTreeChange(
      "create", item, [self = shared_from_this(), newName, completion](OptionalString id, TQErrorPtr error) {
        if (!id) return completion(nullptr, error);
        ProjectPtr project = TQProject::projectWithID(id, newName, self->dbName, kProjectTypeProject);
        if (project) self->adoptProject(project);
        completion(project, nullptr);
      });
}

ProjectPtr TQLibrary::addLocalProject(const std::string& newName, TQErrorPtr& error) {
  if (!readProjectFile()) {
    error = projectsNotSaved();
    return nullptr;
  }
  if (isExistNameInProjects(newName)) {
    logLine(LogLevel::warning, "Already exist project name : " + newName);
    error = tree::error(10002, "project.message.exist");
    return nullptr;
  }
  ProjectPtr project = TQProject::projectWithName(newName, dbName, kProjectTypeProject);
  if (!project) {
    error = tree::error(10000, "request.error.param.nil");
    return nullptr;
  }
  adoptProject(project);
  if (saveProjects()) return project;
  projects.pop_back();
  error = projectsNotSaved();
  return nullptr;
}

void TQLibrary::removeProject(ProjectPtr project, Completion completion) {
  GlobalQueue::shared().async(
      [self = shared_from_this(), project = std::move(project), completion = std::move(completion)] {
        TQErrorPtr error = self->removeLocalProject(project);
        completion(!error, error);
      });
}

TQErrorPtr TQLibrary::removeLocalProject(const ProjectPtr& project) {
  if (!project || !project->id) return tree::error(10000, "request.error.param.nil");
  if (libraryType == kLibraryTypeNetwork) {
    logLine(LogLevel::warning, "Library is network: " + name.value_or(""));
    return tree::error(10005, "library.error.no.authority.network");
  }
  if (!readProjectFile()) return projectsNotSaved();
  TQSearchManager& manager = TQSearchManager::sharedManager();
  PredicatePtr inside = TQPredicate::andPredicateWithSubpredicates(
      {manager.createPredicateWithKey("project", project->id), manager.createQueryWithTrash(false)});
  TQSearchResponse found = manager.searchAssetWithLibrary(shared_from_this(), inside, 0, 1, 0);
  // Without an answer nobody knows what the project holds.
  if (found.error) return found.error;
  if (found.totalCount > 0 || !found.result.empty()) return tree::error(10004, "project.error.item.exist");
  std::int64_t index = indexOfProject(project);
  if (index < 0) return tree::error(10000, "request.error.param.nil");
  ProjectPtr removed = projects[static_cast<std::size_t>(index)];
  projects.erase(projects.begin() + index);
  if (saveProjects()) return nullptr;
  projects.insert(projects.begin() + index, removed);
  return projectsNotSaved();
}

}  // namespace vornex
