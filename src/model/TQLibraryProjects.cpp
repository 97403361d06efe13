#include <vornex/Log.h>
#include <vornex/Queue.h>
#include <vornex/TQConnection.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQProject.h>
#include <vornex/TQUser.h>
#include <vornex/TQVornexUtil.h>

#include "core/Coercion.h"
#include "core/SdkError.h"
#include "model/ProjectIndex.h"
#include "model/ProjectTree.h"
#include "model/TreeFile.h"

namespace vornex {

// Loading

std::optional<std::vector<ProjectPtr>> TQLibrary::loadProjects(TQErrorPtr* error) {
  TQErrorPtr ignored;
  std::optional<TreeAnswer> tree = loadTree("/projects", projectFile(), error ? *error : ignored);
  if (!tree) return std::nullopt;
  setProjectHash(std::move(tree->hash));
  takeProjects(tree->nodes);
  isTreeLoaded_ = true;
  // Now rather than when the next page of assets is linked.
  projectIndex_->prepare(projects);
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
    // Each object once, should an identifier occur twice.
    auto found = known.extract(coerce::string(node->find("id")).value_or(""));
    ProjectPtr project = found ? found.mapped() : TQProject::projectWithDictionary(*node);
    if (!project) continue;
    if (found) {
      project->setDictionary(*node);
      project->childGroups.clear();
    } else {
      project->library = weak_from_this();
      project->rootProject = project;
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
  return projectIndex_->find(projects, id);
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

TQErrorPtr TQLibrary::projectsNotSaved(const std::string& reason) const {
  logLine(LogLevel::error, "Can't save project file : " + packageFolder.value_or("") + ", " + reason);
  return withReason(tree::error(10003, "project.error.cannot.save"), reason);
}

TQErrorPtr TQLibrary::prepareChange() {
  if (!packageFolder || packageFolder->empty()) return projectsNotSaved("the library has no package folder");
  if (isTreeLoaded_) return nullptr;
  if (projects.empty()) {
    Result<std::optional<TreeFile::Tree>> tree = projectFile().read();
    if (!tree) return projectsNotSaved(tree.error().message);
    // Without a file there is still nothing: a tree that appears later is not written over.
    if (!*tree) return nullptr;
    takeProjects((*tree)->nodes);
    setProjectHash(std::move((*tree)->hash));
  }
  isTreeLoaded_ = true;
  return nullptr;
}

TQErrorPtr TQLibrary::saveTree(bool* isOvertaken) {
  if (TQErrorPtr error = prepareChange()) return error;
  Array nodes;
  for (const ProjectPtr& project : projects) {
    std::optional<Dictionary> node = treeNode(*project);
    if (!node) return projectsNotSaved("a node has no identifier, name or database name");
    nodes.push_back(std::move(*node));
  }
  std::string hash = MD5String(TQVornexUtil::UUIDString());
  Result<TreeFile::Saved> saved = projectFile().save(std::move(nodes), projectHashValue.value_or(""), hash);
  if (!saved) return projectsNotSaved(saved.error().message);
  if (*saved == TreeFile::Saved::overtaken) {
    if (isOvertaken) *isOvertaken = true;
    return projectsNotSaved("another program has changed " + projectFile().path());
  }
  setProjectHash(std::move(hash));
  projectIndex_->prepare(projects);
  return nullptr;
}

bool TQLibrary::saveProjects() {
  return !saveTree();
}

}  // namespace vornex
