#include <fmt/format.h>
#include <vornex/Log.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQLibraryManager.h>
#include <vornex/TQVornexUtil.h>
#include <vornex/TQWorkflowEngineInterface.h>

#include <optional>

#include "core/SdkError.h"
#include "core/StorageLayout.h"
#include "foundation/Files.h"
#include "library/AskService.h"
#include "library/DatabaseCopies.h"
#include "library/LibraryErrors.h"
#include "library/PackageFolder.h"
#include "library/Work.h"
#include "model/LockFiles.h"

namespace vornex {
namespace {

PackageHolder holderOfPackage(const LibraryPtr& library) {
  return library->packageFolder ? vornex::holderOfPackage(*library->packageFolder, library->dbName)
                                : PackageHolder::nobody;
}

TQErrorPtr notTheLibrarys(const LibraryPtr& library) {
  logLine(LogLevel::error, "deleteLibrary, not the library's folder : " + *library->packageFolder);
  return libraryError(10001, "request.error.param.invalid");
}

TQErrorPtr deleteEverything(const LibraryPtr& library) {
  const PackageHolder holder = holderOfPackage(library);
  if (holder == PackageHolder::other) return notTheLibrarys(library);
  // A backup by another process must not write into what is removed.
  std::optional<DatabaseCopies::Locks> locks;
  if (holder == PackageHolder::library) {
    auto locked = createDirectories(layout::databaseRoot()).and_then([&] {
      return DatabaseCopies(*library).lock(DatabaseCopies::Use::read);
    });
    if (!locked) return makeSdkError(locked.error());
    locks = std::move(*locked);
    // Somebody may have put another library there while the locks were waited for, or while the service
    // works.
    if (holderOfPackage(library) == PackageHolder::other) return notTheLibrarys(library);
  }
  if (TQErrorPtr error = askService(&ServiceProxy::removeLibraryWithDBName, library->dbName.value_or("")))
    return error;
  // Its file lies in the package; a network file system keeps what is open.
  if (locks) locks->package.reset();
  if (holderOfPackage(library) == PackageHolder::other) return notTheLibrarys(library);
  const bool hasPackage = library->packageFolder && itemExists(*library->packageFolder);
  return hasPackage ? removePackageFolder(*library->packageFolder) : nullptr;
}

// Leaves the package folder with a fresh packaged database, and no working one. When the folder is gone, the
// working database is the only one and stays.
TQErrorPtr packUp(TQLibraryManager& manager, const LibraryPtr& library,
                  const TQLibraryManager::SyncHandler& syncHandler,
                  const TQLibraryManager::DatabaseProgress& progress) {
  const PackageHolder holder = holderOfPackage(library);
  if (holder == PackageHolder::other) return notTheLibrarys(library);
  if (holder == PackageHolder::nobody) return nullptr;
  if (syncHandler) syncHandler(library, true);
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

void TQLibraryManager::deleteLibrary(LibraryPtr library, bool allDelete, SyncHandler syncHandler,
                                     Completion completion, DatabaseProgress progress) {
  if (!library) return completion(false, libraryError(10000, "request.error.param.nil"));
  // Nothing of a network library is here, not even when its server is.
  if (library->libraryType == kLibraryTypeNetwork) return completion(deleteRemoteLibrary(library), nullptr);
  workThenTell(std::move(completion), [this, library, allDelete, syncHandler = std::move(syncHandler),
                                       progress = std::move(progress)] {
    TQErrorPtr error = allDelete ? deleteEverything(library) : packUp(*this, library, syncHandler, progress);
    if (error) return Ending::of(error);
    // While the row is there, no creation takes the library for the rest of another one.
    if (library->packageFolder) forgetCreation(*library->packageFolder, library->dbName.value_or(""));
    const bool saved = deleteLibraryPlist(library);
    // Who imports the package next may count on it that the service has forgotten the library.
    askService(&ServiceProxy::updateLibrary);
    return Ending{saved, nullptr};
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
