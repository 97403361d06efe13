#include <vornex/Log.h>
#include <vornex/Queue.h>
#include <vornex/TQConnection.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQProject.h>
#include <vornex/TQSearchManager.h>
#include <vornex/TQUser.h>
#include <vornex/TQVornexUtil.h>

#include "core/Coercion.h"
#include "core/ProjectRules.h"
#include "core/SdkError.h"
#include "model/ProjectTree.h"

namespace vornex {

UserPtr TQLibrary::requestUser(TQErrorPtr& error) const {
  UserPtr user = connection ? connection->user.load() : nullptr;
  if (user && user->id && user->password && serverURL("")) return user;
  error = withReason(tree::error(10000, "request.error.param.nil"), "nobody is logged in to the server");
  return nullptr;
}

Value TQLibrary::treeChangeBody(Dictionary item) const {
  // The server refuses the change when the tree is no longer the one that it was thought up for.
  bool isTreeKnown = isTreeLoaded_ || !projects.empty();
  if (isTreeKnown && projectHashValue && !projectHashValue->empty()) item.set("hash", *projectHashValue);
  return Dictionary{{"items", Array{std::move(item)}}};
}

OptionalString TQLibrary::takeTreeChange(const Value& response, TQErrorPtr& error) {
  if (error) return std::nullopt;
  OptionalString id = coerce::string(response.find("id"));
  if (!id) error = tree::error(10004, "response.error.invalid");
  OptionalString hash = coerce::string(response.find("hash"));
  if (id && hash) setProjectHash(hash);
  return id;
}

OptionalString TQLibrary::sendTreeChange(const std::string& operation, const Dictionary& item,
                                         TQErrorPtr& error) {
  const UserPtr user = requestUser(error);
  if (!user) return std::nullopt;
  Value response = TQVornexUtil::syncRequestURL(serverURL("/projects/" + operation), user->id, user->password,
                                                "POST", treeChangeBody(item), &error);
  return takeTreeChange(response, error);
}

void TQLibrary::sendTreeChange(const std::string& operation, const Dictionary& item,
                               std::function<void(OptionalString id, TQErrorPtr error)> completion) {
  TQErrorPtr nobody;
  const UserPtr user = requestUser(nobody);
  if (!user) return completion(std::nullopt, nobody);
  TQVornexUtil::requestURL(
      serverURL("/projects/" + operation), user->id, user->password, "POST", treeChangeBody(item),
      [self = shared_from_this(), completion = std::move(completion)](Value response, TQErrorPtr error) {
        OptionalString id = self->takeTreeChange(response, error);
        completion(id, error);
      });
}

bool TQLibrary::confirmMove(const TQProject& item, const OptionalString& parentID, std::int64_t toIndex,
                            TQErrorPtr& error) {
  if (libraryType == kLibraryTypeLocal) return true;
  Dictionary change = {
      {"id", item.id}, {"parentid", parentID}, {"toindex", toIndex}, {"type", item.projectType}};
  return sendTreeChange("move", change, error).has_value();
}

bool TQLibrary::saveMove(TQErrorPtr& error) {
  bool isOvertaken = false;
  if (libraryType == kLibraryTypeLocal) error = saveTree(&isOvertaken);
  return !isOvertaken;
}

bool TQLibrary::moveItem(const ProjectPtr& item, std::int64_t toIndex, TQErrorPtr* error) {
  TQErrorPtr ignored;
  TQErrorPtr& failure = error ? *error : ignored;
  failure = nullptr;
  std::int64_t from = indexOfProject(item);
  if (from < 0 || !isInsertionIndex(projects, toIndex)) {
    failure = tree::error(10000, "request.error.param.nil");
    return false;
  }
  const TQProject& moved = *projects[static_cast<std::size_t>(from)];
  if (!confirmMove(moved, moved.parentID(), toIndex, failure)) return false;
  ProjectList before = projects;
  reorder(projects, from, toIndex);
  if (saveMove(failure)) return true;
  projects = before;
  return false;
}

bool TQLibrary::holds(const TQProject& node) const {
  ProjectPtr above = node.parent.lock();
  if (!above) return tree::holds(projects, node);
  return tree::holds(above->childGroups, node) && holds(*above);
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
        if (!newName || newName->empty()) {
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
        if (!project) return completion(nullptr, tree::error(10004, "response.error.invalid"));
        self->adoptProject(project);
        completion(project, nullptr);
      });
}

ProjectPtr TQLibrary::addLocalProject(const std::string& newName, TQErrorPtr& error) {
  if ((error = prepareChange())) return nullptr;
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
  if (!(error = saveTree())) return project;
  projects.pop_back();
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
  if (TQErrorPtr error = prepareChange()) return error;
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
  TQErrorPtr error = saveTree();
  if (error) projects.insert(projects.begin() + index, removed);
  return error;
}

}  // namespace vornex
