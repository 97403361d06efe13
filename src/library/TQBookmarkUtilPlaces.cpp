#include <vornex/Log.h>
#include <vornex/TQBookmarkUtil.h>

#include "core/Coercion.h"
#include "core/StorageLayout.h"
#include "foundation/Files.h"
#include "platform/AliasFile.h"
#include "platform/Volumes.h"

namespace vornex {

static OptionalString volumeName(const std::string& path) {
  auto volume = volumeDescription(path);
  return volume ? coerce::string(volume->find(volumeKey::name)) : std::nullopt;
}

OptionalString TQBookmarkUtil::groupIdentifier() {
  return std::nullopt;
}
std::string TQBookmarkUtil::rootFolder() {
  return layout::rootFolder();
}
std::string TQBookmarkUtil::preferenceFolder() {
  return layout::preferenceFolder();
}
std::string TQBookmarkUtil::bookmarkPlist() {
  return layout::bookmarkPlist();
}
std::string TQBookmarkUtil::preferencePlist() {
  return appendPathComponent(preferenceFolder(), "preference.plist");
}
std::string TQBookmarkUtil::sqliteFilePath() {
  return appendPathComponent(preferenceFolder(), "workflow/workflow.sqlite");
}

std::optional<Dictionary> TQBookmarkUtil::volumeInfoWithPath(const OptionalString& path) const {
  return path ? volumeDescription(*path) : std::nullopt;
}

OptionalString TQBookmarkUtil::volumePathFromFilePath(const OptionalString& path) {
  OptionalString name = path ? volumeName(*path) : std::nullopt;
  if (!name) return std::nullopt;
  return "/Volumes/" + *name;
}

OptionalString TQBookmarkUtil::realVolumePathFromFilePath(const OptionalString& path) {
  return path ? mountPath(*path) : std::nullopt;
}

std::string TQBookmarkUtil::systemVolumeName() {
  return volumeName("/").value_or("");
}

std::vector<std::string> TQBookmarkUtil::userFolders() {
  OptionalString home = layout::accountHomeFolder();
  if (!home) return {};
  return {*home};
}

bool TQBookmarkUtil::isAliasFileWithPath(const std::string& path) {
  return isAlias(path);
}

OptionalString TQBookmarkUtil::resolvingAliasFileWithPath(const OptionalString& path) {
  if (!path) {
    logLine(LogLevel::error, "resolvingAliasFileWithPath file path nil");
    return std::nullopt;
  }
  auto item = resolveAlias(*path);
  return item ? OptionalString(std::move(*item)) : std::nullopt;
}

}  // namespace vornex
