#include <fmt/format.h>
#include <vornex/Log.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQLibraryManager.h>
#include <vornex/TQVornexUtil.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <optional>

#include "core/Coercion.h"
#include "core/DatabaseFolder.h"
#include "core/SdkError.h"
#include "core/StorageLayout.h"
#include "foundation/FileLock.h"
#include "foundation/Files.h"
#include "foundation/PropertyList.h"
#include "library/AskService.h"
#include "library/DatabaseCopies.h"
#include "library/LibraryErrors.h"
#include "library/ManagerState.h"
#include "library/Work.h"

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

/// As long as another import may copy a large database.
constexpr auto kImportPatience = std::chrono::hours(12);

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
    // Two imports of one package must not both list it, nor one undo what the other has.
    auto turn = createDirectories(layout::databaseRoot()).and_then([&] {
      // With a blank it is no other database's name.
      return FileLock::acquire(layout::databaseFolder(dbName()) + " import", kImportPatience);
    });
    if (!turn) return makeSdkError(turn.error());
    if (manager_.findLibrary(library_) || isInLocalList(library_->dbName).value_or(false)) {
      logLine(LogLevel::error, "Already exist library: " + dbName());
      return libraryError(10002, "library.message.path.exist");
    }
    // Before anything is copied or exchanged; a lock that comes later is seen, too.
    if (TQErrorPtr error = checkLock()) return error;
    if (TQErrorPtr error = bookmarkFolder(folder_)) return error;
    manager_.startAllBookmarks();
    if (TQErrorPtr error = bringInDatabase()) return error;
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
    copies_.emplace(*library_);
    return nullptr;
  }

  /// Another computer's lock; a forced import breaks it at its end.
  TQErrorPtr checkLock() const {
    TQErrorPtr error;
    if (force_ || library_->createLibaryLockFileWithError(&error)) return nullptr;
    logLine(LogLevel::error, "Can't create lock file or library already using : " + dbName());
    return error;
  }

  TQErrorPtr bringInDatabase() {
    auto broughtIn = copies_->bringIn(
        force_,
        [this] {
          if (syncHandler_) syncHandler_(library_, true);
        },
        progress_);
    if (!broughtIn) {
      library_->removeLibraryLockFile();
      return libraryError(10019, "library.error.db.restore.failed", broughtIn.error().message);
    }
    broughtIn_ = *broughtIn;
    return nullptr;
  }

  /// From the service's consent to the saved list.
  TQErrorPtr takeIn() {
    library_->versionNumber = kSharedDatabaseVersion;
    TQErrorPtr error = haveServed();
    if (error) {
      library_->removeLibraryLockFile();
      return isMissing(error) ? libraryError(10019, "library.error.db.restore.failed", error->message())
                              : error;
    }
    isServed_ = true;
    error = checkLock();
    if (error) return error;
    manager_.importLibrary(library_, [&](const LibraryPtr&, const TQErrorPtr& failure) { error = failure; });
    // Last: a computer that has a lock keeps it when the import fails.
    if (!error && force_ && !removeLockFiles()) {
      logLine(LogLevel::error, "Can't remove library lock file");
      error = libraryError(10023, "library.error.lockfile.cannnot.delete");
    }
    if (error) manager_.deleteLibraryPlist(library_);
    // The service follows the list: whoever asks it next finds the library at its place.
    askService(&ServiceProxy::updateLibrary);
    return error;
  }

  static bool isMissing(const TQErrorPtr& error) {
    return error && error->code() == static_cast<std::int64_t>(StatusCode::databaseNotFound);
  }

  TQErrorPtr haveServed() const {
    if (isKnownToService()) {
      TQErrorPtr error = askService(&ServiceProxy::launchLibraryForDBName, dbName());
      // Else it was about to forget the library, which has left the list.
      if (!isMissing(error)) return error;
    }
    return askService(&ServiceProxy::addExistingLibrary, library_->libDictionary().value_or(Dictionary()));
  }

  bool removeLockFiles() const {
    while (manager_.alreadyUsingLibraryWithPackageFolder(folder_))
      if (!library_->removeLibraryLockFileAll()) return false;
    return true;
  }

  bool isKnownToService() const {
    auto service = TQVornexService();
    if (!service) return false;
    auto answer = std::make_shared<std::promise<Dictionary>>();
    auto answered = answer->get_future();
    service->getLibraryForDBName(
        dbName(), [answer](Dictionary library, const TQErrorPtr&) { answer->set_value(std::move(library)); });
    return answered.get().contains("dbname");
  }

  /// A working database that stayed would be taken for the latest when the package is imported again, and a
  /// library that the service kept could be served.
  void undo() const {
    if (isServed_) askService(&ServiceProxy::terminateLibraryForDBName, dbName());
    if (auto undone = copies_->putBack(broughtIn_); !undone) logLine(LogLevel::error, undone.error().message);
  }

  std::string dbName() const { return library_->dbName.value_or(""); }

  TQLibraryManager& manager_;
  const std::string folder_;
  const bool force_;
  const TQLibraryManager::SyncHandler syncHandler_;
  const TQLibraryManager::DatabaseProgress progress_;
  LibraryPtr library_;
  std::optional<DatabaseCopies> copies_;
  DatabaseCopies::BroughtIn broughtIn_;
  bool isServed_ = false;
};

}  // namespace

Result<bool> isInLocalList(const OptionalString& dbName) {
  auto file = readDictionaryFile(layout::localLibraryPlist());
  if (!file && file.error().domain == "posix" && file.error().code == ENOENT) return false;
  if (!file) return tl::unexpected(file.error());
  const Array rows = coerce::array(file->find("library"));
  return std::any_of(rows.begin(), rows.end(), [&](const Value& row) {
    return dbName && coerce::string(row.find("dbname")) == dbName;
  });
}

void TQLibraryManager::importLibraryWithPackageFolder(std::string packageFolder, bool forceSyncingDB,
                                                      SyncHandler syncHandler, Completion completionHandler,
                                                      DatabaseProgress progress) {
  workThenTell(std::move(completionHandler),
               [this, folder = std::move(packageFolder), forceSyncingDB, syncHandler = std::move(syncHandler),
                progress = std::move(progress)] {
                 if (!fileExists(*TQVornexUtil::libraryPlistWithPackageFolder(folder))) {
                   logLine(LogLevel::error, "file not exist");
                   return Ending{false, nullptr};
                 }
                 return Ending::of(PackageImport(*this, folder, forceSyncingDB, syncHandler, progress).run());
               });
}

void TQLibraryManager::importLibrary(LibraryPtr library,
                                     std::function<void(LibraryPtr library, TQErrorPtr error)> completion) {
  if (!library) return completion(nullptr, libraryError(10000, "request.error.param.nil"));
  // Until the end: who loads the list meanwhile must not drop the library.
  std::unique_lock lock(state_->monitor);
  state_->append({library});
  state_->claim({library});
  const char* failure = !saveLibrariesFileWithType(library->libraryType)
                            ? "importLibrary, Can't save Library File"
                        : !library->writeToFile() ? "importLibrary, Can't writeToFile Library"
                                                  : nullptr;
  lock.unlock();
  if (!failure) return completion(library, nullptr);
  logLine(LogLevel::error, failure);
  completion(nullptr, libraryError(10003, "library.error.cannot.save"));
}

}  // namespace vornex
