#include "core/StorageLayout.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "foundation/Files.h"

namespace vornex::layout {
namespace {

constexpr const char* kApplicationGroup = "com.tarnel.vornex";

/// The variable's value; empty when it is unset.
std::string environment(const char* name) {
  const char* value = std::getenv(name);
  return value ? value : "";
}

/// Folders named by the XDG variables count only when they are absolute.
std::string absoluteEnvironment(const char* name) {
  std::string folder = environment(name);
  return folder.starts_with('/') ? folder : "";
}

std::string homeFolder() {
  std::string home = absoluteEnvironment("HOME");
  return home.empty() ? accountHomeFolder().value_or("/") : home;
}

/// Absolute, without "." and ".." and without a slash at the end.
std::string normalized(const std::string& folder) {
  std::error_code ignored;
  std::filesystem::path path = std::filesystem::absolute(folder, ignored).lexically_normal();
  return path.has_filename() ? path.string() : path.parent_path().string();
}

std::string inRoot(std::string_view name) {
  return appendPathComponent(rootFolder(), name);
}
std::string inPreferences(std::string_view name) {
  return appendPathComponent(preferenceFolder(), name);
}
std::string inService(std::string_view name) {
  return appendPathComponent(serviceFolder(), name);
}

}  // namespace

OptionalString accountHomeFolder() {
  std::vector<char> buffer(16384);
  passwd entry{};
  passwd* found = nullptr;
  ::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found);
  return found && found->pw_dir ? OptionalString(found->pw_dir) : std::nullopt;
}

std::string rootFolder() {
  std::string chosen = environment("VORNEX_ROOT");
  if (!chosen.empty()) return normalized(chosen);
  std::string data = absoluteEnvironment("XDG_DATA_HOME");
  if (data.empty()) data = appendPathComponent(homeFolder(), ".local/share");
  return appendPathComponent(appendPathComponent(normalized(data), kApplicationGroup), "Vornex");
}

std::string preferenceFolder() {
  return inRoot("Preference");
}
std::string localLibraryPlist() {
  return inPreferences("localLibrary.plist");
}
std::string networkLibraryPlist() {
  return inPreferences("networkLibrary.plist");
}
std::string networkUserPlist() {
  return inPreferences("networkUsers.plist");
}
std::string userPlist() {
  return inPreferences("users.plist");
}
std::string bookmarkPlist() {
  return inPreferences("bookmark.plist");
}
std::string databaseRoot() {
  return inRoot("Database");
}
std::string databaseFolder(std::string_view dbName) {
  return appendPathComponent(databaseRoot(), dbName);
}

std::string serviceFolder() {
  return inRoot("Service");
}
std::string serviceLockFile() {
  return inService("vornexd.lock");
}
std::string localAccountFile() {
  return inService("account.plist");
}
std::string serviceLogFile() {
  return inService("vornexd.log");
}
std::string controlSocket() {
  return inService("vornexd.sock");
}

std::string libraryPlist(std::string_view packageFolder) {
  return appendPathComponent(packageFolder, "library.plist");
}
std::string projectPlist(std::string_view packageFolder) {
  return appendPathComponent(packageFolder, "Project/project.plist");
}
std::string liveFolderPlist(std::string_view packageFolder) {
  return appendPathComponent(packageFolder, "LiveFolder/livefolder.plist");
}
std::string fcpxLibraryPlist(std::string_view packageFolder) {
  return appendPathComponent(packageFolder, "FCPXLibrary/fcpxlibrary.plist");
}
std::string mediaFolder(std::string_view packageFolder) {
  return appendPathComponent(packageFolder, "Media");
}
std::string masterFolder(std::string_view packageFolder) {
  return appendPathComponent(packageFolder, "Media/Master");
}
std::string thumbnailFolder(std::string_view packageFolder) {
  return appendPathComponent(packageFolder, "Media/Thumbnail");
}
std::string previewFolder(std::string_view packageFolder) {
  return appendPathComponent(packageFolder, "Media/Preview");
}
std::string catalogFolder(std::string_view packageFolder) {
  return appendPathComponent(packageFolder, "Media/Catalog");
}
std::string extraFolder(std::string_view packageFolder) {
  return appendPathComponent(packageFolder, "Extra");
}
std::string packagedDatabaseFolder(std::string_view packageFolder) {
  return appendPathComponent(packageFolder, "Database");
}

}  // namespace vornex::layout
