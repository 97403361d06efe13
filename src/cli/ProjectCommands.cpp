#include <fmt/format.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQProject.h>

#include "cli/Await.h"
#include "cli/Commands.h"
#include "cli/Host.h"
#include "cli/Output.h"
#include "cli/Table.h"

namespace vornex::cli {
namespace {

constexpr auto kPatience = std::chrono::minutes(2);

Dictionary facts(const ProjectPtr& project) {
  return {{"id", project->id},
          {"name", project->name},
          {"path", projectPath(project)},
          {"type", project->projectType == kProjectTypeProject ? "project" : "group"}};
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
  if (!added) return failure("vornex", 0, "the service does not answer");
  auto& [node, error] = *added;
  if (!node) return tl::unexpected(fromSDK(error));
  return node;
}

void listTree(const std::vector<ProjectPtr>& nodes, const Output& output, Table& table) {
  for (const ProjectPtr& node : nodes) {
    output.record("project", facts(node));
    table.addRow({projectPath(node), node->id.value_or("")});
    listTree(node->childGroups, output, table);
  }
}

}  // namespace

Result<void> run(const ProjectAddCommand& command, Host& host, const Output& output) {
  const std::vector<std::string> names = projectNames(command.path);
  if (names.empty()) return failure("vornex", 0, fmt::format("\"{}\" names no project", command.path));
  auto library = host.library(command.library);
  if (!library) return tl::unexpected(library.error());
  if (findProject(*library, command.path)) {
    return failure("vornex", 0, fmt::format("there is a project \"{}\" already", command.path));
  }
  ProjectPtr node;
  std::string path;
  for (const std::string& name : names) {
    path += (path.empty() ? "" : "/") + name;
    if (ProjectPtr known = findProject(*library, path)) {
      node = known;
      continue;
    }
    auto added = addNode(*library, node, name);
    if (!added) return tl::unexpected(added.error());
    node = *added;
    output.record("project", facts(node));
    output.text(fmt::format("Added \"{}\" to the library \"{}\".", path, (*library)->name.value_or("")));
  }
  return {};
}

Result<void> run(const ProjectListCommand& command, Host& host, const Output& output) {
  auto library = host.library(command.library);
  if (!library) return tl::unexpected(library.error());
  Table table({{"PROJECT", Table::Kind::text}, {"ID"}});
  listTree((*library)->projects, output, table);
  if (table.empty()) {
    output.text("There is no project yet.");
  } else {
    output.table(table);
  }
  return {};
}

}  // namespace vornex::cli
