#include <fmt/format.h>
#include <vornex/TQConnection.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQLibraryManager.h>
#include <vornex/TQVornexUtil.h>

#include <cstdlib>

#include "cli/Await.h"
#include "cli/Commands.h"
#include "cli/Format.h"
#include "cli/Host.h"
#include "cli/LibraryFacts.h"
#include "cli/Output.h"
#include "cli/Paths.h"
#include "cli/Search.h"
#include "cli/Table.h"
#include "foundation/Files.h"

namespace vornex::cli {
namespace {

constexpr const char* kDefaultFolder = "Vornex";
constexpr std::int64_t kExists = 10002;

const char* typeOf(const LibraryPtr& library) {
  return library->libraryType == kLibraryTypeLocal ? "local" : "network";
}

/// A plain name stands for a folder below the default folder, which is made when it is missing.
Result<std::string> packageFolder(const std::string& place) {
  if (isBlank(place)) return failure("vornex", 0, "a library needs a place");
  if (place.find('/') != std::string::npos || place == "." || place == "..") {
    const std::string folder = absolutePath(place);
    const std::string parent = deletingLastPathComponent(folder);
    if (!isDirectory(parent)) return failure("vornex", 0, fmt::format("there is no folder {}", parent));
    return folder;
  }
  const char* home = std::getenv("HOME");
  if (!home || !*home) return failure("vornex", 0, "HOME is not set; give the library's folder as a path");
  const std::string parent = appendPathComponent(home, kDefaultFolder);
  if (auto made = createDirectories(parent); !made) return tl::unexpected(made.error());
  return appendPathComponent(parent, place);
}

Result<LibraryPtr> createLibrary(const std::string& place, const LibraryCreateCommand& command) {
  auto folder = packageFolder(place);
  if (!folder) return tl::unexpected(folder.error());
  const std::string name = command.name.value_or(lastPathComponent(*folder));
  if (isBlank(name)) return failure("vornex", 0, "a library needs a name");
  const LibraryPtr library =
      TQLibrary::libraryWithName(name, command.description.value_or(""), kLibraryTypeLocal, false, true, true,
                                 *folder, std::nullopt, std::make_shared<TQConnection>());
  if (!library) return failure("vornex", 0, "a library needs a name and a folder");
  const auto created = await<bool, TQErrorPtr>(std::chrono::minutes(10), [&](Completion done) {
    TQLibraryManager::sharedManager().createLibrary(library, std::move(done));
  });
  if (!created) return failure("vornex", 0, "the service does not answer");
  const auto& [ok, error] = *created;
  if (ok) return library;
  std::string reason = error ? fromSDK(error).message : "another computer uses its folder";
  if (error && error->code() == kExists && itemExists(*folder)) reason = "the folder exists already";
  return failure("vornex", error ? error->code() : 0, fmt::format("cannot create {}: {}", *folder, reason));
}

/// Whether the library answers; an error why not.
Result<void> check(const LibraryPtr& library) {
  if (auto there = checkFolder(library); !there) return there;
  const bool isLocal = library->libraryType == kLibraryTypeLocal;
  if (isLocal && !fileExists(*TQVornexUtil::libraryPlistWithPackageFolder(library->packageFolder)))
    return failure("vornex", 0, "its folder holds no library");
  TQErrorPtr error;
  if (!library->loadProjects(&error)) return tl::unexpected(fromSDK(error));
  return countAssets(library).map([](const AssetCounts&) {});
}

/// The list and the package both have the name, so that it comes back when the package is imported.
Result<void> rename(const LibraryPtr& library, const std::string& name) {
  if (auto there = checkFolder(library); !there) return there;
  TQErrorPtr error;
  const bool isWritten = library->updateNewName(name, std::nullopt, std::nullopt, library->isShared, &error);
  if (error) return tl::unexpected(fromSDK(error));
  if (isWritten || library->libraryType != kLibraryTypeLocal) return {};
  return failure("vornex", 0,
                 fmt::format("the list has the name \"{}\" now, but it could not be written to {}", name,
                             library->packageFolder.value_or("")));
}

}  // namespace

Dictionary libraryFacts(const LibraryPtr& library) {
  return {{"name", library->name},
          {"dbname", library->dbName},
          {"type", typeOf(library)},
          {"path", library->packageFolder},
          {"description", library->desc}};
}

Result<void> run(const LibraryCreateCommand& command, Host& host, const Output& output) {
  if (auto known = host.libraries(); !known) return tl::unexpected(known.error());
  for (const std::string& place : command.places) {
    auto library = createLibrary(place, command);
    if (!library) return tl::unexpected(library.error());
    output.record("library", libraryFacts(*library));
    output.text(fmt::format("Created the library \"{}\" in {}.", (*library)->name.value_or(""),
                            (*library)->packageFolder.value_or("")));
  }
  return {};
}

Result<void> run(const LibraryListCommand&, Host& host, const Output& output) {
  auto libraries = host.libraries();
  if (!libraries) return tl::unexpected(libraries.error());
  Table table({{"NAME", Table::Kind::text},
               {"TYPE", Table::Kind::fixed, 1},
               {"DATABASE", Table::Kind::fixed, 2},
               {"PATH", Table::Kind::path}});
  for (const LibraryPtr& library : *libraries) {
    output.record("library", libraryFacts(library));
    table.addRow({library->name.value_or(""), typeOf(library), library->dbName.value_or(""),
                  library->packageFolder.value_or("")});
  }
  if (table.empty()) {
    output.text("There is no library yet.");
  } else {
    output.table(table);
  }
  return {};
}

Result<void> run(const LibraryShowCommand& command, Host& host, const Output& output) {
  auto library = host.library(command.library);
  if (!library) return tl::unexpected(library.error());
  auto counts = countAssets(*library);
  if (!counts) return tl::unexpected(counts.error());

  Dictionary record = libraryFacts(*library);
  record.set("projects", static_cast<std::int64_t>((*library)->projects.size()));
  record.set("assets", counts->total);
  Dictionary byType;
  for (const auto& [type, count] : counts->byType) byType.set(type, count);
  record.set("types", byType);
  output.record("library", record);

  Table table({{"LIBRARY"}, {(*library)->name.value_or(""), Table::Kind::path}});
  table.addRow({"path", (*library)->packageFolder.value_or("")});
  table.addRow({"database", (*library)->dbName.value_or("")});
  if (!(*library)->desc.value_or("").empty()) table.addRow({"description", *(*library)->desc});
  table.addRow({"projects", std::to_string((*library)->projects.size())});
  table.addRow({"assets", std::to_string(counts->total)});
  for (const auto& [type, count] : counts->byType) table.addRow({"  " + type, std::to_string(count)});
  output.table(table);
  return {};
}

Result<void> run(const LibraryRenameCommand& command, Host& host, const Output& output) {
  auto library = host.listedLibrary(command.library);
  if (!library) return tl::unexpected(library.error());
  if (isBlank(command.name)) return failure("vornex", 0, "a library needs a name");
  const std::string former = (*library)->name.value_or("");
  if (auto renamed = rename(*library, command.name); !renamed) return renamed;
  output.record("library", libraryFacts(*library));
  output.text(fmt::format("Renamed the library \"{}\" to \"{}\".", former, command.name));
  return {};
}

Result<void> run(const LibraryReloadCommand& command, Host& host, const Output& output) {
  auto libraries = host.libraries();
  if (!libraries) return tl::unexpected(libraries.error());
  if (command.library) {
    auto library = host.listedLibrary(command.library);
    if (!library) return tl::unexpected(library.error());
    libraries = std::vector{*library};
  }
  std::size_t failures = 0;
  Table table({{"NAME", Table::Kind::text}, {"STATE", Table::Kind::text}});
  for (const LibraryPtr& library : *libraries) {
    const Result<void> answers = check(library);
    if (!answers) ++failures;
    Dictionary record = libraryFacts(library);
    record.set("usable", answers.has_value());
    if (!answers) record.set("reason", answers.error().message);
    output.record("library", record);
    table.addRow({library->name.value_or(""), answers ? "usable" : answers.error().message});
  }
  if (table.empty()) {
    output.text("There is no library yet.");
  } else {
    output.table(table);
  }
  if (failures == 0) return {};
  return failure("vornex", 0, fmt::format("{} of {} libraries cannot be used", failures, libraries->size()));
}

}  // namespace vornex::cli
