#include "library/DatabaseCopies.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <linux/fs.h>
#include <sys/file.h>
#include <vornex/Log.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQVornexUtil.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <future>

#include "core/DatabaseFolder.h"
#include "core/StorageLayout.h"
#include "foundation/FileDescriptor.h"
#include "foundation/Files.h"
#include "library/AskService.h"
#include "platform/FileCopy.h"

namespace vornex {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr const char* kServerLock = "mongod.lock";
constexpr auto kProgressInterval = 200ms;
// As long as another process may copy a large database.
constexpr auto kLockPatience = 12h;

Result<void> logged(const std::string& line, Result<void> result) {
  if (!result) logLine(LogLevel::error, line + " (" + result.error().message + ")");
  return result;
}

Result<void> removeItem(const std::string& path) {
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

Result<void> makeFolder(const char* operation, const std::string& path) {
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
      staging_(working_ + "_restore"),
      packagedFolder_(layout::packagedDatabaseFolder(library.packageFolder.value_or(""))),
      packaged_(appendPathComponent(packagedFolder_, name_)),
      previous_(packaged_ + "_origin"),
      fresh_(packaged_ + "_backup") {}

bool DatabaseCopies::hasWorking() const {
  return check() && itemExists(working_);
}

bool DatabaseCopies::hasPackaged() const {
  return check() && packagedSource();
}

Result<void> DatabaseCopies::check() const {
  if (isValidDatabaseName(name_) && packagedFolder_.starts_with('/')) return {};
  return logged("No database folder for: " + name_, posixFailure(EINVAL, "database name " + name_));
}

Result<FileLock> DatabaseCopies::lock() const {
  return FileLock::acquire(appendPathComponent(layout::databaseRoot(), "copies"), kLockPatience);
}

OptionalString DatabaseCopies::packagedSource() const {
  if (itemExists(packaged_)) return packaged_;
  if (itemExists(previous_)) return previous_;
  return std::nullopt;
}

Result<void> DatabaseCopies::backUp(bool close, const Progress& progress) const {
  constexpr const char* kOperation = "backupDatabaseWithLibrary";
  if (auto valid = check(); !valid) return valid;
  logLine(LogLevel::info, fmt::format("backup database syncing:{} -> {}", working_, packagedFolder_));
  if (auto made = makeFolder(kOperation, packagedFolder_); !made) return made;
  if (auto made = makeFolder(kOperation, layout::databaseRoot()); !made) return made;
  auto locked = lock();
  if (!locked) return tl::unexpected(locked.error());
  if (auto repaired = repairBackup(); !repaired) return repaired;

  logLine(LogLevel::info, fmt::format("start database backup :{} -> {}", working_, fresh_));
  auto copied = logged(fmt::format("Can't copy db backup file : {} -> to dest : {}", working_, fresh_),
                       copyWorking(close, progress));
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
  if (itemExists(packaged_))
    return logged("Can't remove db backup file : " + previous_, removeItem(previous_));
  return move("backupDatabaseWithLibrary", previous_, packaged_);
}

Result<void> DatabaseCopies::copyWorking(bool close, const Progress& progress) const {
  if (!isDirectory(working_)) return posixFailure(ENOENT, "find the database " + working_);
  auto copied = snapshot(close, progress);
  const bool unserved =
      !copied && copied.error().code == static_cast<std::int64_t>(StatusCode::cannotConnectToHost);
  return unserved ? copyUnserved(progress) : copied;
}

Result<void> DatabaseCopies::snapshot(bool close, const Progress& progress) const {
  if (auto made = createDirectories(fresh_); !made) return made;
  auto answer = std::async(std::launch::async,
                           [&] { return askService(&ServiceProxy::snapshotDatabase, name_, fresh_, close); });
  const auto total = static_cast<std::int64_t>(sizeForFolderAtPath(working_, nullptr));
  while (answer.wait_for(kProgressInterval) != std::future_status::ready)
    if (progress) progress(static_cast<std::int64_t>(sizeForFolderAtPath(fresh_, nullptr)), total);
  if (TQErrorPtr error = answer.get()) return tl::unexpected(errorOf(error));
  std::error_code unreadable;
  if (fs::is_empty(fresh_, unreadable) || unreadable)
    return posixFailure(ENODATA, "the service has copied nothing to " + fresh_);
  if (progress) progress(total, total);
  return syncDirectory(packagedFolder_);
}

/// Copies the files while no service may use them, nor start to.
Result<void> DatabaseCopies::copyUnserved(const Progress& progress) const {
  if (auto removed = removeItem(fresh_); !removed) return removed;
  if (auto made = createDirectories(layout::serviceFolder(), 0700); !made) return made;
  const std::string path = layout::serviceLockFile();
  FileDescriptor service(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (!service) return posixFailure(errno, "open " + path);
  if (::flock(service.get(), LOCK_EX | LOCK_NB) != 0)
    return posixFailure(errno, "the service that uses the database cannot be asked");
  return copyFolder(working_, fresh_, progress);
}

Result<void> DatabaseCopies::restore(const Progress& progress) const {
  constexpr const char* kOperation = "restoreDatabaseWithLibrary";
  if (auto valid = check(); !valid) return valid;
  if (auto made = makeFolder(kOperation, layout::databaseRoot()); !made) return made;
  logLine(LogLevel::info, fmt::format("restore database syncing:{} -> {}", packaged_, working_));
  auto locked = lock();
  if (!locked) return tl::unexpected(locked.error());
  if (!packagedSource())
    return posixFailure(ENOENT, "the package holds no copy of its database, " + packaged_);
  if (itemExists(working_)) return {};
  if (auto staged = stage(progress); !staged) return staged;
  return move(kOperation, staging_, working_);
}

Result<void> DatabaseCopies::stage(const Progress& progress) const {
  if (auto valid = check(); !valid) return valid;
  const OptionalString source = packagedSource();
  if (!source) return posixFailure(ENOENT, "the package holds no copy of its database, " + packaged_);
  removeUnfinishedCopies(layout::databaseRoot());
  if (auto removed = removeStaged(); !removed) return removed;
  auto copied = copyFolder(*source, staging_, progress);
  if (!copied) {
    logLine(LogLevel::error, fmt::format("Can't copy db file : {} -> to dest : {}, error:{}", *source,
                                         staging_, copied.error().message));
    return copied;
  }
  const std::string lock = appendPathComponent(staging_, kServerLock);
  auto removed = removeItem(lock);
  if (!removed)
    logLine(LogLevel::error,
            fmt::format("Can't remove mongodb lock file : {}, error:{}", lock, removed.error().message));
  return removed;
}

Result<void> DatabaseCopies::exchange() const {
  constexpr const char* kOperation = "replaceDatabaseWithLibrary";
  if (!itemExists(working_)) return move(kOperation, staging_, working_);
  Result<void> done =
      ::renameat2(AT_FDCWD, staging_.c_str(), AT_FDCWD, working_.c_str(), RENAME_EXCHANGE) == 0
          ? syncDirectory(layout::databaseRoot())
          : posixFailure(errno, "exchange " + staging_);
  return logged(fmt::format("{}, Can't move db file:{} -> {}", kOperation, staging_, working_),
                std::move(done));
}

Result<void> DatabaseCopies::removeStaged() const {
  auto removed = removeItem(staging_);
  if (!removed)
    logLine(LogLevel::error,
            fmt::format("Can't remove db restore file : {}, error:{}", staging_, removed.error().message));
  return removed;
}

}  // namespace vornex
