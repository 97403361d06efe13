#pragma once

#include <vornex/Types.h>

namespace vornex {

/// One file queued for import.
///
/// Thread-safety: none; the batch owns it while it runs.
class TQImportAsset {
 public:
  static ImportAssetPtr importAssetWithPath(OptionalString path);

  /// Absolute path of the source file or folder.
  OptionalString path;
  /// Asset keys merged into the new asset's dictionary; may carry "importer" and "tags".
  Dictionary metaData;
  /// Size to record when the item is a folder of RED clips.
  std::int64_t fileSize = 0;
  bool isREDFile = false;
  /// A later part of a spanned RED clip: its file is placed but no record is made.
  bool isSequentialREDFile = false;
  /// An "rmd" side file that is copied as a file of its own.
  bool isSeparateRMDFile = false;
  Dictionary xmlDataDict;
  /// Compare the copy with the source, read back from the disk, and keep its digest with the asset, under the
  /// key "checksum". Without a copy there is nothing to compare.
  bool verifiesCopy = false;
};

/// The destination folders of one batch, as absolute paths.
class TQAssetFolder {
 public:
  static AssetFolderPtr assetFolderWithMasterpath(std::string masterPath, std::string thumbnailPath,
                                                  std::string previewPath, std::string catalogPath);

  std::string masterPath;
  std::string thumbnailPath;
  std::string previewPath;
  std::string catalogPath;
};

}  // namespace vornex
