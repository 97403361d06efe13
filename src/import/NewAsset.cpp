#include "import/NewAsset.h"

#include <vornex/TQAsset.h>
#include <vornex/TQProject.h>
#include <vornex/TQVornexUtil.h>

#include "foundation/Files.h"
#include "foundation/Text.h"
#include "import/FileNames.h"

namespace vornex {

AssetPtr assetNamedAfter(const std::string& path, const ProjectPtr& project) {
  AssetPtr asset = TQAsset::assetWithName(recordText(deletingPathExtension(lastPathComponent(path))));
  std::string extension = recordText(pathExtension(path));
  asset->type = TQVornexUtil::assetTypeFromExtension(extension);
  asset->fileExtension = lowercased(extension);
  asset->importDate = std::chrono::floor<std::chrono::microseconds>(std::chrono::system_clock::now());
  asset->updateDate = asset->importDate;
  asset->setImportStatus(1);
  if (project->level == 0) {
    asset->project = project;
  } else {
    asset->group = project;
    asset->project = project->rootProject.lock();
  }
  return asset;
}

void takeFacts(TQAsset& asset, const FileFacts& facts, std::uint64_t size) {
  asset.createDate = facts.created;
  asset.modifyDate = facts.modified;
  asset.fileSize = size;
}

std::uint64_t recordedSize(const std::string& path, const FileFacts& facts) {
  if (!facts.isDirectory) return facts.size;
  TQErrorPtr unreadable;
  std::uint64_t size = sizeForFolderAtPath(path, &unreadable);
  return unreadable ? facts.size : size;
}

}  // namespace vornex
