#include "core/DatabaseFolder.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <linux/fs.h>
#include <unistd.h>
#include <vornex/Log.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <vector>

#include "core/StorageLayout.h"
#include "foundation/FileLock.h"
#include "foundation/Files.h"
#include "foundation/Text.h"

namespace vornex {
namespace {

constexpr std::size_t kLongestName = 128;
constexpr const char* kRemovedPrefix = ".removed-";
constexpr const char* kFormerMark = "former";

bool isNameCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_' ||
         c == '.';
}

/// Names in the shared database folder that stand for another database's copies.
bool isNameOfCopy(std::string_view name) {
  return name.ends_with(kStagedSuffix) || name.find(kFormerInfix) != std::string_view::npos;
}

void removeFolder(const std::string& folder) {
  std::error_code error;
  std::filesystem::remove_all(folder, error);
  if (error) logLine(LogLevel::warning, fmt::format("Cannot remove {} yet: {}", folder, error.message()));
}

}  // namespace

bool isValidDatabaseName(std::string_view name) {
  return !name.empty() && name.size() <= kLongestName && name.front() != '.' &&
         std::all_of(name.begin(), name.end(), isNameCharacter) && !isNameOfCopy(name);
}

bool isDatabaseFolder(const std::string& folder) {
  std::error_code error;
  const auto size = std::filesystem::file_size(appendPathComponent(folder, kDatabaseFileName), error);
  return !error && size > 0;
}

Result<void> exchangeStagedDatabase(const std::string& dbName) {
  if (!isValidDatabaseName(dbName)) return posixFailure(EINVAL, "Cannot replace the database " + dbName);
  const std::string working = layout::databaseFolder(dbName);
  const std::string staged = layout::stagedDatabaseFolder(dbName);
  const bool isBack = itemExists(working) && !itemExists(staged);
  const int done = isBack ? ::rename(working.c_str(), staged.c_str())
                   : !itemExists(working)
                       ? ::rename(staged.c_str(), working.c_str())
                       : ::renameat2(AT_FDCWD, staged.c_str(), AT_FDCWD, working.c_str(), RENAME_EXCHANGE);
  if (done != 0) return posixFailure(errno, "exchange " + staged);
  return syncDirectory(layout::databaseRoot());
}

Result<void> removeDatabaseFolder(const std::string& dbName) {
  if (!isValidDatabaseName(dbName)) return posixFailure(EINVAL, "Cannot remove the database " + dbName);
  std::string folder = layout::databaseFolder(dbName);
  if (!itemExists(folder)) return {};
  std::string grave = appendPathComponent(layout::databaseRoot(), kRemovedPrefix + makeUUID());
  std::error_code error;
  std::filesystem::rename(folder, grave, error);
  if (error) return posixFailure(error.value(), "Cannot remove " + folder);
  if (auto synced = syncDirectory(layout::databaseRoot()); !synced) return synced;
  removeFolder(grave);
  return {};
}

Result<void> markFormerDatabase(const std::string& folder, bool isKept) {
  const std::string mark = appendPathComponent(folder, kFormerMark);
  if (isKept) return writeFileAtomically(mark, "");
  if (::unlink(mark.c_str()) != 0 && errno != ENOENT) return posixFailure(errno, "remove " + mark);
  return {};
}

Result<std::string> putStagedDatabaseAway(const std::string& dbName) {
  const std::string staged = layout::stagedDatabaseFolder(dbName);
  const std::string mark = appendPathComponent(staged, kFormerMark);
  if (!itemExists(mark)) {
    std::error_code error;
    std::filesystem::remove_all(staged, error);
    if (error) return posixFailure(error.value(), "remove " + staged);
    return "";
  }
  const std::string kept = layout::databaseFolder(dbName) + kFormerInfix + randomHex(4);
  if (::rename(staged.c_str(), kept.c_str()) != 0) return posixFailure(errno, "move " + staged);
  if (auto synced = syncDirectory(layout::databaseRoot()); !synced) return tl::unexpected(synced.error());
  ::unlink(appendPathComponent(kept, kFormerMark).c_str());
  logLine(LogLevel::warning,
          fmt::format("The database {} is kept as {}", layout::databaseFolder(dbName), kept));
  return kept;
}

void sweepDatabaseRoot() {
  std::vector<std::string> names;
  std::error_code error;
  for (std::filesystem::directory_iterator entry(layout::databaseRoot(), error), end; !error && entry != end;
       entry.increment(error))
    names.push_back(entry->path().filename());
  for (const std::string& name : names) {
    const std::string path = appendPathComponent(layout::databaseRoot(), name);
    if (name.starts_with(kRemovedPrefix)) removeFolder(path);
    if (!name.starts_with(kUnfinishedPrefix) && !name.ends_with(kStagedSuffix)) continue;
    const std::string dbName = name.starts_with(kUnfinishedPrefix)
                                   ? name.substr(std::strlen(kUnfinishedPrefix))
                                   : name.substr(0, name.size() - std::strlen(kStagedSuffix));
    // Somebody may be making it now.
    auto lock = FileLock::acquire(layout::databaseFolder(dbName), std::chrono::milliseconds(0));
    if (!lock || !lock->isExclusive()) continue;
    if (name.starts_with(kUnfinishedPrefix))
      removeFolder(path);
    else if (auto done = putStagedDatabaseAway(dbName); !done)
      logLine(LogLevel::warning, done.error().message);
  }
}

}  // namespace vornex
