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

void logPlace(const LibraryPtr& library) {
  logLine(LogLevel::error, fmt::format("createLibrary, packageFolder={}, library={}",
                                       library ? library->packageFolder.value_or("(null)") : "(null)",
                                       library ? library->name.value_or("(null)") : "(null)"));
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
  if (itemExists(*library->packageFolder)) {
    logPlace(library);
    return libraryError(10002, "library.message.exist");
  }
  // Undoing a failure removes by database name, so it must not be another library's.
  if (TQLibraryManager::sharedManager().findLibrary(library) || DatabaseCopies(*library).hasWorking()) {
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

// Null on success. The record goes last: a removal that was cut short can be repeated.
TQErrorPtr removePackageFolder(const std::string& folder) {
  const std::string record = *TQVornexUtil::libraryPlistWithPackageFolder(folder);
  std::error_code error;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error)) {
    if (entry->path() != record) fs::remove_all(entry->path(), error);
    if (error) break;
  }
  if (!error) fs::remove_all(folder, error);
  if (!error) return nullptr;
  logLine(LogLevel::error, fmt::format("deleteLibrary, Can't removeFile : {}", folder));
  return makeSdkError(posixFailure(error.value(), "removing " + folder).value());
}

// The package folder with everything in it that is there before the service knows the library.
TQErrorPtr createPackage(const LibraryPtr& library) {
  const std::string& folder = *library->packageFolder;
  auto parent = createDirectories(deletingLastPathComponent(folder));
  // Who makes the folder is who may remove it.
  if (!parent || ::mkdir(folder.c_str(), 0755) != 0) {
    const bool exists = parent && errno == EEXIST;
    logPlace(library);
    return exists ? libraryError(10002, "library.message.exist")
                  : libraryError(10010, "library.error.create");
  }
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
  if (isOurs) askService(&ServiceProxy::removeLibraryWithDBName, library->dbName.value_or(""));
  removePackageFolder(*library->packageFolder);
  manager.deleteLibraryPlist(library);
}

// What follows once the service knows the library.
void finishCreation(TQLibraryManager& manager, const LibraryPtr& library, const Completion& completion) {
  if (!manager.saveLibrariesFileWithType(kLibraryTypeLocal)) {
    logLine(LogLevel::error, "createLibrary, Can't save Library File");
    return completion(false, libraryError(10003, "library.error.cannot.save"));
  }
  if (!library->saveProjects()) {
    logLine(LogLevel::error, "createLibrary, Can't save Project File");
    return completion(false, libraryError(10003, "project.error.cannot.save"));
  }
  completion(library->createLibaryLockFileWithError(nullptr), nullptr);
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
  if (TQErrorPtr error = askService(&ServiceProxy::terminateLibraryForDBName, dbName)) return error;
  auto removed = removeDatabaseFolder(dbName);
  if (!removed) {
    askService(&ServiceProxy::launchLibraryForDBName, dbName);
    return makeSdkError(removed.error());
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
    error = createPackage(library);
    if (error) return completion(false, error);

    connectLocally(library);
    library->onlineStatus = true;
    {
      std::lock_guard lock(state_->monitor);
      state_->append({library});
    }
    error = askService(&ServiceProxy::addLibrary, library->libDictionary().value_or(Dictionary()));
    if (!error) return finishCreation(*this, library, completion);
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
