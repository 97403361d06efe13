#include <fmt/format.h>
#include <vornex/Log.h>
#include <vornex/Queue.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQLibraryManager.h>
#include <vornex/TQVornexUtil.h>

#include <algorithm>
#include <charconv>

#include "core/Coercion.h"
#include "core/DatabaseFolder.h"
#include "core/SdkError.h"
#include "foundation/Files.h"
#include "foundation/PropertyList.h"
#include "library/AskService.h"
#include "library/DatabaseCopies.h"
#include "library/LibraryErrors.h"
#include "library/ManagerState.h"

namespace vornex {

namespace {

/// "1.10" is newer than "1.9"; what is no number counts as 0.
bool isNewer(std::string_view version, std::string_view than) {
  while (!version.empty() || !than.empty()) {
    auto takePart = [](std::string_view& text) {
      const std::size_t dot = std::min(text.find('.'), text.size());
      std::int64_t number = 0;
      std::from_chars(text.data(), text.data() + dot, number);
      text.remove_prefix(std::min(dot + 1, text.size()));
      return number;
    };
    const std::int64_t part = takePart(version);
    const std::int64_t other = takePart(than);
    if (part != other) return part > other;
  }
  return false;
}

/// One import of a package folder, on a worker.
class PackageImport {
 public:
  PackageImport(TQLibraryManager& manager, std::string folder, bool force,
                TQLibraryManager::SyncHandler syncHandler, TQLibraryManager::DatabaseProgress progress)
      : manager_(manager),
        folder_(std::move(folder)),
        force_(force),
        syncHandler_(std::move(syncHandler)),
        progress_(std::move(progress)) {}

  /// Null on success.
  TQErrorPtr run() {
    if (TQErrorPtr error = readRecord()) return error;
    if (TQErrorPtr error = bookmarkFolder(folder_)) return error;
    manager_.startAllBookmarks();
    if (TQErrorPtr error = restoreDatabase()) return error;
    TQErrorPtr error = takeIn();
    if (error) undo();
    return error;
  }

 private:
  TQErrorPtr readRecord() {
    auto record = readDictionaryFile(*TQVornexUtil::libraryPlistWithPackageFolder(folder_));
    if (!record) return makeSdkError(record.error());
    library_ = TQLibrary::libraryWithDictionary(*record);
    if (!library_ || library_->libraryType != kLibraryTypeLocal || !folder_.starts_with('/') ||
        !isValidDatabaseName(*library_->dbName)) {
      logLine(LogLevel::error, "importLibrary, no local library: " + folder_);
      return libraryError(10001, "request.error.param.invalid");
    }
    if (isNewer(library_->versionNumber.value_or(""), kSharedDatabaseVersion)) {
      logLine(LogLevel::error, "importLibrary, made by a newer version: " + folder_);
      return libraryError(10022, "version.need.update");
    }
    connectLocally(library_);
    library_->onlineStatus = true;
    library_->packageFolder = folder_;
    if (!manager_.findLibrary(library_)) return nullptr;
    logLine(LogLevel::error, "Already exist library: " + dbName());
    return libraryError(10002, "library.message.path.exist");
  }

  TQErrorPtr restoreDatabase() {
    const DatabaseCopies copies(*library_);
    const bool hadWorking = copies.hasWorking();
    if (hadWorking && !force_) return nullptr;
    if (syncHandler_) syncHandler_(library_, true);
    auto restored = copies.restore(progress_);
    if (!restored) {
      library_->removeLibraryLockFile();
      return libraryError(10019, "library.error.db.restore.failed", restored.error().message);
    }
    madeWorking_ = !hadWorking;
    return nullptr;
  }

  /// From the service's consent to the saved list.
  TQErrorPtr takeIn() {
    const bool known = isKnownToService();
    library_->versionNumber = kSharedDatabaseVersion;
    TQErrorPtr error =
        known ? askService(&ServiceProxy::launchLibraryForDBName, dbName())
              : askService(&ServiceProxy::addLibrary, library_->libDictionary().value_or(Dictionary()));
    if (error) {
      library_->removeLibraryLockFile();
      return error;
    }
    added_ = !known;
    if (known && force_ && !library_->removeLibraryLockFileAll()) {
      logLine(LogLevel::error, "Can't remove library lock file");
      return libraryError(10023, "library.error.lockfile.cannnot.delete");
    }
    if (!library_->createLibaryLockFileWithError(&error)) {
      logLine(LogLevel::error, "Can't create lock file or library already using : " + dbName());
      return error;
    }
    manager_.importLibrary(library_, [&](const LibraryPtr&, const TQErrorPtr& failure) { error = failure; });
    if (error) manager_.deleteLibraryPlist(library_);
    // The service follows the list: whoever asks it next finds the library at its place.
    askService(&ServiceProxy::updateLibrary);
    return error;
  }

  bool isKnownToService() const {
    auto service = TQVornexService();
    if (!service) return false;
    std::promise<Dictionary> answer;
    service->getLibraryForDBName(
        dbName(), [&](Dictionary library, const TQErrorPtr&) { answer.set_value(std::move(library)); });
    return answer.get_future().get().contains("dbname");
  }

  /// A working database that stayed would be taken for the latest when the package is imported again.
  void undo() const {
    if (madeWorking_ && !isServiceLost(askService(&ServiceProxy::removeLibraryWithDBName, dbName()))) return;
    if (madeWorking_) {
      auto removed = removeDatabaseFolder(dbName());
      if (!removed) logLine(LogLevel::error, removed.error().message);
    } else if (added_) {
      askService(&ServiceProxy::terminateLibraryForDBName, dbName());
    }
  }

  std::string dbName() const { return library_->dbName.value_or(""); }

  TQLibraryManager& manager_;
  const std::string folder_;
  const bool force_;
  const TQLibraryManager::SyncHandler syncHandler_;
  const TQLibraryManager::DatabaseProgress progress_;
  LibraryPtr library_;
  bool madeWorking_ = false;
  bool added_ = false;
};

}  // namespace

void TQLibraryManager::importLibraryWithPackageFolder(std::string packageFolder, bool forceSyncingDB,
                                                      SyncHandler syncHandler, Completion completionHandler,
                                                      DatabaseProgress progress) {
  GlobalQueue::shared().async([this, folder = std::move(packageFolder), forceSyncingDB,
                               syncHandler = std::move(syncHandler),
                               completion = std::move(completionHandler), progress = std::move(progress)] {
    if (!fileExists(*TQVornexUtil::libraryPlistWithPackageFolder(folder))) {
      logLine(LogLevel::error, "file not exist");
      return completion(false, nullptr);
    }
    TQErrorPtr error = PackageImport(*this, folder, forceSyncingDB, syncHandler, progress).run();
    completion(!error, error);
  });
}

void TQLibraryManager::importLibrary(LibraryPtr library,
                                     std::function<void(LibraryPtr library, TQErrorPtr error)> completion) {
  if (!library) return completion(nullptr, libraryError(10000, "request.error.param.nil"));
  {
    std::lock_guard lock(state_->monitor);
    state_->append({library});
    state_->claim({library});
  }
  const char* failure = !saveLibrariesFileWithType(library->libraryType)
                            ? "importLibrary, Can't save Library File"
                        : !library->writeToFile() ? "importLibrary, Can't writeToFile Library"
                                                  : nullptr;
  if (!failure) return completion(library, nullptr);
  logLine(LogLevel::error, failure);
  completion(nullptr, libraryError(10003, "library.error.cannot.save"));
}

}  // namespace vornex
