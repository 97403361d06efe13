#include <vornex/TQLibrary.h>
#include <vornex/TQLiveFolder.h>

namespace vornex {

using Search = LiveFolderPtr (TQLiveFolder::*)(const std::string&);

/// Among the roots first, then inside each.
static LiveFolderPtr find(const std::vector<LiveFolderPtr>& roots, OptionalString TQLiveFolder::*field,
                          Search within, const std::string& text) {
  for (const LiveFolderPtr& root : roots)
    if (root && (*root).*field == text) return root;
  for (const LiveFolderPtr& root : roots)
    if (LiveFolderPtr found = root ? ((*root).*within)(text) : nullptr) return found;
  return nullptr;
}

std::int64_t TQLibrary::indexOfLiveFolder(const LiveFolderPtr& liveFolder) const {
  for (std::size_t i = 0; liveFolder && i < liveFolders.size(); ++i)
    if (liveFolders[i] && liveFolders[i]->ID == liveFolder->ID) return static_cast<std::int64_t>(i);
  return -1;
}

LiveFolderPtr TQLibrary::liveFolderWithID(const std::string& ID) const {
  return find(liveFolders, &TQLiveFolder::ID, &TQLiveFolder::subFolderWithID, ID);
}

LiveFolderPtr TQLibrary::liveFolderWithFileID(const std::string& fileID) const {
  return find(liveFolders, &TQLiveFolder::fileID, &TQLiveFolder::subFolderWithFileID, fileID);
}

LiveFolderPtr TQLibrary::liveFolderWithPath(const std::string& path) const {
  return find(liveFolders, &TQLiveFolder::path, &TQLiveFolder::subFolderWithPath, path);
}

bool TQLibrary::isExistPathInLiveFoldersWithPath(const std::string& path) const {
  return std::any_of(liveFolders.begin(), liveFolders.end(),
                     [&](const LiveFolderPtr& root) { return root && root->path == path; });
}

}  // namespace vornex
