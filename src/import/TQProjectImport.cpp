#include <fmt/format.h>
#include <unistd.h>
#include <vornex/Log.h>
#include <vornex/Queue.h>
#include <vornex/TQAsset.h>
#include <vornex/TQConnection.h>
#include <vornex/TQCopyInterface.h>
#include <vornex/TQImportAsset.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQLibraryManager.h>
#include <vornex/TQProject.h>
#include <vornex/TQUser.h>
#include <vornex/TQVornexUtil.h>
#include <vornex/TQWorkflowEngineInterface.h>

#include <filesystem>

#include "core/SdkError.h"
#include "core/StatusCode.h"
#include "foundation/Files.h"
#include "foundation/Text.h"
#include "import/AfterASecond.h"
#include "import/CopyBookmark.h"
#include "import/FileFacts.h"
#include "import/FileImport.h"
#include "import/FileNames.h"
#include "import/ImportBatch.h"
#include "import/ImportJournal.h"
#include "import/NewAsset.h"
#include "import/PackagePath.h"
#include "import/REDFolders.h"
#include "import/RecordKeys.h"
#include "import/Thumbnail.h"
#include "platform/AliasFile.h"
#include "platform/ContainedMedia.h"
#include "platform/OpenFolders.h"

namespace vornex {

void TQProject::createAssetsWithImportAssets(std::vector<ImportAssetPtr> items, ImportType importType,
                                             OptionalString targetDir, bool shouldIndexing,
                                             ImportProgress progressHandler, Completion completion) {
  if (!completion) completion = [](bool, const TQErrorPtr&) {};
  LibraryPtr owner = library.lock();
  if (!owner || !owner->packageFolder || !fileExists(*owner->packageFolder))
    return completion(false, localizedError(10009, "library.error.path.no.exist"));
  bool copiesToTarget = importType == ImportType::reference && shouldIndexing;
  if (copiesToTarget && !(targetDir && fileExists(*targetDir)))
    return completion(false, localizedError(10009, "library.error.target.path.no.exist"));
  if (owner->libraryType == kLibraryTypeNetwork)
    return completion(false, localizedError(10005, "library.error.no.authority.network"));
  auto batch =
      std::make_shared<ImportBatch>(shared_from_this(), owner, importType, std::move(targetDir),
                                    shouldIndexing, std::move(progressHandler), std::move(completion));
  batch->start(std::move(items));
}

void TQProject::importAssetWithSourcePath(const std::string& path, AssetFolderPtr assetFolder,
                                          const Dictionary& metaDict, ImportType importType,
                                          OptionalString targetDir, bool shouldIndexing,
                                          FileCallback completion) {
  ImportAssetPtr item = TQImportAsset::importAssetWithPath(path);
  item->metaData = metaDict;
  createAssetWithFolder(std::move(assetFolder), path, std::move(targetDir), shouldIndexing, false, importType,
                        item, std::move(completion));
}

void TQProject::createAssetWithFolder(AssetFolderPtr folder, OptionalString srcPath, OptionalString destDir,
                                      bool shouldIndexing, bool doCopy, ImportType importType,
                                      ImportAssetPtr importAsset, FileCallback completion) {
  LibraryPtr owner = library.lock();
  std::string journals = owner && owner->packageFolder ? importJournalFolder(*owner->packageFolder) : "";
  auto journal = std::make_shared<ImportJournal>(journals);
  FileImport::Request request{shared_from_this(), owner,  folder,     srcPath,    destDir,
                              shouldIndexing,     doCopy, importType, importAsset};
  auto report = [journal, completion = std::move(completion)](const AssetPtr& asset, double progress,
                                                              std::int64_t bytes, bool finished,
                                                              const TQErrorPtr& error) {
    if (finished && !error && asset && asset->masterPath) journal->end(*asset->masterPath);
    if (completion) completion(asset, progress, bytes, finished, error);
  };
  std::make_shared<FileImport>(std::move(request), journal, std::move(report))->start();
}

std::optional<std::map<std::string, std::string>> TQProject::availableTargetREDFolders() const {
  std::lock_guard lock(redFoldersMutex_);
  return redFolders_ ? std::make_optional(redFolders_->all()) : std::nullopt;
}

AssetPtr TQProject::createAssetWithSrcPath(const std::string& srcPath, OptionalString masterPath,
                                           OptionalString thumbnailPath, OptionalString previewPath) {
  try {
    AssetPtr asset = assetNamedAfter(srcPath, shared_from_this());
    asset->masterPath = std::move(masterPath);
    asset->thumbnailPath = std::move(thumbnailPath);
    asset->previewPath = std::move(previewPath);
    if (std::optional<FileFacts> facts = fileFacts(srcPath))
      takeFacts(*asset, *facts, recordedSize(srcPath, *facts));
    return asset;
  } catch (const std::exception& exception) {
    logLine(LogLevel::error, std::string("createAsset exception : ") + exception.what());
    return nullptr;
  }
}

OptionalString TQProject::availableFileNameWithPath(const OptionalString& dir,
                                                    const OptionalString& fileName) {
  if (!dir || !fileName) return std::nullopt;
  return availableFileName(
      *fileName, [&](const std::string& other) { return itemExists(appendPathComponent(*dir, other)); });
}

void TQProject::createAsset(AssetPtr asset, std::function<void(AssetPtr, TQErrorPtr)> completion) {
  LibraryPtr owner = library.lock();
  UserPtr user = owner && owner->connection ? owner->connection->user : nullptr;
  Dictionary items{{"items", Array{asset->metaDataDictionary ? Value(*asset->metaDataDictionary) : Value()}}};
  TQVornexUtil::requestURL(owner ? owner->serverURL("/assets/create") : std::nullopt,
                           user ? user->id : std::nullopt, user ? user->password : std::nullopt, "POST",
                           Value(std::move(items)), [asset, completion](Value response, TQErrorPtr error) {
                             if (error) return completion(asset, error);
                             OptionalString assetID = extractAssetIDWithResponse(response);
                             if (!assetID)
                               return completion(asset, localizedError(10006, "response.error.invalid"));
                             asset->id = assetID;
                             completion(asset, nullptr);
                           });
}

OptionalString TQProject::extractAssetIDWithResponse(const Value& response) {
  const Value* items = response.find("items");
  const Array* list = items ? items->ifArray() : nullptr;
  if (!list || list->empty()) return std::nullopt;
  return TQVornexUtil::stringValueFromObject(list->back().find("_id"));
}

OptionalString TQProject::createCatalogPathWithAssetID(const std::string& assetID, std::int64_t type,
                                                       const std::string& catalogFolderPath) {
  LibraryPtr owner = library.lock();
  if (type != kAssetTypeVideo || !owner || !owner->packageFolder) return std::nullopt;
  std::string folder = appendPathComponent(catalogFolderPath, assetID);
  Result<void> made = createDirectories(folder);
  if (!made) {
    logLine(LogLevel::error, "createCatalogPathWithAssetID, Can't create directory:" + folder);
    return std::nullopt;
  }
  OptionalString relative = packageRelativePath(folder, *owner->packageFolder);
  if (!relative) return std::nullopt;
  UserPtr user = owner->connection ? owner->connection->user : nullptr;
  Dictionary item{{"_id", assetID}, {"catalogpath", *relative}};
  TQErrorPtr error;
  TQVornexUtil::syncRequestURL(owner->serverURL("/assets/update"), user ? user->id : std::nullopt,
                               user ? user->password : std::nullopt, "POST",
                               Value(Dictionary{{"items", Array{std::move(item)}}}), &error);
  if (error) logLine(LogLevel::error, "update Catalog failed:" + error->description());
  return relative;
}

static std::vector<std::string> failedPaths(const Value& response) {
  std::vector<std::string> paths;
  for (const Value& failure : TQVornexUtil::arrayValueFromObject(response.find("failures")))
    if (OptionalString path = TQVornexUtil::stringValueFromObject(failure.find("path")))
      paths.push_back(*path);
  return paths;
}

void TQProject::accessibilityForReferenceFilePaths(
    const std::vector<std::string>& paths,
    std::function<void(bool, TQErrorPtr, std::vector<std::string>)> completion) {
  LibraryPtr owner = library.lock();
  UserPtr user = owner && owner->connection ? owner->connection->user : nullptr;
  Array items;
  for (const std::string& path : paths) items.push_back(Dictionary{{"path", path}});
  auto answered = [paths, completion = std::move(completion)](Value response, TQErrorPtr error) {
    if (!error) return completion(true, nullptr, failedPaths(response));
    if (error->code() == static_cast<std::int64_t>(StatusCode::referenceUnreachable)) error = nullptr;
    if (error && error->code() == static_cast<std::int64_t>(StatusCode::clientRefused))
      error = localizedError(10022, "version.need.update");
    completion(false, error, paths);
  };
  TQVornexUtil::requestURL(owner ? owner->serverURL("/assets/access") : std::nullopt,
                           user ? user->id : std::nullopt, user ? user->password : std::nullopt, "POST",
                           Value(Dictionary{{"items", std::move(items)}}), std::move(answered));
}

bool TQProject::createLinkFileAtPath(const OptionalString& source, const OptionalString& toPath,
                                     TQErrorPtr* error) {
  if (!source || !toPath) return false;
  std::error_code ignored;
  std::filesystem::remove_all(*toPath, ignored);
  auto made = makeAlias(*source, *toPath);
  if (!made && error) *error = makeSdkError(made.error());
  return made.has_value();
}

void TQProject::copyFileAtPath(const std::string& src, const std::string& toPath, AssetPtr asset,
                               Completion completion) {
  tl::expected<Data, TQErrorPtr> bookmark = bookmarkForCopy(src);
  if (!bookmark) return completion(false, bookmark.error());
  TQLibraryManager::sharedManager().copyInterface().copy(
      {src, toPath, std::move(*bookmark), false, asset->copyProgressHandler, asset->copyReportHandler},
      std::move(completion));
}

void TQProject::cancelFile() {
  TQLibraryManager::sharedManager().copyInterface().cancel();
}

void TQProject::deleteFileAsset(const AssetPtr& asset) {
  LibraryPtr owner = library.lock();
  if (!asset || !asset->masterPath || !asset->thumbnailPath || !owner || !owner->packageFolder) return;
  for (const OptionalString& path : {asset->previewPath, asset->masterPath, asset->thumbnailPath})
    if (path && !path->empty()) removeTree(appendPathComponent(*owner->packageFolder, *path));
}

void TQProject::addWorkflowWithAssets(std::vector<Dictionary> assetDictionaries) {
  LibraryPtr owner = library.lock();
  if (!owner || owner->libraryType == kLibraryTypeNetwork) return;
  Ptr root = level == 0 ? shared_from_this() : rootProject.lock();
  afterASecond([assets = std::move(assetDictionaries), folder = owner->packageFolder,
                projectID = root ? root->id : std::nullopt, database = owner->dbName] {
    TQLibraryManager::sharedManager().workflowEngineInterface().addJobWithAssets(assets, folder, projectID,
                                                                                 database);
  });
}

void TQProject::extractThumbnail(const std::string& source, const std::string& toPath,
                                 Completion completion) {
  GlobalQueue::shared().async([source, toPath, completion = std::move(completion)] {
    bool written = false;
    try {
      written = writeThumbnail(source, toPath);
    } catch (const std::exception& exception) {
      logLine(LogLevel::error, "extractThumbnail exception : " + std::string(exception.what()));
    }
    completion(written, nullptr);
  });
}

void TQProject::extractPreviewImageFromAsset(const AssetPtr& asset) {
  LibraryPtr owner = library.lock();
  OptionalString preview = asset && owner ? neededPreviewPath(*owner, *asset) : std::nullopt;
  OptionalString master = preview ? asset->originMasterPath() : std::nullopt;
  ImagePtr image = master ? previewOfFile(*master) : nullptr;
  if (image) image->saveJPEGWithPath(*preview);
}

static void addLocation(TQAsset& asset, const Dictionary& xmp) {
  const Value* exif = xmp.find("exif");
  if (!exif) return;
  OptionalString latitude = TQVornexUtil::stringValueFromObject(exif->find("GPSLatitude"));
  OptionalString longitude = TQVornexUtil::stringValueFromObject(exif->find("GPSLongitude"));
  if (!latitude || !longitude) return;
  asset.hasLocation = true;
  asset.latitude = TQVornexUtil::convertFromGPSString(*latitude);
  asset.longitude = TQVornexUtil::convertFromGPSString(*longitude);
}

void TQProject::addXMPDataWithAsset(const AssetPtr& asset, const std::string& srcPath) {
  if (asset->type != kAssetTypeImage) return;
  std::optional<Dictionary> xmp = asset->xmpMetaWithPath(srcPath);
  if (!xmp) return;
  addLocation(*asset, *xmp);
  // A file chooses the names of its namespaces.
  Dictionary harmless;
  for (auto& [name, properties] : *xmp)
    if (!isRecordKey(name)) harmless.set(name, std::move(properties));
  asset->setXMPData(std::move(harmless));
}

void TQProject::addMediaInfoWithAsset(const AssetPtr& asset, const std::string& srcPath) {
  asset->mediaInfo = asset->mediaInfoWithPath(srcPath).value_or(Dictionary());
}

void TQProject::addRedMetaDataWithAsset(const AssetPtr& asset, const std::string& srcPatch) {
  if (lowercased(pathExtension(srcPatch)) != "r3d") return;
  if (std::optional<Dictionary> clip = contained::redInformation(srcPatch))
    asset->redInfo = Dictionary{{"red", std::move(*clip)}};
  if (std::optional<Dictionary> facts = contained::videoInformation(srcPatch))
    asset->mediaInfo = std::move(facts);
}

OptionalString TQProject::reelNameForREDFileName(const OptionalString& name) {
  return name ? reelName(*name) : std::nullopt;
}

OptionalString TQProject::availableREDFolderNameWithPath(const OptionalString& dir,
                                                         const OptionalString& folderName) {
  if (!dir || !folderName) return std::nullopt;
  return availableREDFolder(*dir, *folderName);
}

OptionalString TQProject::referenceREDFileFromFolderPath(const OptionalString& folder,
                                                         const OptionalString& targetDir) {
  if (!folder || !targetDir) return std::nullopt;
  return referenceREDFile(*folder, *targetDir);
}

}  // namespace vornex
