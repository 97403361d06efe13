#pragma once

#include <vornex/TQImportAsset.h>
#include <vornex/TQProject.h>

#include <atomic>
#include <memory>
#include <semaphore>
#include <string>
#include <vector>

#include "foundation/FileDescriptor.h"
#include "import/FileImport.h"
#include "import/ImportJournal.h"

namespace vornex {

/// A list of files on its way into a library, one after another.
///
/// Thread-safety: start() once. The batch keeps itself alive until it has completed.
class ImportBatch : public std::enable_shared_from_this<ImportBatch> {
 public:
  ImportBatch(ProjectPtr project, LibraryPtr library, ImportType type, OptionalString targetFolder,
              bool shouldIndexing, TQProject::ImportProgress progress, Completion completion);

  /// Returns at once; everything follows on a worker thread.
  void start(std::vector<ImportAssetPtr> items);

 private:
  void claimFolder();
  void run(const std::vector<ImportAssetPtr>& items);
  void importFiles(const std::vector<ImportAssetPtr>& items);
  void importFile(const ImportAssetPtr& item, std::shared_ptr<FilePictures> pictures);
  std::shared_ptr<FilePictures> picturesAhead(const ImportAssetPtr& item) const;
  void recover();

  void fileChanged(const ImportAssetPtr& item, const AssetPtr& asset, double percent, std::int64_t bytes,
                   bool finished, const TQErrorPtr& error);
  void settle(const ImportAssetPtr& item, const AssetPtr& asset, bool ended, const TQErrorPtr& error);
  void report(const ImportAssetPtr& item, const AssetPtr& asset, double percent, std::int64_t bytes,
              const TQErrorPtr& error);
  void keep(const ImportAssetPtr& item, const AssetPtr& asset);
  void makePreview(const AssetPtr& asset);
  void takeBack(const AssetPtr& asset, bool ended);

  const ProjectPtr project_;
  const LibraryPtr library_;
  const ImportType type_;
  const OptionalString targetFolder_;
  const bool shouldIndexing_;
  const TQProject::ImportProgress progress_;
  const Completion completion_;

  const std::shared_ptr<REDFolders> redFolders_ = std::make_shared<REDFolders>();
  const std::shared_ptr<NameSearch> names_ = std::make_shared<NameSearch>();
  const std::shared_ptr<SilentFolders> silentFolders_ = std::make_shared<SilentFolders>();
  AssetFolderPtr folder_;
  /// Held with flock(2) while the batch runs, so that no other batch places files in the same folder.
  FileDescriptor folderClaim_;
  const std::shared_ptr<ImportJournal> journal_;
  /// The file in flight, and its pictures.
  std::shared_ptr<FileImport> file_;
  std::shared_ptr<FilePictures> pictures_;

  std::atomic<bool> stop_ = false;
  std::atomic<std::int64_t> finishedCount_ = 0;
  std::atomic<double> lastProgress_ = 0;
  std::counting_semaphore<> fileEnded_{0};
};

}  // namespace vornex
