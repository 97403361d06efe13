#include <vornex/Log.h>
#include <vornex/TQAsset.h>
#include <vornex/TQBookmarkUtil.h>
#include <vornex/TQConnection.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQUser.h>
#include <vornex/TQVornexUtil.h>

#include "core/Coercion.h"
#include "foundation/Files.h"
#include "foundation/Text.h"

namespace vornex {

namespace {

// What a URL's fragment and path may hold besides letters and digits.
constexpr std::string_view kFragmentCharacters = "-._~!$&'()*+,;=:@/?";
constexpr std::string_view kPathCharacters = "-._~!$&'()*+,=:@/";

std::string fileURL(const std::string& path) {
  return "file://" + percentEncoded(path, kPathCharacters);
}

// Records write an absent path as an empty one.
bool isAbsent(const OptionalString& path) {
  return !path || path->empty();
}

OptionalString packagePath(const LibraryPtr& library, const OptionalString& relativePath) {
  if (!library || !library->packageFolder || isAbsent(relativePath)) return std::nullopt;
  return appendPathComponent(*library->packageFolder, *relativePath);
}

bool isLocal(const TQLibrary& library) {
  return library.libraryType == kLibraryTypeLocal;
}

/// The URL of a package file at the library's server, which knows its media folders by the given word.
OptionalString servedURL(const TQLibrary& library, const OptionalString& relativePath, const char* word) {
  if (isAbsent(relativePath) || !library.connection || !library.connection->address || !library.dbName)
    return std::nullopt;
  std::string folder = lowercased(deletingLastPathComponent(*relativePath));
  std::size_t start = folder.find(word);
  if (start != std::string::npos) folder.erase(0, start);
  std::string url =
      fmt::format("http://{}:{}/vornex/libraries/{}/{}/{}", *library.connection->address,
                  library.connection->port, *library.dbName, folder, lastPathComponent(*relativePath));
  return percentEncoded(url, kFragmentCharacters);
}

/// The "url" of the first item of an answer.
OptionalString answeredURL(const Value& response) {
  Array items = coerce::array(response.find("items"));
  OptionalString address = items.empty() ? std::nullopt : coerce::string(items.front().find("url"));
  if (!address || address->empty()) return std::nullopt;
  return "http://" + percentEncoded(*address, kFragmentCharacters);
}

}  // namespace

OptionalString TQAsset::resolvedPath(const std::string& path) const {
  if (importType != 0) return path;
  OptionalString target = TQBookmarkUtil::resolvingAliasFileWithPath(path);
  if (!target || target->empty() || target->front() == '/') return target;
  // A relative link counts from the folder that holds it.
  return appendPathComponent(deletingLastPathComponent(path), *target);
}

OptionalString TQAsset::managedMasterPath() const {
  return packagePath(library(), masterPath);
}

OptionalString TQAsset::originMasterPath() const {
  OptionalString path = managedMasterPath();
  return path ? resolvedPath(*path) : std::nullopt;
}

OptionalString TQAsset::thumbnailURL() const {
  LibraryPtr owner = library();
  if (!owner) return std::nullopt;
  if (!isLocal(*owner)) return servedURL(*owner, thumbnailPath, "thumbnail");
  OptionalString path = packagePath(owner, thumbnailPath);
  return path ? OptionalString(fileURL(*path)) : std::nullopt;
}

OptionalString TQAsset::masterURL() const {
  LibraryPtr owner = library();
  if (!owner) return std::nullopt;
  if (isLocal(*owner)) {
    OptionalString path = originMasterPath();
    return path ? OptionalString(fileURL(*path)) : std::nullopt;
  }
  return importType == 0 ? downloadURL() : servedURL(*owner, masterPath, "master");
}

OptionalString TQAsset::askForURL(const char* operation, const char* pathKey, const OptionalString& path,
                                  TQErrorPtr& error) const {
  LibraryPtr owner = library();
  if (!owner || !owner->connection || !owner->connection->user) return std::nullopt;
  Dictionary item = {{"_id", id}, {pathKey, path.value_or("")}};
  const UserPtr& user = owner->connection->user;
  Value response = TQVornexUtil::syncRequestURL(owner->serverURL(operation), user->id, user->password, "POST",
                                                Value(Dictionary{{"items", Array{item}}}), &error);
  return error ? std::nullopt : answeredURL(response);
}

OptionalString TQAsset::downloadURL() const {
  TQErrorPtr error;
  OptionalString url = askForURL("/assets/download", "masterpath", masterPath, error);
  if (error) logLine(LogLevel::error, "downloadURL error:" + error->description());
  return url;
}

bool TQAsset::canHavePreview() const {
  return (type == kAssetTypeVideo || type == kAssetTypeImage) && !isAbsent(previewPath);
}

OptionalString TQAsset::previewURL() const {
  LibraryPtr owner = library();
  if (!canHavePreview() || !owner) return std::nullopt;
  if (!isLocal(*owner)) return downloadPreviewURL();
  OptionalString path = packagePath(owner, previewPath);
  return path && fileExists(*path) ? OptionalString(fileURL(*path)) : std::nullopt;
}

OptionalString TQAsset::downloadPreviewURL() const {
  if (!canHavePreview()) return std::nullopt;
  TQErrorPtr error;
  return askForURL("/assets/preview", "previewpath", previewPath, error);
}

}  // namespace vornex
