#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "foundation/Error.h"
#include "foundation/FileDescriptor.h"

namespace vornex::server {

enum class MediaKind { master, thumbnail, preview };

/// A file found below one of a package's media folders; not yet opened.
struct MediaEntry {
  /// The folder that holds it.
  FileDescriptor folder;
  std::string name;
  /// From the package folder on, as asset records name it: "/Media/Master/…".
  std::string recordPath;
  /// From the media folder on: "2025/03/07/…".
  std::string mediaPath;
  /// A symbolic link, or (masters only) an alias file.
  bool isLink = false;
};

struct OpenMedia {
  FileDescriptor file;
  std::uint64_t size = 0;
  std::int64_t modified = 0;
  /// Names this content of this file: with quotes, as HTTP has it.
  std::string etag;
};

/// Finds the file by the components of its path below the media folder. No component leads upwards or through
/// a symbolic link. Folders that do not exist as spelled are looked for without regard to case. Errors:
/// itemNotFound, or domain "posix".
[[nodiscard]] Result<MediaEntry> findMedia(const std::string& packageFolder, MediaKind kind,
                                           const std::vector<std::string>& components);

/// Finds what an asset record names, exactly as spelled. Further error: invalidRequest for a path that does
/// not lie below the kind's media folder.
[[nodiscard]] Result<MediaEntry> findRecorded(const std::string& packageFolder, MediaKind kind,
                                              const std::string& recordPath);

/// Opens a regular file for reading. Follows a link only if told to; `itemNotFound` for anything else.
[[nodiscard]] Result<OpenMedia> openMedia(const MediaEntry& entry, bool followLink);

/// Removes what an asset record names: a file, a link (never its target) or a folder with its content. What
/// does not exist counts as removed. Errors: invalidRequest for a path that does not lie below the kind's
/// media folder, or domain "posix".
[[nodiscard]] Result<void> removeMedia(const std::string& packageFolder, MediaKind kind,
                                       const std::string& recordPath);

}  // namespace vornex::server
