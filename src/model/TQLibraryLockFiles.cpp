#include <vornex/Log.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQVornexUtil.h>

#include <algorithm>
#include <filesystem>

#include "foundation/Files.h"
#include "model/LockFiles.h"

namespace vornex {

namespace fs = std::filesystem;

static constexpr std::string_view kLockMark = ".sysUUID_";

std::vector<std::string> lockFileNames(const std::string& packageFolder, std::error_code& error) {
  std::vector<std::string> names;
  for (fs::directory_iterator entry(packageFolder, error), end; !error && entry != end;
       entry.increment(error)) {
    std::string name = entry->path().filename();
    if (name.find(kLockMark) != std::string::npos) names.push_back(std::move(name));
  }
  std::sort(names.begin(), names.end());
  return names;
}

static std::string ownLockPath(const std::string& packageFolder) {
  return appendPathComponent(
      packageFolder, std::string(kLockMark) + TQVornexUtil::systemUUID().value_or("(null)") + ".lock");
}

static bool removeFile(const std::string& path) {
  std::error_code error;
  fs::remove(path, error);
  if (error)
    logLine(LogLevel::error, "Can't remove library lock file : " + path + ", error:" + error.message());
  return !error;
}

bool TQLibrary::createLibaryLockFileWithError(TQErrorPtr* error) const {
  if (libraryType == kLibraryTypeNetwork) {
    logLine(LogLevel::info, "library is shared library: " + name.value_or("(null)"));
    return false;
  }
  std::string folder = packageFolder.value_or("");
  std::error_code ignored;
  for (const std::string& file : lockFileNames(folder, ignored)) {
    if (pathExtension(file) != "lock") continue;
    std::string title = deletingPathExtension(file);
    std::size_t mark = title.find(kLockMark);
    if (mark == std::string::npos) continue;
    if (title.substr(mark + kLockMark.size()) == TQVornexUtil::systemUUID()) return true;
    logLine(LogLevel::error, "Can't create lock file or library already using : " + name.value_or("(null)"));
    if (error) *error = TQVornexUtil::errorWithCode(10020, LocalizedString("library.error.locked.failed"));
    return false;
  }
  logLine(LogLevel::info, "Library Lock File : " + ownLockPath(folder));
  return true;
}

bool TQLibrary::removeLibraryLockFile() const {
  std::string path = ownLockPath(packageFolder.value_or(""));
  return !itemExists(path) || removeFile(path);
}

bool TQLibrary::removeLibraryLockFileAll() const {
  std::string folder = packageFolder.value_or("");
  std::error_code error;
  std::vector<std::string> names = lockFileNames(folder, error);
  if (error) return false;
  return names.empty() || removeFile(appendPathComponent(folder, names.front()));
}

}  // namespace vornex
