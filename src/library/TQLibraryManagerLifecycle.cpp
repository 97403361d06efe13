#include <fmt/format.h>
#include <sys/stat.h>
#include <vornex/Log.h>
#include <vornex/Queue.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQLibraryManager.h>
#include <vornex/TQVornexUtil.h>
#include <vornex/TQWorkflowEngineInterface.h>

#include <cerrno>
#include <filesystem>

#include "core/Coercion.h"
#include "core/DatabaseFolder.h"
#include "core/SdkError.h"
#include "core/StatusCode.h"
#include "core/StorageLayout.h"
#include "foundation/FileLock.h"
#include "foundation/Files.h"
#include "foundation/PropertyList.h"
#include "library/AskService.h"
#include "library/DatabaseCopies.h"
#include "library/LibraryErrors.h"
#include "library/ManagerState.h"
#include "model/LockFiles.h"

namespace vornex {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

void logPlace(const LibraryPtr& library) {
  logLine(LogLevel::error, fmt::format("createLibrary, packageFolder={}, library={}",
                                       library ? library->packageFolder.value_or("(null)") : "(null)",
                                       library ? library->description() : "(null)"));
}

TQErrorPtr removePackageFolder(const std::string& folder);

// Locked while a library is created in the folder, and gone when it is.
std::string creationMark(const std::string& folder) {
  return appendPathComponent(folder, ".creation.lock");
}
Result<FileLock> lockCreation(const std::string& folder) {
  return FileLock::acquire(appendPathComponent(folder, "creation"), 0s);
}

// Whether nothing is in the package but what a creation makes, which nobody is at.
bool isUnfinishedCreation(const std::string& folder) {
  if (!itemExists(creationMark(folder)) || !lockCreation(folder)) return false;
  std::error_code error;
  for (fs::recursive_directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    const std::string name = entry->path().filename();
    const bool isMade = name == "library.plist" || name == "project.plist" || name == ".creation.lock";
    if (!entry->is_directory(error) && !isMade) return false;
  }
  return !error;
}

// Whether the folder was what a creation that was cut short has left, and is gone now.
bool removeUnfinishedCreation(const std::string& folder) {
  if (!isUnfinishedCreation(folder)) return false;
  auto record = readDictionaryFile(*TQVornexUtil::libraryPlistWithPackageFolder(folder));
  const OptionalString dbName = coerce::string(record ? record->find("dbname") : nullptr);
  if (TQLibraryManager::sharedManager().libraryForDBName(dbName) || isInLocalList(dbName)) return false;
  if (dbName && askService(&ServiceProxy::removeLibraryWithDBName, *dbName)) return false;
  return !removePackageFolder(folder);
}

// Null when the library can be created.
TQErrorPtr checkNewLibrary(const LibraryPtr& library) {
  if (!library || !library->packageFolder || !library->connection) {
    logPlace(library);
    return libraryError(10000, "request.error.param.nil");
  }
  if (library->libraryType == kLibraryTypeNetwork) {
    logLine(LogLevel::error, "Library is network: " + library->name.value_or("(null)"));
    return libraryError(10001, "request.error.param.invalid");
  }
  if (!library->packageFolder->starts_with('/')) {
    logPlace(library);
    return libraryError(10001, "request.error.param.invalid");
  }
  if (itemExists(*library->packageFolder) && !removeUnfinishedCreation(*library->packageFolder)) {
    logPlace(library);
    return libraryError(10002, "library.message.exist");
  }
  // Undoing a failure removes by database name, so it must not be another library's.
  if (TQLibraryManager::sharedManager().findLibrary(library) ||
      itemExists(layout::databaseFolder(library->dbName.value_or("")))) {
    logLine(LogLevel::error, "Already exist library: " + library->dbName.value_or("(null)"));
    return libraryError(10002, "library.message.path.exist");
  }
  return nullptr;
}

TQErrorPtr createFoldersAndRecord(const LibraryPtr& library) {
  for (const char* name : {"Project", "Media", "Workflow", "Extra", "LiveFolder", "FCPXLibrary"}) {
    std::string folder = appendPathComponent(*library->packageFolder, name);
    auto made = createDirectories(folder);
    if (made) continue;
    logLine(LogLevel::error, fmt::format("createLibrary, Can't create directory:{}", folder));
    return makeSdkError(made.error());
  }
  if (library->writeToFile()) return nullptr;
  logLine(LogLevel::error, "createLibrary, Can't writeToFile Library");
  return libraryError(10003, "library.error.cannot.save");
}

std::vector<fs::path> entriesOf(const fs::path& folder, std::error_code& error) {
  std::vector<fs::path> entries;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error))
    entries.push_back(entry->path());
  return entries;
}

// Null on success. The record goes last: a removal that was cut short can be repeated. Of a link, what it
// leads to goes, too; a file system that is mounted here is emptied.
TQErrorPtr removePackageFolder(const std::string& folder) {
  std::error_code error;
  const fs::path place = fs::canonical(folder, error);
  const fs::path record = *TQVornexUtil::libraryPlistWithPackageFolder(place);
  if (!error)
    for (const fs::path& entry : entriesOf(place, error)) {
      if (entry != record) fs::remove_all(entry, error);
      if (error) break;
    }
  if (!error) fs::remove(record, error);
  if (!error) fs::remove(place, error);
  if (error == std::errc::device_or_resource_busy) error.clear();
  if (!error && fs::is_symlink(folder)) fs::remove(folder, error);
  if (!error) return nullptr;
  logLine(LogLevel::error, fmt::format("deleteLibrary, Can't removeFile : {}", folder));
  return makeSdkError(posixFailure(error.value(), "removing " + folder).value());
}

// The package folder with everything in it that is there before the service knows the library. `mark` says
// that the creation goes on.
TQErrorPtr createPackage(const LibraryPtr& library, std::optional<FileLock>& mark) {
  const std::string& folder = *library->packageFolder;
  auto parent = createDirectories(deletingLastPathComponent(folder));
  // Who makes the folder is who may remove it.
  if (!parent || ::mkdir(folder.c_str(), 0755) != 0) {
    const bool exists = parent && errno == EEXIST;
    logPlace(library);
    return exists ? libraryError(10002, "library.message.exist")
                  : libraryError(10010, "library.error.create");
  }
  if (auto locked = lockCreation(folder)) mark = std::move(*locked);
  TQErrorPtr error;
  if (!TQVornexUtil::createPackageFolder(folder, std::nullopt)) {
    logPlace(library);
    error = libraryError(10010, "library.error.create");
  }
  if (!error) error = createFoldersAndRecord(library);
  if (error) removePackageFolder(folder);
  return error;
}

// Removes everything that a creation has made.
void undoCreation(TQLibraryManager& manager, const LibraryPtr& library, const TQErrorPtr& reason) {
  // The database of that name is another library's.
  const bool isOurs = reason->code() != static_cast<std::int64_t>(StatusCode::itemExists);
  const std::string dbName = library->dbName.value_or("");
  if (isOurs && isServiceLost(askService(&ServiceProxy::removeLibraryWithDBName, dbName))) {
    auto removed = removeDatabaseFolder(dbName);
    if (!removed) logLine(LogLevel::error, removed.error().message);
  }
  removePackageFolder(*library->packageFolder);
  manager.deleteLibraryPlist(library);
}

// What follows once the service knows the library.
TQErrorPtr finishCreation(TQLibraryManager& manager, const LibraryPtr& library) {
  if (!manager.saveLibrariesFileWithType(kLibraryTypeLocal)) {
    logLine(LogLevel::error, "createLibrary, Can't save Library File");
    return libraryError(10003, "library.error.cannot.save");
  }
  if (library->saveProjects()) return nullptr;
  logLine(LogLevel::error, "createLibrary, Can't save Project File");
  return libraryError(10003, "project.error.cannot.save");
}

// Whether the folder is the library's package, or what a removal that was cut short has left of it.
bool isPackageOf(const LibraryPtr& library, const std::string& folder) {
  auto record = readDictionaryFile(*TQVornexUtil::libraryPlistWithPackageFolder(folder));
  std::error_code error;
  if (!record) return fs::is_empty(folder, error) && !error;
  return coerce::string(record->find("dbname")) == library->dbName;
}

bool hasPackageFolder(const LibraryPtr& library) {
  return library->packageFolder && itemExists(*library->packageFolder);
}

TQErrorPtr deleteEverything(const LibraryPtr& library) {
  const bool hasPackage = hasPackageFolder(library);
  if (hasPackage && !isPackageOf(library, *library->packageFolder)) {
    logLine(LogLevel::error, "deleteLibrary, not the library's folder : " + *library->packageFolder);
    return libraryError(10001, "request.error.param.invalid");
  }
  if (TQErrorPtr error = askService(&ServiceProxy::removeLibraryWithDBName, library->dbName.value_or("")))
    return error;
  return hasPackage ? removePackageFolder(*library->packageFolder) : nullptr;
}

// Leaves the package folder with a fresh packaged database, and no working one.
TQErrorPtr packUp(TQLibraryManager& manager, const LibraryPtr& library,
                  const TQLibraryManager::DatabaseProgress& progress) {
  const std::string dbName = library->dbName.value_or("");
  const DatabaseCopies copies(*library);
  // Without a working database, an earlier deletion has been cut short after its backup.
  if (copies.hasWorking() || !copies.hasPackaged()) {
    auto copied = copies.backUp(true, progress);
    if (!copied) {
      askService(&ServiceProxy::launchLibraryForDBName, dbName);
      return libraryError(10000, "library.error.db.backup.failed", copied.error().message);
    }
  }
  TQErrorPtr error = askService(&ServiceProxy::terminateLibraryForDBName, dbName);
  if (!error && copies.hasWorking()) error = askService(&ServiceProxy::retireDatabase, dbName);
  if (error) {
    askService(&ServiceProxy::launchLibraryForDBName, dbName);
    return error;
  }
  library->removeLibraryLockFile();
  logLine(LogLevel::info, "########## CANCEL WORKFLOW #############");
  manager.workflowEngineInterface().cancelWorkflowWithDBName(dbName);
  return nullptr;
}

}  // namespace

void TQLibraryManager::createLibrary(LibraryPtr library, Completion completion) {
  GlobalQueue::shared().async([this, library = std::move(library), completion = std::move(completion)] {
    TQErrorPtr error = checkNewLibrary(library);
    if (!error) error = bookmarkFolder(deletingLastPathComponent(*library->packageFolder));
    if (error) return completion(false, error);
    startAllBookmarks();
    std::optional<FileLock> mark;
    error = createPackage(library, mark);
    if (error) return completion(false, error);

    connectLocally(library);
    library->onlineStatus = true;
    {
      std::lock_guard lock(state_->monitor);
      state_->append({library});
    }
    error = askService(&ServiceProxy::addLibrary, library->libDictionary().value_or(Dictionary()));
    if (!error) {
      {
        std::lock_guard lock(state_->monitor);
        // Who has loaded the list meanwhile has dropped what was not saved.
        if (!findLibrary(library)) state_->append({library});
        error = finishCreation(*this, library);
      }
      std::error_code ignored;
      fs::remove(creationMark(*library->packageFolder), ignored);
      if (error) return completion(false, error);
      return completion(library->createLibaryLockFileWithError(nullptr), nullptr);
    }
    undoCreation(*this, library, error);
    completion(false, error);
  });
}

void TQLibraryManager::deleteLibrary(LibraryPtr library, bool allDelete, SyncHandler syncHandler,
                                     Completion completion, DatabaseProgress progress) {
  if (!library) return completion(false, libraryError(10000, "request.error.param.nil"));
  // Nothing of a network library is here, not even when its server is.
  if (library->libraryType == kLibraryTypeNetwork) return completion(deleteRemoteLibrary(library), nullptr);
  GlobalQueue::shared().async([this, library, allDelete, syncHandler = std::move(syncHandler),
                               completion = std::move(completion), progress = std::move(progress)] {
    const bool packsUp = !allDelete && hasPackageFolder(library);
    if (packsUp && syncHandler) syncHandler(library, true);
    TQErrorPtr error = allDelete ? deleteEverything(library)
                       : packsUp ? packUp(*this, library, progress)
                                 : nullptr;
    if (error) return completion(false, error);
    const bool saved = deleteLibraryPlist(library);
    // Who imports the package next may count on it that the service has forgotten the library.
    askService(&ServiceProxy::updateLibrary);
    completion(saved, nullptr);
  });
}

bool TQLibraryManager::alreadyUsingLibraryWithPackageFolder(const std::string& packageFolder) const {
  if (!fileExists(*TQVornexUtil::libraryPlistWithPackageFolder(packageFolder))) {
    logLine(LogLevel::info, "alreadyUsing library plist is not exist : " + packageFolder);
    return false;
  }
  std::error_code ignored;
  return !lockFileNames(packageFolder, ignored).empty();
}

}  // namespace vornex
