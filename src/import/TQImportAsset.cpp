#include <vornex/TQImportAsset.h>

namespace vornex {

ImportAssetPtr TQImportAsset::importAssetWithPath(OptionalString path) {
  auto item = std::make_shared<TQImportAsset>();
  item->path = std::move(path);
  return item;
}

AssetFolderPtr TQAssetFolder::assetFolderWithMasterpath(std::string masterPath, std::string thumbnailPath,
                                                        std::string previewPath, std::string catalogPath) {
  auto folder = std::make_shared<TQAssetFolder>();
  folder->masterPath = std::move(masterPath);
  folder->thumbnailPath = std::move(thumbnailPath);
  folder->previewPath = std::move(previewPath);
  folder->catalogPath = std::move(catalogPath);
  return folder;
}

}  // namespace vornex
