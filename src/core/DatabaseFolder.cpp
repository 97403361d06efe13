#include "core/DatabaseFolder.h"

#include <fmt/format.h>
#include <vornex/Log.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

#include "core/StorageLayout.h"
#include "foundation/Files.h"
#include "foundation/Text.h"

namespace vornex {
namespace {

constexpr std::size_t kLongestName = 128;
constexpr const char* kRemovedPrefix = ".removed-";

bool isNameCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_' ||
         c == '.';
}

}  // namespace

bool isValidDatabaseName(std::string_view name) {
  return !name.empty() && name.size() <= kLongestName && name.front() != '.' &&
         std::all_of(name.begin(), name.end(), isNameCharacter);
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
  std::filesystem::remove_all(grave, error);
  if (error) logLine(LogLevel::warning, fmt::format("Cannot remove {} yet: {}", grave, error.message()));
  return {};
}

void finishDatabaseRemovals() {
  std::error_code error;
  std::filesystem::directory_iterator folders(layout::databaseRoot(), error);
  if (error) return;
  for (const auto& folder : folders) {
    if (folder.path().filename().string().starts_with(kRemovedPrefix))
      std::filesystem::remove_all(folder, error);
  }
}

}  // namespace vornex
