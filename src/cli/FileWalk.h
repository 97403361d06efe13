#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vornex::cli {

struct FoundFile {
  /// Absolute, byte for byte.
  std::string path;
  std::uint64_t size = 0;
  /// Modification time in milliseconds since 1970.
  std::int64_t modified = 0;
  /// A folder that holds one RED clip with its parts and side files.
  bool isClipFolder = false;
};

/// A place that the walk could not take, or passed over on purpose, and why.
struct WalkNote {
  std::string path;
  std::string reason;
};

struct WalkOptions {
  bool hidden = false;
  /// Takes the folder of a RED clip as one item instead of the files in it.
  bool clipFoldersWhole = false;
  /// Folders that are never entered, links to them included: the libraries' own package folders.
  std::vector<std::string> excludedFolders = {};
};

struct WalkResult {
  /// Depth first, the entries of a folder sorted by the bytes of their names.
  std::vector<FoundFile> files;
  /// Missing paths, unreadable folders, broken links.
  std::vector<WalkNote> failures;
  /// Links back into a folder already walked, files already taken, excluded folders, and what is neither file
  /// nor folder.
  std::vector<WalkNote> skipped;
  /// Entries whose name begins with a dot, a folder counting once.
  std::size_t hiddenCount = 0;

  std::uint64_t totalBytes() const;
};

/// Every file at or below the paths. Symbolic links are followed; a folder is walked once however often links
/// lead to it. A path given by name is taken even when it is hidden.
WalkResult findFiles(const std::vector<std::string>& paths, const WalkOptions& options);

}  // namespace vornex::cli
