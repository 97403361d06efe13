#include <fmt/chrono.h>
#include <vornex/TQVornexUtil.h>

#include <ctime>

#include "core/StorageLayout.h"
#include "foundation/Files.h"

namespace vornex {
namespace {

std::string inPreferences(std::string_view name) {
  return appendPathComponent(layout::preferenceFolder(), name);
}

OptionalString inPackage(const OptionalString& packageFolder, std::string_view name) {
  if (!packageFolder) return std::nullopt;
  return appendPathComponent(*packageFolder, name);
}

OptionalString inPackage(const OptionalString& packageFolder, std::string (*path)(std::string_view)) {
  if (!packageFolder) return std::nullopt;
  return path(*packageFolder);
}

/// The time of day or date in the system's time zone, by the Gregorian calendar whatever the locale.
std::tm localNow() {
  return fmt::localtime(std::time(nullptr));
}

}  // namespace

std::string TQVornexUtil::rootFolder() {
  return layout::rootFolder();
}
std::string TQVornexUtil::groupContainerFolder() {
  return layout::rootFolder();
}
std::string TQVornexUtil::preferenceFolder() {
  return layout::preferenceFolder();
}
std::string TQVornexUtil::localLibraryPlist() {
  return layout::localLibraryPlist();
}
std::string TQVornexUtil::networkLibraryPlist() {
  return layout::networkLibraryPlist();
}
std::string TQVornexUtil::networkUserPlist() {
  return layout::networkUserPlist();
}
std::string TQVornexUtil::localLibraryPlistFromBrindle() {
  return layout::localLibraryPlist();
}
std::string TQVornexUtil::networkLibraryPlistFromBrindle() {
  return layout::networkLibraryPlist();
}
std::string TQVornexUtil::networkUserPlistFromBrindle() {
  return layout::networkUserPlist();
}
std::string TQVornexUtil::bookmarkPlist() {
  return layout::bookmarkPlist();
}
std::string TQVornexUtil::workflowPlist() {
  return inPreferences("Workflow/workflow.plist");
}
std::string TQVornexUtil::workflowPreferencePlist() {
  return inPreferences("Workflow/workflowPreference.plist");
}
std::string TQVornexUtil::notificationPlist() {
  return inPreferences("notification.plist");
}
std::string TQVornexUtil::userPlist() {
  return layout::userPlist();
}
std::string TQVornexUtil::frameioFolder() {
  return inPreferences("frameio");
}
std::string TQVornexUtil::frameioJobDBPath() {
  return inPreferences("frameio/frameio");
}
std::string TQVornexUtil::dbFolder() {
  return inPreferences("DB");
}
std::string TQVornexUtil::mongoDBFolder() {
  return layout::databaseRoot();
}

OptionalString TQVornexUtil::libraryPlistWithPackageFolder(const OptionalString& packageFolder) {
  return inPackage(packageFolder, layout::libraryPlist);
}
OptionalString TQVornexUtil::projectFolderWithPackageFolder(const OptionalString& packageFolder) {
  return inPackage(packageFolder, "Project");
}
OptionalString TQVornexUtil::projectPlistWithPackageFolder(const OptionalString& packageFolder) {
  return inPackage(packageFolder, layout::projectPlist);
}
OptionalString TQVornexUtil::liveFolderWithPackageFolder(const OptionalString& packageFolder) {
  return inPackage(packageFolder, "LiveFolder");
}
OptionalString TQVornexUtil::liveFolderPlistWithPackageFolder(const OptionalString& packageFolder) {
  return inPackage(packageFolder, layout::liveFolderPlist);
}
OptionalString TQVornexUtil::fcpxLibraryFolderWithPackageFolder(const OptionalString& packageFolder) {
  return inPackage(packageFolder, "FCPXLibrary");
}
OptionalString TQVornexUtil::fcpxLibraryPlistWithPackageFolder(const OptionalString& packageFolder) {
  return inPackage(packageFolder, layout::fcpxLibraryPlist);
}
OptionalString TQVornexUtil::mediaFolderWithPackageFolder(const OptionalString& packageFolder) {
  return inPackage(packageFolder, layout::mediaFolder);
}
OptionalString TQVornexUtil::assetMasterFolderWithPackageFolder(const OptionalString& packageFolder) {
  return inPackage(packageFolder, layout::masterFolder);
}
OptionalString TQVornexUtil::assetThumbnailFolderWithPackageFolder(const OptionalString& packageFolder) {
  return inPackage(packageFolder, layout::thumbnailFolder);
}
OptionalString TQVornexUtil::assetPreviewFolderWithPackageFolder(const OptionalString& packageFolder) {
  return inPackage(packageFolder, layout::previewFolder);
}
OptionalString TQVornexUtil::assetCatalogFolderWithPackageFolder(const OptionalString& packageFolder) {
  return inPackage(packageFolder, layout::catalogFolder);
}
OptionalString TQVornexUtil::workflowFolderWithPackageFolder(const OptionalString& packageFolder) {
  return inPackage(packageFolder, "Workflow");
}
std::string TQVornexUtil::workflowPlistWithPackageFolder(const std::string& packageFolder) {
  return appendPathComponent(packageFolder, "Workflow/workflows.plist");
}
OptionalString TQVornexUtil::extraFolderWithPackageFolder(const OptionalString& packageFolder) {
  return inPackage(packageFolder, layout::extraFolder);
}
OptionalString TQVornexUtil::dbFolderWithPackageFolder(const OptionalString& packageFolder) {
  return inPackage(packageFolder, layout::packagedDatabaseFolder);
}

std::string TQVornexUtil::relativeMasterPath() {
  return "/Media/Master/";
}
std::string TQVornexUtil::relativeThumbnailPath() {
  return "/Media/Thumbnail/";
}
// Without a leading slash: callers join this one differently.
std::string TQVornexUtil::relativePreviewPath() {
  return "Media/Preview/";
}

OptionalString TQVornexUtil::assetFolderWithGroupName(const OptionalString& group) {
  if (!group) return std::nullopt;
  return fmt::format("/{:%Y/%m/%d}/{}", localNow(), *group);
}
std::string TQVornexUtil::assetGroupFolder() {
  return fmt::format("{:%H%M%S}", localNow());
}
std::string TQVornexUtil::assetLiveFolder() {
  return "LF" + assetGroupFolder();
}

}  // namespace vornex
