#include <fmt/format.h>
#include <sys/stat.h>
#include <vornex/Log.h>
#include <vornex/TQVornexUtil.h>

#include <cerrno>
#include <filesystem>
#include <vector>

#include "core/SdkError.h"
#include "foundation/Files.h"
#include "foundation/Text.h"
#include "platform/MachineIdentity.h"

namespace vornex {
namespace {

namespace fs = std::filesystem;

/// A string value of a desktop entry.
std::string desktopEntryText(std::string_view text) {
  std::string escaped;
  for (char c : text) {
    switch (c) {
      case '\\':
        escaped += "\\\\";
        break;
      case '\n':
        escaped += "\\n";
        break;
      case '\r':
        escaped += "\\r";
        break;
      case '\t':
        escaped += "\\t";
        break;
      default:
        escaped += c;
    }
  }
  return escaped;
}

/// File managers read a folder's icon from its ".directory". One that is there holds what the user has
/// chosen.
void setFolderIcon(const std::string& folder, const std::string& icon) {
  const std::string file = appendPathComponent(folder, ".directory");
  if (itemExists(file)) return;
  std::string entry = "[Desktop Entry]\nType=Directory\nIcon=" + desktopEntryText(icon) + "\n";
  Result<void> written = writeFileAtomically(file, entry);
  if (!written) logLine(LogLevel::warning, "Can't set the folder icon: " + written.error().message);
}

void report(int errorNumber, const std::string& path, TQErrorPtr* error) {
  if (error) *error = makeSdkError(posixFailure(errorNumber, "read " + path).value());
}

}  // namespace

bool TQVornexUtil::createPackageFolder(const OptionalString& path, const OptionalString& withIcon) {
  if (!path) return false;
  Result<void> made = fileExists(*path) ? Result<void>() : createDirectories(*path);
  if (!made) {
    logLine(LogLevel::error, "createPackageFolder, Can't create folder.");
    logLine(LogLevel::error, made.error().message);
    return false;
  }
  // Only a folder can be a package; nothing has to be marked on it here.
  if (!isDirectory(*path)) {
    logLine(LogLevel::error, fmt::format("OSError {} in -[NSWorkspace setBundleBit:forFile:]", ENOTDIR));
    return false;
  }
  if (withIcon) setFolderIcon(*path, *withIcon);
  return true;
}

std::string TQVornexUtil::UUIDString() {
  return makeUUID();
}

OptionalString TQVornexUtil::systemUUID() {
  // Every request carries it, so the machine is asked once. Never destroyed: workers may ask while the
  // process ends.
  static const auto* identifier = new OptionalString(machineIdentifier());
  return *identifier;
}

std::uint64_t sizeForFolderAtPath(const std::string& path, TQErrorPtr* error) {
  std::uint64_t total = 0;
  std::vector<std::string> folders;
  if (isDirectory(path)) folders.push_back(path);
  while (!folders.empty()) {
    std::string folder = std::move(folders.back());
    folders.pop_back();
    std::error_code failure;
    fs::directory_iterator entry(folder, failure);
    for (; !failure && entry != fs::directory_iterator(); entry.increment(failure)) {
      std::string item = entry->path().string();
      struct stat info {};
      if (::lstat(item.c_str(), &info) != 0) {
        report(errno, item, error);
        continue;
      }
      total += static_cast<std::uint64_t>(info.st_size);
      if (S_ISDIR(info.st_mode)) folders.push_back(std::move(item));
    }
    if (failure) report(failure.value(), folder, error);
  }
  return total;
}

}  // namespace vornex
