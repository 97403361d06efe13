#include <fmt/format.h>
#include <sys/stat.h>
#include <vornex/Log.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQLibraryManager.h>
#include <vornex/TQVornexUtil.h>

#include <cerrno>
#include <filesystem>
#include <optional>

#include "core/Coercion.h"
#include "core/SdkError.h"
#include "core/StatusCode.h"
#include "core/StorageLayout.h"
#include "foundation/FileLock.h"
#include "foundation/Files.h"
#include "foundation/PropertyList.h"
#include "library/AskService.h"
#include "library/LibraryErrors.h"
#include "library/ManagerState.h"
#include "library/PackageFolder.h"
#include "library/ServiceAway.h"
#include "library/Work.h"

namespace vornex {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

void logPlace(const LibraryPtr& library) {
  logLine(LogLevel::error, fmt::format("createLibrary, packageFolder={}, library={}",
                                       library ? library->packageFolder.value_or("(null)") : "(null)",
                                       library ? library->description() : "(null)"));
}

TQErrorPtr refuse(const LibraryPtr& library, std::int64_t code, const char* key) {
  logPlace(library);
  return libraryError(code, key);
}

// A list that cannot be read may name it.
bool isKnown(const std::string& dbName) {
  return TQLibraryManager::sharedManager().libraryForDBName(dbName) || isInLocalList(dbName).value_or(true);
}

// Whether nothing is in the folder but what a creation of the database makes before the library is listed.
bool isUnfinishedCreation(const std::string& folder, const std::string& dbName) {
  auto record = readDictionaryFile(*TQVornexUtil::libraryPlistWithPackageFolder(folder));
  if (dbName.empty() || isKnown(dbName)) return false;
  if (record && coerce::string(record->find("dbname")) != dbName) return false;
  std::error_code error;
  for (fs::recursive_directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    const std::string name = entry->path().filename();
    const bool isMade = name == "library.plist" || name == ".directory" || isUnfinishedWrite(name);
    if (!entry->is_directory(error) && !isMade) return false;
  }
  return !error;
}

Result<void> removeDatabase(const std::string& dbName) {
  TQErrorPtr error = askService(&ServiceProxy::removeLibraryWithDBName, dbName);
  if (isServiceLost(error)) return removeUnservedDatabase(dbName);
  return error ? failure(error->domain().value_or(""), error->code(), error->message()) : Result<void>();
}

// Whether the package's record names the database.
bool isNamedBy(const std::string& folder, const std::string& dbName) {
  auto record = readDictionaryFile(*TQVornexUtil::libraryPlistWithPackageFolder(folder));
  return record && coerce::string(record->find("dbname")) == dbName;
}

// Removes what a creation that was killed has left at the place. Null when the place is free. Without its
// package, the database that the note names may be the only copy of a library that has left the list: a
// creation writes the record before there is a database.
TQErrorPtr clearPlace(const LibraryPtr& library, FileLock& creation) {
  const std::string& folder = *library->packageFolder;
  const std::string former = creation.note();
  if (!itemExists(folder)) return nullptr;
  if (!creation.isExclusive()) return refuse(library, 10002, "library.message.exist");
  if (!isUnfinishedCreation(folder, former)) {
    const bool isListRead = isInLocalList(former).has_value();
    if (isListRead) creation.removeFile();
    return refuse(library, 10002, "library.message.exist");
  }
  const bool hasDatabase = itemExists(layout::databaseFolder(former));
  if (hasDatabase && !isNamedBy(folder, former)) return refuse(library, 10002, "library.message.exist");
  if (hasDatabase)
    if (auto removed = removeDatabase(former); !removed) return makeSdkError(removed.error());
  return removePackageFolder(folder);
}

// Null when the library can be created, as far as can be seen.
TQErrorPtr checkNewLibrary(const LibraryPtr& library) {
  if (!library || !library->packageFolder || !library->connection)
    return refuse(library, 10000, "request.error.param.nil");
  if (library->libraryType == kLibraryTypeNetwork) {
    logLine(LogLevel::error, "Library is network: " + library->name.value_or("(null)"));
    return libraryError(10001, "request.error.param.invalid");
  }
  if (!library->packageFolder->starts_with('/')) return refuse(library, 10001, "request.error.param.invalid");
  const std::string& folder = *library->packageFolder;
  if (itemExists(folder) && !itemExists(FileLock::placeOf(creationOf(folder))))
    return refuse(library, 10002, "library.message.exist");
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

// The package folder with everything in it that is there before the service knows the library. `creation`
// says that it goes on.
TQErrorPtr createPackage(const LibraryPtr& library, std::optional<FileLock>& creation) {
  const std::string& folder = *library->packageFolder;
  const std::string parent = deletingLastPathComponent(folder);
  if (!createDirectories(parent)) return refuse(library, 10010, "library.error.create");
  auto locked = FileLock::acquire(creationOf(folder), 0s);
  if (!locked) {
    const bool isMadeByOthers = locked.error().code == ETIMEDOUT;
    logLine(LogLevel::error, locked.error().message);
    return isMadeByOthers ? refuse(library, 10002, "library.message.exist")
                          : refuse(library, 10010, "library.error.create");
  }
  if (TQErrorPtr error = clearPlace(library, *locked)) return error;
  auto made = locked->setNote(library->dbName.value_or(""));
  // Who makes the folder is who may remove it.
  if (made && ::mkdir(folder.c_str(), 0755) != 0) made = posixFailure(errno, "make " + folder);
  if (!made) {
    locked->removeFile();
    return made.error().code == EEXIST ? refuse(library, 10002, "library.message.exist")
                                       : refuse(library, 10010, "library.error.create");
  }
  creation = std::move(*locked);
  TQErrorPtr error;
  if (!TQVornexUtil::createPackageFolder(folder, "Library"))
    error = refuse(library, 10010, "library.error.create");
  if (!error) error = createFoldersAndRecord(library);
  if (!error)
    if (auto synced = syncDirectory(parent); !synced) error = makeSdkError(synced.error());
  if (error && !removePackageFolder(folder)) creation->removeFile();
  return error;
}

// Removes everything that a creation has made. What cannot be removed now, the next creation there, of a new
// record, removes: as long as the database stays, so does the folder that tells it.
void undoCreation(TQLibraryManager& manager, const LibraryPtr& library, const TQErrorPtr& reason,
                  FileLock& creation) {
  // The database of that name is another library's.
  const bool isOurs = reason->code() != static_cast<std::int64_t>(StatusCode::itemExists);
  auto removed = isOurs ? removeDatabase(library->dbName.value_or("")) : Result<void>();
  if (!removed) logLine(LogLevel::error, removed.error().message);
  const bool isLeft = !removed && itemExists(layout::databaseFolder(library->dbName.value_or("")));
  if (!isLeft && !removePackageFolder(*library->packageFolder)) creation.removeFile();
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

}  // namespace

void TQLibraryManager::createLibrary(LibraryPtr library, Completion completion) {
  workThenTell(std::move(completion), [this, library = std::move(library)] {
    TQErrorPtr error = checkNewLibrary(library);
    if (!error) error = bookmarkFolder(deletingLastPathComponent(*library->packageFolder));
    if (error) return Ending::of(error);
    startAllBookmarks();
    std::optional<FileLock> creation;
    error = createPackage(library, creation);
    if (error) return Ending::of(error);

    connectLocally(library);
    library->onlineStatus = true;
    {
      std::lock_guard lock(state_->monitor);
      state_->append({library});
    }
    error = askService(&ServiceProxy::addLibrary, library->libDictionary().value_or(Dictionary()));
    if (error) {
      undoCreation(*this, library, error, *creation);
      return Ending::of(error);
    }
    {
      std::lock_guard lock(state_->monitor);
      // Who has loaded the list meanwhile has dropped what was not saved.
      if (!findLibrary(library)) state_->append({library});
      error = finishCreation(*this, library);
    }
    creation->removeFile();
    if (error) return Ending::of(error);
    return Ending{library->createLibaryLockFileWithError(nullptr), nullptr};
  });
}

}  // namespace vornex
