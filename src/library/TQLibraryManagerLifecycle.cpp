#include <fmt/format.h>
#include <vornex/Log.h>
#include <vornex/Queue.h>
#include <vornex/TQBookmarkUtil.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQLibraryManager.h>
#include <vornex/TQVornexUtil.h>

#include <filesystem>

#include "core/SdkError.h"
#include "core/StatusCode.h"
#include "foundation/Files.h"
#include "library/ManagerState.h"
#include "model/LockFiles.h"
#include "service/TQVornexService.h"

namespace vornex {
namespace {

namespace fs = std::filesystem;

TQErrorPtr sdkError(std::int64_t code, const char* key) {
  return TQVornexUtil::errorWithCode(code, LocalizedString(key));
}

TQErrorPtr noService() {
  return TQVornexUtil::errorWithCode(static_cast<std::int64_t>(StatusCode::cannotConnectToHost),
                                     "the service does not run", kServerErrorDomain);
}

void logPlace(const LibraryPtr& library) {
  logLine(LogLevel::error, fmt::format("createLibrary, packageFolder={}, library={}",
                                       library ? library->packageFolder.value_or("(null)") : "(null)",
                                       library ? library->name.value_or("(null)") : "(null)"));
}

// Null when the library can be created.
TQErrorPtr checkNewLibrary(const LibraryPtr& library) {
  if (!library || !library->packageFolder || !library->connection) {
    logPlace(library);
    return sdkError(10000, "request.error.param.nil");
  }
  if (library->libraryType == kLibraryTypeNetwork) {
    logLine(LogLevel::error, "Library is network: " + library->name.value_or("(null)"));
    return sdkError(10001, "request.error.param.invalid");
  }
  if (!library->packageFolder->starts_with('/')) {
    logPlace(library);
    return sdkError(10001, "request.error.param.invalid");
  }
  if (itemExists(*library->packageFolder)) {
    logPlace(library);
    return sdkError(10002, "library.message.exist");
  }
  // Undoing a failure removes by database name, so it must not be another library's.
  if (TQLibraryManager::sharedManager().findLibrary(library)) {
    logLine(LogLevel::error, "Already exist library: " + library->dbName.value_or("(null)"));
    return sdkError(10002, "library.message.path.exist");
  }
  return nullptr;
}

TQErrorPtr bookmarkFolderOf(const std::string& packageFolder) {
  TQBookmarkUtil& bookmarks = TQBookmarkUtil::sharedInstance();
  if (!bookmarks.addBookmarkWithFilePath(deletingLastPathComponent(packageFolder))) {
    logLine(LogLevel::error, "Can't create bookmark url: " + packageFolder);
    return sdkError(10011, "bookmark.error.cannot.create.url");
  }
  if (!bookmarks.saveBookmarks()) {
    logLine(LogLevel::error, "Can't save bookmarks");
    return sdkError(10012, "bookmark.error.cannot.save");
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
  return sdkError(10003, "library.error.cannot.save");
}

// Null on success.
TQErrorPtr removePackageFolder(const std::string& folder) {
  std::error_code error;
  fs::remove_all(folder, error);
  if (!error) return nullptr;
  logLine(LogLevel::error, fmt::format("deleteLibrary, Can't removeFile : {}", folder));
  return makeSdkError(posixFailure(error.value(), "removing " + folder).value());
}

// The package folder with everything in it that is there before the service knows the library.
TQErrorPtr createPackage(const LibraryPtr& library) {
  if (!TQVornexUtil::createPackageFolder(library->packageFolder, std::nullopt)) {
    logPlace(library);
    return sdkError(10010, "library.error.create");
  }
  TQErrorPtr error = createFoldersAndRecord(library);
  if (error) removePackageFolder(*library->packageFolder);
  return error;
}

// What follows once the service knows the library.
void finishCreation(TQLibraryManager& manager, const LibraryPtr& library, const Completion& completion) {
  if (!manager.saveLibrariesFileWithType(kLibraryTypeLocal)) {
    logLine(LogLevel::error, "createLibrary, Can't save Library File");
    return completion(false, sdkError(10003, "library.error.cannot.save"));
  }
  if (!library->saveProjects()) {
    logLine(LogLevel::error, "createLibrary, Can't save Project File");
    return completion(false, sdkError(10003, "project.error.cannot.save"));
  }
  completion(library->createLibaryLockFileWithError(nullptr), nullptr);
}

// Removes everything again.
void undoCreation(const LibraryPtr& library, const TQErrorPtr& reason, const Completion& completion) {
  auto removeOwn = [library, reason, completion] {
    removePackageFolder(*library->packageFolder);
    TQLibraryManager::sharedManager().deleteLibraryPlist(library);
    completion(false, reason);
  };
  // The database of that name is another library's.
  if (reason->code() == static_cast<std::int64_t>(StatusCode::itemExists)) return removeOwn();
  TQLibraryManager::sharedManager().deleteLibrary(
      library, true, nullptr, [removeOwn, reason, completion](bool ok, const TQErrorPtr&) {
        // A service that cannot be asked has nothing to remove; what this process made still goes.
        ok ? completion(false, reason) : removeOwn();
      });
}

}  // namespace

void TQLibraryManager::createLibrary(LibraryPtr library, Completion completion) {
  GlobalQueue::shared().async([this, library = std::move(library), completion = std::move(completion)] {
    TQErrorPtr error = checkNewLibrary(library);
    if (!error) error = bookmarkFolderOf(*library->packageFolder);
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
    auto row = library->libDictionary();
    auto service = TQVornexService();
    if (!service || !row) return undoCreation(library, noService(), completion);
    service->addLibrary(*row, [this, library, completion](const TQErrorPtr& refusal) {
      if (isFailure(refusal)) return undoCreation(library, refusal, completion);
      finishCreation(*this, library, completion);
    });
  });
}

void TQLibraryManager::deleteLibrary(LibraryPtr library, bool allDelete, SyncHandler, Completion completion) {
  if (!library) return completion(false, sdkError(10000, "request.error.param.nil"));
  if (!allDelete) {
    if (library->libraryType == kLibraryTypeNetwork) return completion(deleteRemoteLibrary(library), nullptr);
    if (library->packageFolder && fileExists(*library->packageFolder))
      return completion(false, sdkError(10000, "library.error.db.backup.failed"));
    return completion(deleteLibraryPlist(library), nullptr);
  }
  GlobalQueue::shared().async([this, library = std::move(library), completion = std::move(completion)] {
    auto service = TQVornexService();
    if (!service) return completion(false, noService());
    service->removeLibraryWithDBName(library->dbName.value_or(""),
                                     [this, library, completion](const TQErrorPtr& refusal) {
                                       if (isFailure(refusal)) return completion(false, refusal);
                                       if (library->packageFolder && itemExists(*library->packageFolder))
                                         if (TQErrorPtr error = removePackageFolder(*library->packageFolder))
                                           return completion(false, error);
                                       completion(deleteLibraryPlist(library), nullptr);
                                     });
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
