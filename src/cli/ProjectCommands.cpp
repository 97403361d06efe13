#include <fmt/format.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQPredicate.h>
#include <vornex/TQProject.h>
#include <vornex/TQSearchManager.h>

#include <thread>

#include "cli/Await.h"
#include "cli/Commands.h"
#include "cli/Confirm.h"
#include "cli/Format.h"
#include "cli/Host.h"
#include "cli/Output.h"
#include "cli/Table.h"
#include "core/StatusCode.h"

namespace vornex::cli {
namespace {

constexpr auto kPatience = std::chrono::minutes(2);

Error noAnswer() {
  return {"vornex", 0, "the service does not answer"};
}

/// Whether the error may mean that the tree has been changed elsewhere: a local library's is not saved over
/// the other program's, a server refuses what was thought up for an older tree.
bool mayBeOvertaken(const Error& error) {
  constexpr std::int64_t kNotSaved = 10003;
  return error.code == kNotSaved || error.code == static_cast<std::int64_t>(StatusCode::hashMismatch);
}

/// Makes a change of the tree, again with the tree as it is now when another program has changed it
/// meanwhile. The change looks its nodes up by itself each time.
template <typename Change>
auto changeTree(const LibraryPtr& library, Change change) {
  constexpr int kMostTries = 50;
  constexpr auto kPause = std::chrono::milliseconds(20);
  for (int tries = 1;; ++tries) {
    const OptionalString hash = library->projectHashValue;
    auto result = change();
    if (result || tries == kMostTries || !mayBeOvertaken(result.error())) return result;
    if (!library->loadProjects(nullptr) || library->projectHashValue == hash) return result;
    std::this_thread::sleep_for(kPause);
  }
}

bool isProject(const ProjectPtr& node) {
  return !node->parent.lock();
}

Dictionary facts(const ProjectPtr& project) {
  const ProjectPtr parent = project->parent.lock();
  return {{"id", project->id},
          {"name", project->name},
          {"path", projectPath(project)},
          {"parent", parent ? parent->id : std::nullopt},
          {"type", isProject(project) ? "project" : "group"}};
}

Result<ProjectPtr> existing(const LibraryPtr& library, const std::string& path) {
  if (ProjectPtr node = findProject(library, path)) return node;
  return failure(
      "vornex", 0,
      fmt::format("there is no project or group \"{}\" in \"{}\"", path, library->name.value_or("")));
}

/// A project below the library, or a group below the parent when there is one.
Result<ProjectPtr> addNode(const LibraryPtr& library, const ProjectPtr& parent, const std::string& name) {
  auto added = await<ProjectPtr, TQErrorPtr>(kPatience, [&](auto done) {
    if (parent) {
      parent->addGroupWithName(name, done);
    } else {
      library->addProject(name, done);
    }
  });
  if (!added) return tl::unexpected(noAnswer());
  auto& [node, error] = *added;
  if (!node) return tl::unexpected(fromSDK(error));
  return node;
}

/// Adds the levels of the path that are missing, and the facts of those, also of the first ones when a later
/// one fails.
Result<void> addLevels(const LibraryPtr& library, const std::vector<std::string>& names,
                       std::vector<Dictionary>& added) {
  auto addMissing = [&]() -> Result<ProjectPtr> {
    ProjectPtr node;
    for (const std::string& name : names) {
      const auto& children = node ? node->childGroups : library->projects;
      const auto known = std::find_if(children.begin(), children.end(),
                                      [&](const ProjectPtr& child) { return child->name == name; });
      if (known != children.end()) {
        node = *known;
        continue;
      }
      auto made = addNode(library, node, name);
      if (!made) return made;
      node = *made;
      added.push_back(facts(node));
    }
    return node;
  };
  return changeTree(library, addMissing).map([](const ProjectPtr&) {});
}

/// One line for each node, drawn as a tree.
void listTree(const ProjectList& nodes, const std::string& indent, const Output& output, Table& table) {
  for (const ProjectPtr& node : nodes) {
    const bool isLast = node == nodes.back();
    const bool isRoot = isProject(node);
    output.record("project", facts(node));
    table.addRow(
        {(isRoot ? "" : indent + (isLast ? "└─ " : "├─ ")) + node->name.value_or(""), node->id.value_or("")});
    listTree(node->childGroups, isRoot ? "" : indent + (isLast ? "   " : "│  "), output, table);
  }
}

/// Moves the node within its own list, to the position as it is counted there before the move.
bool reorder(const LibraryPtr& library, const ProjectPtr& node, std::optional<std::int64_t> position,
             TQErrorPtr* error) {
  const ProjectPtr parent = node->parent.lock();
  const ProjectList& siblings = parent ? parent->childGroups : library->projects;
  const std::int64_t to = position.value_or(static_cast<std::int64_t>(siblings.size()));
  return parent ? parent->moveItem(node, to, error) : library->moveItem(node, to, error);
}

Result<ProjectPtr> move(const LibraryPtr& library, const ProjectMoveCommand& command) {
  auto node = existing(library, command.path);
  if (!node) return node;
  const ProjectPtr parent = (*node)->parent.lock();
  ProjectPtr target = parent;
  if (command.into) {
    auto found = existing(library, *command.into);
    if (!found) return found;
    target = *found;
  }
  if (target && !parent) return failure("vornex", 0, "a project stays at the top; only groups have a parent");
  const auto last = static_cast<std::int64_t>(target ? target->childGroups.size() : library->projects.size());
  if (command.position && *command.position > last)
    return failure("vornex", 0, fmt::format("there are {} positions, from 0", last + 1));
  for (ProjectPtr above = target; above; above = above->parent.lock())
    if (above == *node) return failure("vornex", 0, "a group cannot lie in itself");
  TQErrorPtr error;
  const bool moved = target == parent
                         ? reorder(library, *node, command.position, &error)
                         : parent->moveItem(*node, command.position.value_or(last), target, &error);
  // A move that could not be saved ends with this process.
  if (moved && !error) return node;
  return tl::unexpected(fromSDK(error));
}

/// How many assets the predicate finds outside the trash.
Result<std::uint64_t> countAssets(const LibraryPtr& library, const PredicatePtr& where) {
  auto& manager = TQSearchManager::sharedManager();
  const TQSearchResponse found = manager.searchAssetWithLibrary(
      library, TQPredicate::andPredicateWithSubpredicates({where, manager.createQueryWithTrash(false)}), 0, 1,
      0);
  if (found.error) return tl::unexpected(fromSDK(found.error));
  return static_cast<std::uint64_t>(std::max<std::int64_t>(found.totalCount, 0));
}

/// What is lost when the node is removed, as a statement; an error when it could not be removed anyway.
Result<std::string> removalWarning(const LibraryPtr& library, const ProjectPtr& node) {
  const auto groups = static_cast<std::uint64_t>(node->descendantCount());
  const std::string with = groups == 0 ? "" : ", with " + counted(groups, "group");
  auto& manager = TQSearchManager::sharedManager();
  auto held =
      countAssets(library, isProject(node) ? manager.createPredicateWithKey("project", node->id)
                                           : manager.createQueryWithGroup(manager.groupIDs(node), "group"));
  if (!held) return tl::unexpected(held.error());
  if (isProject(node)) {
    if (*held > 0)
      return failure("vornex", 0, fmt::format("\"{}\" holds {}", projectPath(node), counted(*held, "asset")));
    return fmt::format("This removes the project \"{}\"{}.", projectPath(node), with);
  }
  const ProjectPtr root = node->rootProject.lock();
  return fmt::format("This removes the group \"{}\"{}. {}", projectPath(node), with,
                     *held == 0 ? "It holds no assets."
                                : fmt::format("{} in it will only belong to the project \"{}\".",
                                              counted(*held, "asset"), root ? root->name.value_or("") : ""));
}

Result<Dictionary> remove(const LibraryPtr& library, const std::string& id) {
  auto node = existing(library, id);
  if (!node) return tl::unexpected(node.error());
  const Dictionary removed = facts(*node);
  auto answer = await<bool, TQErrorPtr>(kPatience, [&](Completion done) {
    if (const ProjectPtr parent = (*node)->parent.lock()) {
      parent->removeGroup(*node, std::move(done));
    } else {
      library->removeProject(*node, std::move(done));
    }
  });
  if (!answer) return tl::unexpected(noAnswer());
  if (const auto& [ok, error] = *answer; !ok) return tl::unexpected(fromSDK(error));
  return removed;
}

}  // namespace

Result<void> run(const ProjectAddCommand& command, Host& host, const Output& output) {
  const std::vector<std::string> names = projectNames(command.path);
  if (names.empty() || std::any_of(names.begin(), names.end(), isBlank))
    return failure("vornex", 0, fmt::format("\"{}\" names no project", command.path));
  auto library = host.library(command.library);
  if (!library) return tl::unexpected(library.error());
  if (findProject(*library, command.path)) {
    return failure("vornex", 0, fmt::format("there is a project \"{}\" already", command.path));
  }
  std::vector<Dictionary> added;
  auto all = addLevels(*library, names, added);
  for (const Dictionary& node : added) {
    output.record("project", node);
    output.text(fmt::format("Added \"{}\" to the library \"{}\".", *node.find("path")->ifString(),
                            (*library)->name.value_or("")));
  }
  return all;
}

Result<void> run(const ProjectGroupCommand& command, Host& host, const Output& output) {
  if (isBlank(command.name)) return failure("vornex", 0, "a group needs a name");
  auto library = host.library(command.library);
  if (!library) return tl::unexpected(library.error());
  auto group = changeTree(*library, [&]() -> Result<ProjectPtr> {
    auto parent = existing(*library, command.parent);
    return parent ? addNode(*library, *parent, command.name) : parent;
  });
  if (!group) return tl::unexpected(group.error());
  output.record("project", facts(*group));
  output.text(fmt::format("Added \"{}\".", projectPath(*group)));
  return {};
}

Result<void> run(const ProjectListCommand& command, Host& host, const Output& output) {
  auto library = host.library(command.library);
  if (!library) return tl::unexpected(library.error());
  Table table({{"PROJECT", Table::Kind::text}, {"ID"}});
  listTree((*library)->projects, "", output, table);
  if (table.empty()) {
    output.text("There is no project yet.");
  } else {
    output.table(table);
  }
  return {};
}

Result<void> run(const ProjectRenameCommand& command, Host& host, const Output& output) {
  if (isBlank(command.name)) return failure("vornex", 0, "a project or group needs a name");
  auto library = host.library(command.library);
  if (!library) return tl::unexpected(library.error());
  auto renamed = changeTree(*library, [&]() -> Result<ProjectPtr> {
    auto node = existing(*library, command.path);
    if (!node) return node;
    TQErrorPtr error;
    if (!(*node)->rename(command.name, &error)) return tl::unexpected(fromSDK(error));
    return node;
  });
  if (!renamed) return tl::unexpected(renamed.error());
  output.record("project", facts(*renamed));
  output.text(fmt::format("Renamed \"{}\" to \"{}\".", command.path, command.name));
  return {};
}

Result<void> run(const ProjectMoveCommand& command, Host& host, const Output& output) {
  auto library = host.library(command.library);
  if (!library) return tl::unexpected(library.error());
  auto moved = changeTree(*library, [&] { return move(*library, command); });
  if (!moved) return tl::unexpected(moved.error());
  output.record("project", facts(*moved));
  const std::string to = command.into ? fmt::format(" to \"{}\"", projectPath(*moved)) : "";
  output.text(fmt::format("Moved \"{}\"{}.", command.path, to));
  return {};
}

Result<void> run(const ProjectRemoveCommand& command, Host& host, const Output& output) {
  auto library = host.library(command.library);
  if (!library) return tl::unexpected(library.error());
  auto node = existing(*library, command.path);
  if (!node) return tl::unexpected(node.error());
  if ((*library)->libraryType == kLibraryTypeNetwork)
    return failure("vornex", 0, "projects and groups of a network library are removed where it is local");
  if (!command.yes) {
    auto warning = removalWarning(*library, *node);
    if (!warning) return tl::unexpected(warning.error());
    if (auto agreed = confirm(*warning, false); !agreed) return agreed;
  }
  // By identifier: what was agreed to is removed, and nothing else that has come under its name.
  const std::string id = (*node)->id.value_or("");
  auto removed = changeTree(*library, [&] { return remove(*library, id); });
  if (!removed) return tl::unexpected(removed.error());
  output.record("removed", *removed);
  output.text(fmt::format("Removed \"{}\".", *removed->find("path")->ifString()));
  return {};
}

}  // namespace vornex::cli
