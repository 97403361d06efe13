#include "server/http/MediaFiles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>

#include "core/StorageLayout.h"
#include "foundation/Files.h"
#include "foundation/Text.h"
#include "platform/AliasFile.h"
#include "platform/OpenFolders.h"
#include "server/ServerError.h"

namespace vornex::server {
namespace {

std::string mediaFolderOf(const std::string& packageFolder, MediaKind kind) {
  switch (kind) {
    case MediaKind::master:
      return layout::masterFolder(packageFolder);
    case MediaKind::thumbnail:
      return layout::thumbnailFolder(packageFolder);
    case MediaKind::preview:
      return layout::previewFolder(packageFolder);
  }
  return "";
}

tl::unexpected<Error> notFound() {
  return serverFailure(StatusCode::itemNotFound, "There is no such file.");
}

/// An entry of the folder whose name differs at most in case.
std::optional<std::string> nameIgnoringCase(const FileDescriptor& folder, const std::string& name) {
  auto names = namesInFolder(folder.get(), name);
  if (!names) return {};
  std::string wanted = foldedText(name);
  for (const std::string& entry : *names)
    if (isPlainName(entry) && foldedText(entry) == wanted) return entry;
  return {};
}

enum class Spelling { exact, anyCase };

/// Walks down to the folder that holds the last component.
Result<MediaEntry> walk(const std::string& packageFolder, MediaKind kind,
                        const std::vector<std::string>& components, Spelling spelling) {
  if (components.empty() || !std::all_of(components.begin(), components.end(), isPlainName))
    return notFound();
  std::string root = mediaFolderOf(packageFolder, kind);
  FileDescriptor folder(::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder) {
    if (errno == ENOENT || errno == ENOTDIR) return notFound();
    return posixFailure(errno, "Cannot open " + root);
  }
  std::string mediaPath;
  for (std::size_t i = 0; i + 1 < components.size(); ++i) {
    std::string name = components[i];
    FileDescriptor next = openFolderIn(folder.get(), name);
    if (!next && errno == ENOENT && spelling == Spelling::anyCase) {
      if (auto other = nameIgnoringCase(folder, name)) {
        name = *other;
        next = openFolderIn(folder.get(), name);
      }
    }
    if (!next) return notFound();
    mediaPath = appendPathComponent(mediaPath, name);
    folder = std::move(next);
  }
  struct stat info {};
  if (::fstatat(folder.get(), components.back().c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) return notFound();
  bool isLink =
      S_ISLNK(info.st_mode) || (kind == MediaKind::master && isAlias(pathThrough(folder, components.back())));
  mediaPath = appendPathComponent(mediaPath, components.back());
  std::string recordPath = appendPathComponent(root.substr(packageFolder.size()), mediaPath);
  return MediaEntry{std::move(folder), components.back(), std::move(recordPath), std::move(mediaPath),
                    isLink};
}

}  // namespace

Result<MediaEntry> findMedia(const std::string& packageFolder, MediaKind kind,
                             const std::vector<std::string>& components) {
  return walk(packageFolder, kind, components, Spelling::anyCase);
}

Result<OpenMedia> openMedia(const MediaEntry& entry, bool followLink) {
  // Without O_NONBLOCK, opening a named pipe would wait for its writer.
  int flags = O_RDONLY | O_CLOEXEC | O_NONBLOCK | (followLink ? 0 : O_NOFOLLOW);
  Result<std::string> target = entry.name;
  if (followLink) target = resolveAlias(pathThrough(entry.folder, entry.name));
  if (!target) return notFound();
  FileDescriptor file(::openat(entry.folder.get(), target->c_str(), flags));
  if (!file) {
    if (errno == ENOENT || errno == ELOOP || errno == ENXIO) return notFound();
    return posixFailure(errno, "Cannot open " + entry.recordPath);
  }
  struct stat info {};
  if (::fstat(file.get(), &info) != 0) return posixFailure(errno, "Cannot examine " + entry.recordPath);
  if (!S_ISREG(info.st_mode)) return notFound();
  std::string etag = fmt::format("\"{:x}-{:x}-{:x}.{:x}\"", info.st_ino, info.st_size, info.st_mtim.tv_sec,
                                 info.st_mtim.tv_nsec);
  return OpenMedia{std::move(file), static_cast<std::uint64_t>(info.st_size), info.st_mtim.tv_sec,
                   std::move(etag)};
}

Result<MediaEntry> findRecorded(const std::string& packageFolder, MediaKind kind,
                                const std::string& recordPath) {
  std::vector<std::string> components = pathComponents(recordPath);
  std::vector<std::string> prefix = pathComponents(mediaFolderOf("", kind));
  if (components.size() <= prefix.size() || !std::equal(prefix.begin(), prefix.end(), components.begin()) ||
      !std::all_of(components.begin(), components.end(), isPlainName)) {
    return serverFailure(StatusCode::invalidRequest, "The path leads out of the library's media folder.");
  }
  components.erase(components.begin(), components.begin() + static_cast<std::ptrdiff_t>(prefix.size()));
  return walk(packageFolder, kind, components, Spelling::exact);
}

Result<void> removeMedia(const std::string& packageFolder, MediaKind kind, const std::string& recordPath) {
  auto entry = findRecorded(packageFolder, kind, recordPath);
  if (!entry) {
    if (statusCodeOf(entry.error()) == StatusCode::itemNotFound) return {};
    return tl::unexpected(entry.error());
  }
  if (::unlinkat(entry->folder.get(), entry->name.c_str(), 0) == 0 || errno == ENOENT) return {};
  if (errno != EISDIR) return posixFailure(errno, "Cannot remove " + recordPath);
  // Only a master may be a folder, and only below the folders that imports make: year, month, day and time.
  constexpr std::size_t kImportFolders = 4;
  if (kind != MediaKind::master || pathComponents(entry->mediaPath).size() <= kImportFolders)
    return serverFailure(StatusCode::invalidRequest, recordPath + " is a folder of the library itself.");
  return removeTree(entry->folder.get(), entry->name);
}

}  // namespace vornex::server
