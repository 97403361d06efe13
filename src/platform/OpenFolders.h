#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "foundation/Error.h"
#include "foundation/FileDescriptor.h"

namespace vornex {

// Items reached through open folders, so that nothing that is linked or moved meanwhile is followed. Errors
// have the domain "posix".

/// The components of a path; separators count once.
std::vector<std::string> pathComponents(std::string_view path);

/// Whether it names one item of a folder, and leads neither up nor further down.
bool isPlainName(const std::string& name);

/// Opens a folder in another one; no descriptor, with errno, for anything else, a link included.
FileDescriptor openFolderIn(int folder, const std::string& name);

/// The names in an open folder, "." and ".." left out; `path` is for messages.
[[nodiscard]] Result<std::vector<std::string>> namesInFolder(int folder, const std::string& path);

/// For functions that take a path: one that leads through the open folder and holds as long as it is open.
std::string pathThrough(const FileDescriptor& folder, const std::string& name);

/// What may be under a name of an open folder.
struct FolderEntry {
  FileDescriptor folder;
  std::string name;

  std::string path() const { return pathThrough(folder, name); }
};

/// Walks from the root to the folder that holds the last component. The root's own path may lead over links;
/// a link below it gives ENOTDIR, a component that is no plain name EINVAL.
[[nodiscard]] Result<FolderEntry> findEntry(const std::string& root,
                                            const std::vector<std::string>& components);

/// Removes an item and all below it, read-only folders included; links are removed, not followed. What is not
/// there counts as removed; the error is that of the first thing that stays.
Result<void> removeTree(int folder, const std::string& name);
Result<void> removeTree(const std::string& path);

}  // namespace vornex
