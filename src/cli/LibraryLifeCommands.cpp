#include <fmt/format.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQLibraryManager.h>
#include <vornex/TQVornexUtil.h>

#include "cli/Await.h"
#include "cli/Commands.h"
#include "cli/Confirm.h"
#include "cli/Host.h"
#include "cli/LibraryFacts.h"
#include "cli/Output.h"
#include "cli/Paths.h"
#include "cli/Progress.h"
#include "foundation/Files.h"
#include "foundation/PropertyList.h"

namespace vornex::cli {
namespace {

/// Large databases on slow disks take what they take; the SDK ends when the service goes away.
constexpr auto kNoLimit = std::chrono::hours(24 * 365);

TQLibraryManager& manager() {
  return TQLibraryManager::sharedManager();
}

std::string nameOf(const LibraryPtr& library) {
  return library->name.value_or("");
}
std::string folderOf(const LibraryPtr& library) {
  return library->packageFolder.value_or("");
}

/// Waits for an operation of the manager; a failure begins with what was attempted.
template <typename Start>
Result<void> finish(const std::string& attempt, const std::string& silentFailure, Start start) {
  const auto ended = await<bool, TQErrorPtr>(kNoLimit, start);
  if (!ended) return failure("vornex", 0, "the service does not answer");
  const auto& [ok, error] = *ended;
  if (ok) return {};
  if (!error) return failure("vornex", 0, fmt::format("{}: {}", attempt, silentFailure));
  const Error reason = fromSDK(error);
  return failure(reason.domain, reason.code, fmt::format("{}: {}", attempt, reason.message));
}

/// Shows how far the copying of a database has come, until the end of its scope.
class CopyDisplay {
 public:
  explicit CopyDisplay(const std::string& name) : shown_(std::make_shared<Shown>()) {
    shown_->state.current = name;
  }

  TQLibraryManager::DatabaseProgress handler() const {
    return [weak = std::weak_ptr(shown_), start = Clock::now()](std::int64_t done, std::int64_t total) {
      const auto shown = weak.lock();
      if (!shown) return;
      shown->state.bytes = static_cast<std::uint64_t>(done);
      shown->state.totalBytes = static_cast<std::uint64_t>(total);
      shown->state.seconds = std::chrono::duration<double>(Clock::now() - start).count();
      shown->display.update(shown->state);
    };
  }

 private:
  using Clock = std::chrono::steady_clock;
  struct Shown {
    ImportState state;
    ProgressDisplay display;
  };
  const std::shared_ptr<Shown> shown_;
};

/// The same for one that copies the database of the library.
template <typename Start>
Result<void> finishCopying(const std::string& library, const std::string& attempt,
                           const std::string& silentFailure, Start start) {
  const CopyDisplay display(library);
  return finish(attempt, silentFailure, [&](Completion done) { start(std::move(done), display.handler()); });
}

/// The local library that is in the list at a place where it is no more, because its package was moved to the
/// folder; null when there is none.
Result<LibraryPtr> movedLibrary(const std::string& folder) {
  auto record = readDictionaryFile(*TQVornexUtil::libraryPlistWithPackageFolder(folder));
  if (!record) return failure("vornex", 0, fmt::format("there is no library in {}", folder));
  const Value* dbName = record->find("dbname");
  const LibraryPtr known =
      dbName && dbName->ifString() ? manager().libraryForDBName(*dbName->ifString()) : nullptr;
  if (!known) return LibraryPtr();
  if (known->libraryType != kLibraryTypeLocal || itemExists(folderOf(known)))
    return failure(
        "vornex", 0,
        fmt::format("the library \"{}\" is in the list already, at {}", nameOf(known), folderOf(known)));
  return known;
}

/// Imports the package; of a library that was moved, the list follows, and stays as it was when that fails.
Result<void> importPackage(const std::string& folder, bool force) {
  auto moved = movedLibrary(folder);
  if (!moved) return tl::unexpected(moved.error());
  if (*moved) {
    auto forgotten =
        finish("cannot take the former place out of the list", "the list cannot be saved",
               [&](Completion done) { manager().deleteLibrary(*moved, false, nullptr, std::move(done)); });
    if (!forgotten) return forgotten;
  }
  auto imported = finishCopying(lastPathComponent(folder), fmt::format("cannot import {}", folder),
                                "there is no library in it", [&](Completion done, auto progress) {
                                  manager().importLibraryWithPackageFolder(
                                      folder, force, nullptr, std::move(done), std::move(progress));
                                });
  if (imported || !*moved || manager().addLibraries({*moved})) return imported;
  const Error& reason = imported.error();
  return failure(reason.domain, reason.code,
                 reason.message + "; and the list could not be saved with the former place: import it again");
}

/// Before a lock of another computer is broken.
Result<void> confirmTakeover(const std::string& folder, bool yes) {
  if (!manager().alreadyUsingLibraryWithPackageFolder(folder)) return {};
  return confirm(
      fmt::format("Another computer may be using {}. What it changes from now on may be lost.", folder), yes);
}

/// The library, when its database and its package are in the hands of this computer.
Result<LibraryPtr> localLibrary(Host& host, const OptionalString& wanted) {
  auto library = host.listedLibrary(wanted);
  if (!library) return library;
  if ((*library)->libraryType != kLibraryTypeLocal)
    return failure(
        "vornex", 0,
        fmt::format("\"{}\" is a network library; its database is on its server", nameOf(*library)));
  if (auto there = checkFolder(*library); !there) return tl::unexpected(there.error());
  return library;
}

}  // namespace

Result<void> run(const LibraryImportCommand& command, Host& host, const Output& output) {
  if (auto known = host.libraries(); !known) return tl::unexpected(known.error());
  for (const std::string& place : command.places) {
    const std::string folder = absolutePath(place);
    auto imported = command.force ? confirmTakeover(folder, command.yes) : Result<void>();
    if (imported) imported = importPackage(folder, command.force);
    if (!imported) return imported;
    auto library = host.listedLibrary(folder);
    if (!library) return tl::unexpected(library.error());
    output.record("library", libraryFacts(*library));
    output.text(fmt::format("Imported the library \"{}\" from {}.", nameOf(*library), folder));
    for (const std::string& kept : manager().keptDatabases(*library))
      output.text("What was changed here and not there is kept in " + kept + ".");
  }
  return {};
}

Result<void> run(const LibraryDeleteCommand& command, Host& host, const Output& output) {
  auto library = host.listedLibrary(command.library);
  if (!library) return tl::unexpected(library.error());
  const std::string name = nameOf(*library);
  const bool isLocal = (*library)->libraryType == kLibraryTypeLocal;
  if (command.everything && isLocal) {
    auto confirmed =
        confirm(fmt::format("This removes the library \"{}\", its database and every file in {}.", name,
                            folderOf(*library)),
                command.yes);
    if (!confirmed) return confirmed;
  }
  if (!isLocal) {
    auto confirmed =
        confirm(fmt::format("This forgets the password that is kept for \"{}\".", name), command.yes);
    if (!confirmed) return confirmed;
  }
  const bool keepsFolder = isLocal && !command.everything && itemExists(folderOf(*library));
  auto deleted = finishCopying(nameOf(*library), fmt::format("cannot delete \"{}\"", name),
                               "the list cannot be saved", [&](Completion done, auto progress) {
                                 manager().deleteLibrary(*library, command.everything, nullptr,
                                                         std::move(done), std::move(progress));
                               });
  if (!deleted) return deleted;
  output.record("deleted", libraryFacts(*library));
  output.text(keepsFolder
                  ? fmt::format("Took the library \"{0}\" out of the list. To get it back: vornex library "
                                "import {1}",
                                name, folderOf(*library))
                  : fmt::format("Deleted the library \"{}\".", name));
  const std::string working =
      appendPathComponent(TQVornexUtil::mongoDBFolder(), (*library)->dbName.value_or(""));
  if (isLocal && itemExists(working))
    output.text(fmt::format("Its folder cannot be reached, so its database stays in {}.", working));
  return {};
}

Result<void> run(const LibraryBackupCommand& command, Host& host, const Output& output) {
  auto library = localLibrary(host, command.library);
  if (!library) return tl::unexpected(library.error());
  auto done = finishCopying(nameOf(*library), fmt::format("cannot back up \"{}\"", nameOf(*library)), "",
                            [&](Completion completion, auto progress) {
                              manager().backupDatabaseWithLibrary(*library, std::move(completion),
                                                                  std::move(progress));
                            });
  if (!done) return done;
  const std::string folder = *TQVornexUtil::dbFolderWithPackageFolder((*library)->packageFolder);
  output.record("backup", libraryFacts(*library));
  output.text(fmt::format("Backed up the database of \"{}\" to {}.", nameOf(*library), folder));
  return {};
}

Result<void> run(const LibraryRestoreCommand& command, Host& host, const Output& output) {
  auto library = localLibrary(host, command.library);
  if (!library) return tl::unexpected(library.error());
  const std::string working =
      appendPathComponent(TQVornexUtil::mongoDBFolder(), (*library)->dbName.value_or(""));
  if (itemExists(working)) {
    auto confirmed = confirm(
        fmt::format("What was changed in \"{}\" since its last backup will be lost.", nameOf(*library)),
        command.yes);
    if (!confirmed) return confirmed;
  }
  auto done = finishCopying(nameOf(*library), fmt::format("cannot restore \"{}\"", nameOf(*library)), "",
                            [&](Completion completion, auto progress) {
                              manager().replaceDatabaseWithLibrary(*library, std::move(completion),
                                                                   std::move(progress));
                            });
  if (!done) return done;
  output.record("restored", libraryFacts(*library));
  output.text(fmt::format("Restored the database of \"{}\" from its package.", nameOf(*library)));
  return {};
}

}  // namespace vornex::cli
