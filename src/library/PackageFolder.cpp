#include "library/PackageFolder.h"

#include <fmt/format.h>
#include <vornex/Log.h>
#include <vornex/TQVornexUtil.h>

#include <filesystem>
#include <vector>

#include "core/Coercion.h"
#include "core/SdkError.h"
#include "core/StorageLayout.h"
#include "foundation/FileLock.h"
#include "foundation/Files.h"
#include "foundation/PropertyList.h"

namespace vornex {
namespace {

namespace fs = std::filesystem;

std::vector<fs::path> entriesOf(const fs::path& folder, std::error_code& error) {
  std::vector<fs::path> entries;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error))
    entries.push_back(entry->path());
  return entries;
}

std::error_code removeAll(const std::string& folder) {
  std::error_code error;
  const fs::path place = fs::canonical(folder, error);
  if (error) return error;
  const fs::path record = *TQVornexUtil::libraryPlistWithPackageFolder(place);
  for (const fs::path& entry : entriesOf(place, error)) {
    if (entry != record) fs::remove_all(entry, error);
    if (error) return error;
  }
  if (!error) fs::remove(record, error);
  if (error) return error;
  fs::remove(place, error);
  const bool isMounted = error == std::errc::device_or_resource_busy;
  if (error && !isMounted) return error;
  const bool isLink = fs::symlink_status(folder, error).type() == fs::file_type::symlink;
  error.clear();
  if (isLink) fs::remove(folder, error);
  return error;
}

}  // namespace

PackageHolder holderOfPackage(const std::string& folder, const OptionalString& dbName) {
  const std::string place = *TQVornexUtil::libraryPlistWithPackageFolder(folder);
  auto record = readDictionaryFile(place);
  if (record)
    return coerce::string(record->find("dbname")) == dbName ? PackageHolder::library : PackageHolder::other;
  if (!itemExists(folder)) return PackageHolder::nobody;
  if (!isDirectory(folder)) return PackageHolder::other;
  std::error_code error;
  std::vector<fs::path> entries = entriesOf(folder, error);
  // Somebody may have waited for a backup while the rest was removed.
  std::erase(entries, FileLock::placeOf(layout::packagedDatabaseFolder(folder)));
  return entries.empty() && !error ? PackageHolder::nobody : PackageHolder::other;
}

TQErrorPtr removePackageFolder(const std::string& folder) {
  if (std::error_code error = removeAll(folder)) {
    logLine(LogLevel::error, fmt::format("deleteLibrary, Can't removeFile : {}", folder));
    return makeSdkError(posixFailure(error.value(), "removing " + folder).value());
  }
  // After a power loss, too, nothing of it is to come back; where it cannot be told, it is gone all the same.
  (void)syncDirectory(deletingLastPathComponent(folder));
  return nullptr;
}

std::string creationOf(const std::string& folder) {
  return appendPathComponent(deletingLastPathComponent(folder), lastPathComponent(folder) + ".creation");
}

void forgetCreation(const std::string& folder, const std::string& dbName) {
  const std::string creation = creationOf(folder);
  if (!itemExists(FileLock::placeOf(creation))) return;
  auto locked = FileLock::acquire(creation, std::chrono::milliseconds(0));
  if (locked && locked->note() == dbName) locked->removeFile();
}

}  // namespace vornex
