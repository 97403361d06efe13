#include "import/ImportBatch.h"

#include <fcntl.h>
#include <sys/file.h>
#include <vornex/Log.h>
#include <vornex/Queue.h>
#include <vornex/TQAsset.h>
#include <vornex/TQLibrary.h>

#include <cerrno>
#include <thread>

#include "core/Coercion.h"
#include "core/SdkError.h"
#include "core/TypeTables.h"
#include "foundation/Files.h"
#include "foundation/Patience.h"
#include "foundation/Text.h"
#include "import/PackagePath.h"
#include "import/Thumbnail.h"

namespace vornex {

ImportBatch::ImportBatch(ProjectPtr project, LibraryPtr library, ImportType type, OptionalString targetFolder,
                         bool shouldIndexing, TQProject::ImportProgress progress, Completion completion)
    : project_(std::move(project)),
      library_(std::move(library)),
      type_(type),
      targetFolder_(std::move(targetFolder)),
      shouldIndexing_(shouldIndexing),
      progress_(std::move(progress)),
      completion_(std::move(completion)),
      journal_(std::make_shared<ImportJournal>(importJournalFolder(*library_->packageFolder))) {}

void ImportBatch::start(std::vector<ImportAssetPtr> items) {
  {
    std::lock_guard lock(project_->redFoldersMutex_);
    project_->redFolders_ = redFolders_;
  }
  GlobalQueue::shared().async([self = shared_from_this(), items = std::move(items)] { self->run(items); });
}

void ImportBatch::claimFolder() {
  // The folder is named by the second: a batch that starts in the same second waits for the next one.
  for (;;) {
    folder_ = library_->createAssetFolder();
    if (!folder_) return;
    folderClaim_ = FileDescriptor(::open(folder_->masterPath.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folderClaim_ || ::flock(folderClaim_.get(), LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK) return;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
}

void ImportBatch::run(const std::vector<ImportAssetPtr>& items) {
  TQErrorPtr failure;
  try {
    importFiles(items);
  } catch (const std::exception& exception) {
    logLine(LogLevel::error, std::string("createAssets exception : ") + exception.what());
    failure = localizedError(10001, "request.error.param.invalid");
  }
  {
    std::lock_guard lock(project_->redFoldersMutex_);
    if (project_->redFolders_ == redFolders_) project_->redFolders_ = nullptr;
  }
  bool isUnsettled = journal_->hasPending();
  journal_->close();
  folderClaim_.close();
  if (isUnsettled) recover();
  completion_(!failure, failure);
}

void ImportBatch::importFiles(const std::vector<ImportAssetPtr>& items) {
  claimFolder();
  recover();
  std::shared_ptr<FilePictures> ahead;
  for (std::size_t i = 0; i < items.size(); ++i) {
    if (!items[i] || !items[i]->path || stop_) break;
    std::shared_ptr<FilePictures> pictures = ahead ? std::move(ahead) : picturesAhead(items[i]);
    // While this file is copied and recorded, the next one's pictures are on their way.
    if (i + 1 < items.size()) ahead = picturesAhead(items[i + 1]);
    importFile(items[i], std::move(pictures));
    ++finishedCount_;
  }
}

std::shared_ptr<FilePictures> ImportBatch::picturesAhead(const ImportAssetPtr& item) const {
  // Pictures of files on a lost disk would each take a thread before anybody knows.
  if (!item || !item->path || hangingWork() > 0) return nullptr;
  std::int64_t type = TypeTables::shared().assetType(pathExtension(*item->path));
  try {
    return FilePictures::start(*item->path, type == kAssetTypeImage);
  } catch (const std::exception& exception) {
    // The file makes them itself, in its turn.
    logLine(LogLevel::warning, "no pictures ahead of " + *item->path + ": " + exception.what());
    return nullptr;
  }
}

void ImportBatch::recover() {
  TQErrorPtr error;
  try {
    if (!library_->recoverInterruptedImports(&error))
      logLine(LogLevel::warning,
              "recoverInterruptedImports: " + (error ? error->description() : "not settled"));
  } catch (const std::exception& exception) {
    // What is left waits for the next batch; this one must come to its end.
    logLine(LogLevel::error, std::string("recoverInterruptedImports exception : ") + exception.what());
  }
}

void ImportBatch::importFile(const ImportAssetPtr& item, std::shared_ptr<FilePictures> pictures) {
  pictures_ = std::move(pictures);
  bool isSideFile = lowercased(pathExtension(*item->path)) == "rmd" && !item->isSeparateRMDFile;
  FileImport::Request request{project_,        library_,       folder_,  item->path, targetFolder_,
                              shouldIndexing_, !isSideFile,    type_,    item,       redFolders_,
                              names_,          silentFolders_, pictures_};
  auto changed = [self = shared_from_this(), item](const AssetPtr& asset, double percent, std::int64_t bytes,
                                                   bool finished, const TQErrorPtr& error) {
    self->fileChanged(item, asset, percent, bytes, finished, error);
  };
  file_ = std::make_shared<FileImport>(std::move(request), journal_, std::move(changed));
  file_->start();
  fileEnded_.acquire();
  file_.reset();
  pictures_.reset();
}

void ImportBatch::fileChanged(const ImportAssetPtr& item, const AssetPtr& asset, double percent,
                              std::int64_t bytes, bool finished, const TQErrorPtr& error) {
  bool ended = finished || error;
  try {
    report(item, asset, percent, bytes, error);
    settle(item, asset, ended, error);
  } catch (const std::exception& exception) {
    // The journal still has the file; the batch must go on.
    logLine(LogLevel::error, std::string("createAsset exception : ") + exception.what());
  } catch (...) {
    logLine(LogLevel::error, "createAsset exception of an unknown kind");
  }
  if (ended) fileEnded_.release();
}

void ImportBatch::settle(const ImportAssetPtr& item, const AssetPtr& asset, bool ended,
                         const TQErrorPtr& error) {
  if (stop_) file_->cancel();
  if (ended && !error) keep(item, asset);
  if (error && asset) asset->setImportStatus(-1);
  if (error && file_->mayHaveLostRecord() && asset && asset->masterPath)
    journal_->markLost(*asset->masterPath);
  if (error || stop_)
    takeBack(asset, ended);
  else if (ended && asset && asset->masterPath && (asset->id || item->isSequentialREDFile))
    journal_->end(*asset->masterPath);
}

void ImportBatch::report(const ImportAssetPtr& item, const AssetPtr& asset, double percent,
                         std::int64_t bytes, const TQErrorPtr& error) {
  if (percent != 0 && percent == lastProgress_) return;
  lastProgress_ = percent;
  if (!progress_) return;
  bool stop = stop_;
  progress_(item, asset, percent, finishedCount_, bytes, &stop, error);
  if (stop) stop_ = true;
}

void ImportBatch::keep(const ImportAssetPtr& item, const AssetPtr& asset) {
  if (!asset) return;
  if (asset->type == kAssetTypeImage) makePreview(asset);
  if (const Value* tags = item->metaData.find("tags")) {
    std::vector<std::string> names;
    for (const Value& tag : coerce::array(tags))
      if (OptionalString name = coerce::string(&tag)) names.push_back(*name);
    asset->setTags(std::move(names));
  }
  if (std::optional<Dictionary> record = asset->assetDictionary()) project_->addWorkflowWithAssets({*record});
}

void ImportBatch::makePreview(const AssetPtr& asset) {
  if (!pictures_) return project_->extractPreviewImageFromAsset(asset);
  OptionalString path = neededPreviewPath(*library_, *asset);
  if (!path) return;
  std::optional<Pictures> made = pictures_->get([this] { return !stop_; });
  if (made && made->preview) made->preview->saveJPEGWithPath(*path);
}

void ImportBatch::takeBack(const AssetPtr& asset, bool ended) {
  if (!asset) return;
  bool isRecordGone = library_->deleteAsset(asset, false, nullptr) && !file_->mayHaveLostRecord();
  bool areFilesGone = file_->removeFiles();
  // What the server could not be told, and what could not be removed, stays in the journal for recovery.
  if (ended && isRecordGone && areFilesGone && asset->masterPath) journal_->end(*asset->masterPath);
}

}  // namespace vornex
