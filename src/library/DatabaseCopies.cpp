#include "library/DatabaseCopies.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <vornex/Log.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQVornexUtil.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <future>
#include <sstream>

#include "core/DatabaseFolder.h"
#include "core/SdkError.h"
#include "core/StorageLayout.h"
#include "foundation/Files.h"
#include "foundation/Text.h"
#include "library/AskService.h"
#include "library/PackageFolder.h"
#include "library/ServiceAway.h"
#include "platform/FileCopy.h"

namespace vornex {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr const char* kServerLock = "mongod.lock";
// As they stand in the log.
constexpr const char* kRestore = "restoreDatabaseWithLibrary";
constexpr const char* kReplace = "replaceDatabaseWithLibrary";
constexpr auto kProgressInterval = 200ms;
// As long as another process may copy a large database.
constexpr auto kLockPatience = 12h;
/// In a database folder: how often the database was backed up, and a name for the last time.
constexpr const char* kGenerationFile = "generation";

Result<void> logged(const std::string& line, Result<void> result) {
  if (!result) logLine(LogLevel::error, line + " (" + result.error().message + ")");
  return result;
}

/// A copy of what could only be read is one's own to change.
void makeWritable(const std::string& folder) {
  std::error_code error;
  auto allow = [&](const fs::path& path, bool isFolder) {
    const fs::perms rights = isFolder ? fs::perms::owner_all : fs::perms::owner_read | fs::perms::owner_write;
    fs::permissions(path, rights, fs::perm_options::add | fs::perm_options::nofollow, error);
  };
  if (fs::symlink_status(folder, error).type() != fs::file_type::directory) return;
  allow(folder, true);
  for (fs::recursive_directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    std::error_code ignored;
    if (!entry->is_symlink(ignored)) allow(entry->path(), entry->is_directory(ignored));
  }
}

struct Generation {
  std::int64_t number = 0;
  std::string name;
};

/// A database that was never backed up is of generation 0.
Generation generationOf(const std::string& folder) {
  Generation generation;
  std::istringstream(readFile(appendPathComponent(folder, kGenerationFile)).value_or("")) >>
      generation.number >> generation.name;
  return generation;
}

Result<void> removeItem(const std::string& path) {
  makeWritable(path);
  std::error_code error;
  fs::remove_all(path, error);
  if (error) return posixFailure(error.value(), "remove " + path);
  return {};
}

Result<void> move(const char* operation, const std::string& from, const std::string& to) {
  Result<void> moved = ::rename(from.c_str(), to.c_str()) == 0 ? syncDirectory(deletingLastPathComponent(to))
                                                               : posixFailure(errno, "move " + from);
  return logged(fmt::format("{}, Can't move db file:{} -> {}", operation, from, to), std::move(moved));
}

Result<void> makeDatabaseRoot(const char* operation) {
  const std::string path = layout::databaseRoot();
  return logged(fmt::format("{}, Can't create directory:{}", operation, path), createDirectories(path));
}

Result<void> copyFolder(const std::string& from, const std::string& to,
                        const DatabaseCopies::Progress& progress) {
  auto copied = copyItem(from, to, [&](std::uint64_t done, std::uint64_t total) {
    if (progress) progress(static_cast<std::int64_t>(done), static_cast<std::int64_t>(total));
    return true;
  });
  if (!copied) return tl::unexpected(copied.error());
  return syncDirectory(deletingLastPathComponent(to));
}

/// What copies that were cut short have left in the folder.
void removeUnfinishedCopies(const std::string& folder) {
  std::error_code error;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error)) {
    std::error_code ignored;
    if (isUnfinishedCopy(entry->path().filename())) fs::remove_all(entry->path(), ignored);
  }
}

Error errorOf(const TQErrorPtr& error) {
  return {error->domain().value_or(""), error->code(), error->message()};
}

}  // namespace

DatabaseCopies::DatabaseCopies(const TQLibrary& library)
    : name_(library.dbName.value_or("")),
      working_(layout::databaseFolder(name_)),
      staging_(layout::stagedDatabaseFolder(name_)),
      unfinished_(appendPathComponent(layout::databaseRoot(), kUnfinishedPrefix + name_)),
      packagedFolder_(layout::packagedDatabaseFolder(library.packageFolder.value_or(""))),
      packaged_(appendPathComponent(packagedFolder_, name_)),
      previous_(packaged_ + "_origin"),
      fresh_(packaged_ + "_backup") {}

bool DatabaseCopies::hasWorking() const {
  return check() && isDatabaseFolder(working_);
}

bool DatabaseCopies::hasPackaged() const {
  return check() && packagedSource();
}

Result<void> DatabaseCopies::check() const {
  if (isValidDatabaseName(name_) && packagedFolder_.starts_with('/')) return {};
  return logged("No database folder for: " + name_, posixFailure(EINVAL, "database name " + name_));
}

/// A package that lies elsewhere now must not be taken for the one at its former place.
Result<void> DatabaseCopies::checkPackage() const {
  const std::string package = deletingLastPathComponent(packagedFolder_);
  if (holderOfPackage(package, name_) == PackageHolder::library) return {};
  return logged("Not the library's package folder: " + package,
                posixFailure(ESTALE, "find the library in " + package));
}

DatabaseCopies::Standing DatabaseCopies::standing() const {
  const OptionalString source = packagedSource();
  const Generation working = generationOf(working_);
  const Generation packaged = generationOf(source.value_or(""));
  if (!source || packaged.number < working.number || packaged.name == working.name) return Standing::inStep;
  return packaged.number > working.number ? Standing::packagedIsNewer : Standing::apart;
}

Result<DatabaseCopies::Locks> DatabaseCopies::lock(Use ofPackage) const {
  if (auto valid = check(); !valid) return tl::unexpected(valid.error());
  auto database = FileLock::acquire(working_, kLockPatience);
  if (!database) return tl::unexpected(database.error());
  auto package = FileLock::acquire(packagedFolder_, kLockPatience);
  if (package) return Locks{std::move(*database), std::move(*package)};
  // Nobody changes what lies where nobody can write.
  const std::int64_t code = package.error().code;
  const bool isReadOnly = code == EROFS || code == EACCES || code == EPERM || code == ENOENT;
  if (ofPackage == Use::write || !isReadOnly) return tl::unexpected(package.error());
  return Locks{std::move(*database), std::nullopt};
}

OptionalString DatabaseCopies::packagedSource() const {
  if (isDatabaseFolder(packaged_)) return packaged_;
  if (isDatabaseFolder(previous_)) return previous_;
  return std::nullopt;
}

Result<void> DatabaseCopies::backUp(bool close, const Progress& progress) const {
  constexpr const char* kOperation = "backupDatabaseWithLibrary";
  if (auto valid = check(); !valid) return valid;
  logLine(LogLevel::info, fmt::format("backup database syncing:{} -> {}", working_, packagedFolder_));
  if (auto found = checkPackage(); !found) return found;
  if (::mkdir(packagedFolder_.c_str(), 0755) != 0 && !isDirectory(packagedFolder_))
    return logged(fmt::format("{}, Can't create directory:{}", kOperation, packagedFolder_),
                  posixFailure(errno, "make " + packagedFolder_));
  if (auto made = makeDatabaseRoot(kOperation); !made) return made;
  auto locked = lock(Use::write);
  if (!locked) return tl::unexpected(locked.error());
  // The wait may have been long.
  if (auto found = checkPackage(); !found) return found;
  if (auto synced = syncDirectory(deletingLastPathComponent(packagedFolder_)); !synced) return synced;
  if (auto repaired = repairBackup(); !repaired) return repaired;

  logLine(LogLevel::info, fmt::format("start database backup :{} -> {}", working_, fresh_));
  auto copied = logged(fmt::format("Can't copy db backup file : {} -> to dest : {}", working_, fresh_),
                       copyWorking(close, progress));
  if (copied) copied = markGeneration();
  // The service may still clear up after a copy for a client that was killed.
  if (copied && !isDatabaseFolder(fresh_)) copied = posixFailure(ENODATA, "the copy has gone from " + fresh_);
  if (!copied) {
    (void)removeItem(fresh_);  // the next run does, too
    return copied;
  }
  if (itemExists(packaged_))
    if (auto moved = move(kOperation, packaged_, previous_); !moved) return moved;
  if (auto moved = move(kOperation, fresh_, packaged_); !moved) return moved;
  return logged("Can't remove db backup file : " + previous_, removeItem(previous_));
}

/// Brings the package into the state between two backups.
Result<void> DatabaseCopies::repairBackup() const {
  removeUnfinishedCopies(packagedFolder_);
  auto removed = logged("Can't remove backup db file : " + fresh_, removeItem(fresh_));
  if (!removed || !itemExists(previous_)) return removed;
  if (isDatabaseFolder(packaged_) || !isDatabaseFolder(previous_))
    return logged("Can't remove db backup file : " + previous_, removeItem(previous_));
  if (auto emptied = removeItem(packaged_); !emptied) return emptied;
  return move("backupDatabaseWithLibrary", previous_, packaged_);
}

/// First where it is used: a kill in between leaves no package that seems newer.
Result<void> DatabaseCopies::markGeneration() const {
  const std::int64_t former =
      std::max(generationOf(working_).number, generationOf(packagedSource().value_or("")).number);
  const std::string mark = fmt::format("{} {}\n", former + 1, makeUUID());
  for (const std::string& folder : {working_, fresh_})
    if (auto written = writeFileAtomically(appendPathComponent(folder, kGenerationFile), mark); !written)
      return written;
  return syncDirectory(fresh_);
}

Result<void> DatabaseCopies::copyWorking(bool close, const Progress& progress) const {
  if (!hasWorking()) return posixFailure(ENOENT, "find the database " + working_);
  auto copied = snapshot(close, progress);
  return !copied && isServiceLost(copied.error()) ? copyUnserved(progress) : copied;
}

Result<void> DatabaseCopies::snapshot(bool close, const Progress& progress) const {
  if (auto made = createDirectories(fresh_); !made) return made;
  auto answer = std::async(std::launch::async,
                           [&] { return askService(&ServiceProxy::snapshotDatabase, name_, fresh_, close); });
  std::error_code failure;
  const auto size = fs::file_size(appendPathComponent(working_, kDatabaseFileName), failure);
  const std::int64_t total = failure ? 0 : static_cast<std::int64_t>(size);
  while (answer.wait_for(kProgressInterval) != std::future_status::ready)
    if (progress)
      progress(std::min(total, static_cast<std::int64_t>(sizeForFolderAtPath(fresh_, nullptr))), total);
  if (TQErrorPtr error = answer.get()) return tl::unexpected(errorOf(error));
  if (!isDatabaseFolder(fresh_)) return posixFailure(ENODATA, "the service has copied nothing to " + fresh_);
  if (progress) progress(total, total);
  return syncDirectory(packagedFolder_);
}

/// Copies the files while no service may use them.
Result<void> DatabaseCopies::copyUnserved(const Progress& progress) const {
  if (auto removed = removeItem(fresh_); !removed) return removed;
  auto away = ServiceAway::keep("copying a database");
  if (!away) return tl::unexpected(away.error());
  return copyFolder(working_, fresh_, progress);
}

Result<void> DatabaseCopies::restore(const Progress& progress) const {
  if (auto valid = check(); !valid) return valid;
  if (auto made = makeDatabaseRoot(kRestore); !made) return made;
  auto locked = lock(Use::read);
  return locked ? restoreLocked(progress) : tl::unexpected(locked.error());
}

Result<void> DatabaseCopies::restoreLocked(const Progress& progress) const {
  logLine(LogLevel::info, fmt::format("restore database syncing:{} -> {}", packaged_, working_));
  if (!packagedSource())
    return posixFailure(ENOENT, "the package holds no copy of its database, " + packaged_);
  if (hasWorking()) return {};
  if (auto staged = stage(progress); !staged) return staged;
  if (auto placed = exchange(kRestore); !placed) return placed;
  (void)putStagedAway();  // logged, and the next run does, too
  return {};
}

Result<void> DatabaseCopies::replace(const Progress& progress) const {
  if (auto valid = check(); !valid) return valid;
  if (auto made = makeDatabaseRoot(kReplace); !made) return made;
  auto locked = lock(Use::read);
  if (!locked) return tl::unexpected(locked.error());
  auto replaced = replaceLocked(Former::remove, progress);
  return replaced ? Result<void>() : tl::unexpected(replaced.error());
}

/// Gives the place of the former working database, if it is kept.
Result<std::string> DatabaseCopies::replaceLocked(Former former, const Progress& progress) const {
  if (auto staged = stage(progress); !staged) return tl::unexpected(staged.error());
  const bool isKept = former == Former::keep;
  if (auto marked = markFormerDatabase(working_, isKept); !marked) return tl::unexpected(marked.error());
  auto done = exchangeByService(kReplace, former);
  if (!done) {
    // A service that went away may still be at it; the next run clears up.
    if (!isServiceLost(done.error())) {
      (void)markFormerDatabase(working_, false);
      (void)putStagedAway();
    }
    return tl::unexpected(done.error());
  }
  // What cannot get a name of its own now gets it from the next run.
  return putStagedAway().value_or(isKept ? staging_ : "");
}

Result<DatabaseCopies::BroughtIn> DatabaseCopies::bringIn(bool force, const std::function<void()>& copies,
                                                          const Progress& progress) const {
  if (auto valid = check(); !valid) return tl::unexpected(valid.error());
  if (auto made = makeDatabaseRoot(kRestore); !made) return tl::unexpected(made.error());
  auto locked = lock(Use::read);
  if (!locked) return tl::unexpected(locked.error());
  const bool hadWorking = hasWorking();
  const Standing standing = hadWorking ? this->standing() : Standing::inStep;
  if (standing == Standing::apart && !force)
    return failure(
        "posix", ESTALE,
        "this computer has other changes of the library than the package; a forced import takes the "
        "package's and keeps the others beside the database");
  if (hadWorking && standing == Standing::inStep && !force) return BroughtIn{};
  copies();
  if (standing == Standing::inStep) {
    auto restored = restoreLocked(progress);
    return restored ? Result<BroughtIn>(BroughtIn{!hadWorking, ""}) : tl::unexpected(restored.error());
  }
  auto former = replaceLocked(Former::keep, progress);
  return former ? Result<BroughtIn>(BroughtIn{false, *former}) : tl::unexpected(former.error());
}

Result<void> DatabaseCopies::putBack(const BroughtIn& done) const {
  auto locked = lock(Use::read);
  if (!locked) return tl::unexpected(locked.error());
  if (done.isNew) {
    TQErrorPtr error = askService(&ServiceProxy::removeLibraryWithDBName, name_);
    if (isServiceLost(error)) return removeUnservedDatabase(name_);
    return error ? tl::unexpected(errorOf(error)) : Result<void>();
  }
  if (done.former.empty()) return {};
  if (auto marked = markFormerDatabase(done.former, true); !marked) return marked;
  if (done.former != staging_) {
    if (auto away = putStagedAway(); !away) return tl::unexpected(away.error());
    if (auto moved = move(kReplace, done.former, staging_); !moved) return moved;
  }
  auto exchanged = exchangeByService(kReplace, Former::keep);
  if (!exchanged && isServiceLost(exchanged.error())) {
    auto away = ServiceAway::keep("exchanging databases");
    exchanged = away ? exchange(kReplace) : tl::unexpected(away.error());
  }
  if (!exchanged) return exchanged;
  (void)putStagedAway();  // logged, and the next run does, too
  return markFormerDatabase(working_, false);
}

/// Copies the packaged database beside the working one.
Result<void> DatabaseCopies::stage(const Progress& progress) const {
  const OptionalString source = packagedSource();
  if (!source) return posixFailure(ENOENT, "the package holds no copy of its database, " + packaged_);
  if (auto away = putStagedAway(); !away) return tl::unexpected(away.error());
  if (auto removed = removeItem(unfinished_); !removed) return removed;
  if (auto made = createDirectories(unfinished_); !made) return made;
  const std::string copy = appendPathComponent(unfinished_, name_);
  auto copied = copyFolder(*source, copy, progress);
  if (!copied) {
    logLine(LogLevel::error, fmt::format("Can't copy db file : {} -> to dest : {}, error:{}", *source,
                                         staging_, copied.error().message));
    (void)removeItem(unfinished_);
    return copied;
  }
  makeWritable(copy);
  if (auto unmarked = markFormerDatabase(copy, false); !unmarked) return unmarked;
  const std::string lock = appendPathComponent(copy, kServerLock);
  if (auto removed = removeItem(lock); !removed) {
    logLine(LogLevel::error,
            fmt::format("Can't remove mongodb lock file : {}, error:{}", lock, removed.error().message));
    return removed;
  }
  if (auto moved = move(kRestore, copy, staging_); !moved) return moved;
  return removeItem(unfinished_);
}

Result<void> DatabaseCopies::exchange(const char* operation) const {
  return logged(fmt::format("{}, Can't move db file:{} -> {}", operation, staging_, working_),
                exchangeStagedDatabase(name_));
}

/// Of a library that the service does not know, nobody has the database open; a replacement without an import
/// is for one that it knows.
Result<void> DatabaseCopies::exchangeByService(const char* operation, Former former) const {
  TQErrorPtr error = askService(&ServiceProxy::replaceDatabase, name_);
  if (!error) return {};
  const bool isUnknown = error->code() == static_cast<std::int64_t>(StatusCode::databaseNotFound);
  if (isUnknown && former == Former::keep) return exchange(operation);
  return tl::unexpected(errorOf(error));
}

/// Removes what is staged, or keeps it under a name of its own, which is returned.
Result<std::string> DatabaseCopies::putStagedAway() const {
  makeWritable(staging_);
  auto away = putStagedDatabaseAway(name_);
  if (!away)
    logLine(LogLevel::error,
            fmt::format("Can't remove db restore file : {}, error:{}", staging_, away.error().message));
  return away;
}

}  // namespace vornex
