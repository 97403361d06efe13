#include "import/FileImport.h"

#include <fcntl.h>
#include <sys/file.h>
#include <vornex/Log.h>
#include <vornex/Queue.h>
#include <vornex/TQAsset.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQLibraryManager.h>
#include <vornex/TQVornexUtil.h>

#include <cerrno>
#include <chrono>
#include <thread>

#include "core/SdkError.h"
#include "core/StatusCode.h"
#include "foundation/Files.h"
#include "foundation/Patience.h"
#include "foundation/Text.h"
#include "import/CopyBookmark.h"
#include "import/FileFacts.h"
#include "import/FileNames.h"
#include "import/NewAsset.h"
#include "import/PackagePath.h"
#include "import/SourceKeys.h"
#include "import/Thumbnail.h"
#include "platform/OpenFolders.h"

namespace vornex {

// Only a cancel ends what may take as long as it likes.
static constexpr std::chrono::milliseconds kUnlimited = std::chrono::hours(10'000);

static TQErrorPtr posixError(int errorNumber, const std::string& what) {
  return makeSdkError(posixFailure(errorNumber, what).value());
}

FileImport::FileImport(Request request, std::shared_ptr<ImportJournal> journal,
                       TQProject::FileCallback callback)
    : request_(std::move(request)), journal_(std::move(journal)), callback_(std::move(callback)) {}

FileImport::~FileImport() {
  dropClaims();
}

void FileImport::start() {
  guarded([this] {
    if (!lookAtSource() || !nameFiles() || !checkPaths()) return;
    describe();
    progress(0, 0);
    if (endedByCancel()) return;
    if (!readMetadata()) return;
    if (!chooseTarget() || endedByCancel() || !recordInJournal()) return;
    place();
  });
}

void FileImport::cancel() {
  cancelled_ = true;
  if (TQCopyInterface::JobID job = copyJob_) TQLibraryManager::sharedManager().copyInterface().cancel(job);
}

template <typename Work>
std::optional<std::invoke_result_t<Work>> FileImport::fromDisk(const std::string& path, Work work,
                                                               std::chrono::milliseconds patience) {
  auto result = patiently(std::move(work), patience, [this] {
    // The host hears of it, and may stop.
    progress(0, 0);
    return !cancelled_;
  });
  if (!result && !endedByCancel()) failSilent(path);
  return result;
}

template <typename Work>
std::optional<std::invoke_result_t<Work>> FileImport::fromSource(Work work,
                                                                 std::chrono::milliseconds patience) {
  return fromDisk(*request_.source, std::move(work), patience);
}

template <typename Work>
std::optional<std::invoke_result_t<Work>> FileImport::fromTarget(Work work,
                                                                 std::chrono::milliseconds patience) {
  std::string path =
      appendPathComponent(request_.targetFolder.value_or(""), lastPathComponent(*request_.source));
  if (failedBySilence(path)) return std::nullopt;
  return fromDisk(path, std::move(work), patience);
}

bool FileImport::failedBySilence(const std::string& path) {
  if (!request_.silentFolders || !request_.silentFolders->mustNotLook(path)) return false;
  failSilent(path);
  return true;
}

void FileImport::failSilent(const std::string& path) {
  if (request_.silentFolders) request_.silentFolders->note(path);
  fail(posixError(ETIMEDOUT, "import " + path));
}

/// Absent when there is nothing. The first look at a source also opens it.
static std::optional<FileFacts> firstLook(const std::string& source) {
  std::optional<FileFacts> facts = fileFacts(source);
  if (facts) FileDescriptor(::open(source.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  return facts;
}

bool FileImport::lookAtSource() {
  if (!request_.source) {
    fail(10000, "request.error.param.nil");
    return false;
  }
  const std::string& source = *request_.source;
  asset_ = assetNamedAfter(source, request_.project);
  if (failedBySilence(source)) return false;
  auto facts = fromSource([source] { return firstLook(source); }, lookPatience());
  if (!facts) return false;
  sourceFacts_ = *facts;
  if (!sourceFacts_) return true;
  std::uint64_t size = sourceFacts_->size;
  if (sourceFacts_->isDirectory) {
    auto measured =
        fromSource([source, found = *sourceFacts_] { return recordedSize(source, found); }, kUnlimited);
    if (!measured) return false;
    size = *measured;
  }
  takeFacts(*asset_, *sourceFacts_, size);
  return true;
}

// Names and checks

std::string FileImport::freeMasterName(const std::string& name) const {
  const std::string& folder = request_.folder->masterPath;
  // A name that the journal still holds belongs to a record that may exist without its file.
  const std::string& packageFolder = request_.library->packageFolder.value_or("");
  auto isTaken = [&](const std::string& candidate) {
    std::string path = appendPathComponent(folder, candidate);
    return itemExists(path) || journal_->isPending(packageRelativePath(path, packageFolder).value_or(""));
  };
  return request_.names ? request_.names->available(folder, name, isTaken) : availableFileName(name, isTaken);
}

/// The master's name and the suffix. An image's preview goes without the suffix: where the name had to be cut
/// for it, another preview may have that name already.
std::string FileImport::freeNameBeside(const std::string& directory, const char* suffix) const {
  std::string name = fittingFileName(*masterName_, suffix);
  bool isCut = name.size() < masterName_->size() + std::string_view(suffix).size();
  return availableFileName(name, [&](const std::string& candidate) {
    std::string path = appendPathComponent(directory, candidate);
    return itemExists(path) || (isCut && itemExists(deletingPathExtension(path)));
  });
}

bool FileImport::nameFiles() {
  const AssetFolderPtr& folder = request_.folder;
  linkSource_ = *request_.source;
  if (isReference()) {
    if (!chooseREDFolder()) return false;
    noteReference();
  }
  if (!folder || !request_.library) return true;
  std::string name = fittingName(recordText(lastPathComponent(*request_.source)));
  bool takesNameAsItIs = !isReference() && !request_.doCopy;
  // No file will tell that the name is taken, but the record has it.
  if (takesNameAsItIs && request_.names) request_.names->take(folder->masterPath, name);
  masterName_ = takesNameAsItIs ? name : freeMasterName(name);
  masterFull_ = appendPathComponent(folder->masterPath, *masterName_);
  thumbnailFull_ = appendPathComponent(folder->thumbnailPath, freeNameBeside(folder->thumbnailPath, ".jpg"));
  previewFull_ = appendPathComponent(folder->previewPath, freeNameBeside(folder->previewPath, ".mp4"));
  return true;
}

bool FileImport::chooseREDFolder() {
  const ImportAssetPtr& item = request_.item;
  bool isFolder = sourceFacts_ && sourceFacts_->isDirectory;
  if (!request_.shouldIndexing || !item || !item->isREDFile || !isFolder) return true;
  if (!chooseREDTarget()) return false;
  if (!redFile_) return true;
  // The copy is still to come: what there is to know is told by the clip in the source.
  const std::string name = lastPathComponent(*redFile_);
  auto clip = fromSource([clip = appendPathComponent(*request_.source, name)] { return fileFacts(clip); },
                         sourcePatience());
  if (!clip) return false;
  asset_ = assetNamedAfter(*redFile_, request_.project);
  if (*clip) takeFacts(*asset_, **clip, static_cast<std::uint64_t>(item->fileSize));
  asset_->setName(TQProject::reelNameForREDFileName(recordText(name)));
  return true;
}

bool FileImport::chooseREDTarget() {
  const std::string& source = *request_.source;
  auto target = fromTarget(
      [folder = request_.targetFolder, name = recordText(lastPathComponent(source))] {
        return TQProject::availableREDFolderNameWithPath(folder, name);
      },
      lookPatience());
  if (!target) return false;
  redTarget_ = *target;
  auto clip = fromSource(
      [source, target = redTarget_] { return TQProject::referenceREDFileFromFolderPath(source, target); },
      sourcePatience());
  if (!clip) return false;
  redFile_ = *clip;
  if (request_.redFolders && redTarget_) request_.redFolders->choose(source, *redTarget_);
  linkSource_ = redFile_.value_or(source);
  return true;
}

void FileImport::noteReference() {
  const LibraryPtr& library = request_.library;
  if (!library || library->hasReferenceFile.exchange(true)) return;
  bool isSaved = library->writeToFile() &&
                 TQLibraryManager::sharedManager().saveLibrariesFileWithType(kLibraryTypeLocal);
  if (isSaved) return;
  // The next reference tries again.
  library->hasReferenceFile = false;
  logLine(LogLevel::error, "createAsset, Can't save that the library has references");
}

bool FileImport::checkPaths() {
  bool lacksTarget = copiesToTarget() && request_.doCopy && !request_.targetFolder;
  if (!masterFull_ || !request_.library || !request_.library->packageFolder || lacksTarget) {
    fail(10000, "request.error.param.nil");
    return false;
  }
  if (!sourceFacts_) {
    logLine(LogLevel::error, "file not found : " + *request_.source);
    std::string message = LocalizedString("error.not.found.file") + " (" + *request_.source + ")";
    fail(TQVornexUtil::errorWithCode(10009, message));
    return false;
  }
  const std::string& packageFolder = *request_.library->packageFolder;
  asset_->masterPath = packageRelativePath(*masterFull_, packageFolder);
  asset_->thumbnailPath = packageRelativePath(*thumbnailFull_, packageFolder);
  asset_->previewPath = packageRelativePath(*previewFull_, packageFolder);
  if (asset_->masterPath && asset_->thumbnailPath && asset_->previewPath) return masterNameIsFree();
  asset_->masterPath = asset_->thumbnailPath = asset_->previewPath = std::nullopt;
  fail(10001, "request.error.param.invalid");
  return false;
}

// The search for a free name gives up in the end, and what it gives then belongs to another asset.
bool FileImport::masterNameIsFree() {
  bool placesNothing = !isReference() && !request_.doCopy;
  if (placesNothing || !itemExists(*masterFull_)) return true;
  asset_->masterPath = asset_->thumbnailPath = asset_->previewPath = std::nullopt;
  fail(posixError(EEXIST, "import " + *request_.source));
  return false;
}

// The record

void FileImport::describe() {
  if (asset_->type == kAssetTypeImage)
    asset_->previewPath = deletingPathExtension(*asset_->previewPath);
  else if (asset_->type != kAssetTypeVideo)
    asset_->previewPath = std::nullopt;
  asset_->importer = "Mac";
  asset_->importType = static_cast<std::int64_t>(request_.type);
  asset_->importFromPath = recordText(*request_.source);
}

bool FileImport::readMetadata() {
  const std::string& source = *request_.source;
  TQProject::addXMPDataWithAsset(asset_, source);
  TQProject::addMediaInfoWithAsset(asset_, source);
  TQProject::addRedMetaDataWithAsset(asset_, source);

  if (!asset_->metaDataDictionary) asset_->metaDataDictionary.emplace();
  Dictionary& metadata = *asset_->metaDataDictionary;
  std::optional<Dictionary> record = asset_->assetDictionary();
  if (!record) {
    fail(10001, "request.error.param.invalid");
    return false;
  }
  metadata.merge(*record);
  if (request_.item) metadata.merge(request_.item->metaData);
  if (const Value* importer = metadata.find("importer"))
    asset_->importer = TQVornexUtil::stringValueFromObject(importer);
  metadata.set("importfrompath", recordText(source));
  if (lowercased(pathExtension(source)) == "r3d")
    asset_->setName(TQProject::reelNameForREDFileName(recordText(lastPathComponent(source))));
  if (copiesToTarget() && request_.doCopy) rememberSource(metadata);
  return true;
}

/// The record of a copy names the copy: what it was made of is kept beside it.
void FileImport::rememberSource(Dictionary& metadata) const {
  bool isClip = request_.item && request_.item->isREDFile;
  metadata.set(kSourcePath, recordText(*request_.source));
  metadata.set(kSourceSize, isClip ? request_.item->fileSize : static_cast<std::int64_t>(sourceFacts_->size));
  metadata.set(kSourceDate, TQVornexUtil::dateNumberFromDate(sourceFacts_->modified));
}

bool FileImport::isTravellingSideFile() const {
  return !request_.doCopy && lowercased(pathExtension(*request_.source)) == "rmd";
}

// Where the clip went with which this file travels; absent when it was not copied in this batch.
OptionalString FileImport::folderOfSideFile() const {
  if (!request_.redFolders) return std::nullopt;
  return request_.redFolders->chosenFor(deletingLastPathComponent(*request_.source));
}

bool FileImport::chooseTarget() {
  if (!copiesToTarget()) return true;
  const std::string& source = *request_.source;
  if (redTarget_) {
    target_ = redTarget_;
    return true;
  }
  if (isTravellingSideFile()) {
    OptionalString folder = folderOfSideFile();
    if (!folder) return true;
    target_ = appendPathComponent(*folder, lastPathComponent(source));
    linkSource_ = *target_;
  } else if (const OptionalString& chosen = request_.targetFolder) {
    auto name =
        fromTarget([folder = *chosen,
                    name = *masterName_] { return TQProject::availableFileNameWithPath(folder, name); },
                   lookPatience());
    if (!name) return false;
    target_ = appendPathComponent(*chosen, **name);
  } else {
    return true;
  }
  asset_->metaDataDictionary->set("importfrompath", recordText(*target_));
  return true;
}

// Placing the file

bool FileImport::recordInJournal() {
  if (!isReference() && !request_.doCopy) return true;
  if (!claimFolders()) return false;
  ImportJournalEntry entry{*asset_->masterPath, *asset_->thumbnailPath, asset_->previewPath.value_or(""),
                           request_.doCopy ? target_.value_or("") : ""};
  Result<void> begun = journal_->begin(entry);
  if (begun) return true;
  fail(makeSdkError(begun.error()));
  return false;
}

/// The folder of the file, locked; tried again for some time while somebody holds it for himself.
static FileDescriptor claimedFolder(const std::string& path, std::chrono::milliseconds time) {
  constexpr std::chrono::milliseconds kBetweenTries{20};
  FileDescriptor folder(::open(deletingLastPathComponent(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  auto end = std::chrono::steady_clock::now() + time;
  while (folder && ::flock(folder.get(), LOCK_SH | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK || std::chrono::steady_clock::now() >= end) return {};
    std::this_thread::sleep_for(kBetweenTries);
  }
  return folder;
}

bool FileImport::claimFolders() {
  dropClaims();
  // A folder that cannot be claimed belongs to the batch of this file.
  for (const OptionalString& path : {masterFull_, thumbnailFull_, previewFull_})
    if (path) claims_.push_back(claimedFolder(*path, std::chrono::milliseconds(0)));
  if (!target_) return true;
  // A recovery, of any library, may tidy up the target folder just now.
  static constexpr std::chrono::seconds kTimeOfRecovery{5};
  auto target = fromTarget([path = *target_] { return claimedFolder(path, kTimeOfRecovery); },
                           sourcePatience() + kTimeOfRecovery);
  if (!target) return false;
  claims_.push_back(std::move(*target));
  return true;
}

// A lost network disk does not let go of a lock either.
void FileImport::dropClaims() {
  if (claims_.empty()) return;
  try {
    auto claims = std::make_shared<std::vector<FileDescriptor>>();
    claims->swap(claims_);
    auto drop = [claims] {
      claims->clear();
      return true;
    };
    patiently(std::move(drop), lookPatience());
  } catch (const std::exception& exception) {
    logLine(LogLevel::warning, std::string("claims of an import: ") + exception.what());
  }
}

void FileImport::place() {
  if (!isReference() && request_.doCopy)
    placeByCopy(*masterFull_);
  else if (!isReference())
    createRecord();
  else if (request_.doCopy && request_.shouldIndexing)
    placeByCopy(*target_);
  else
    placeByLink();
}

void FileImport::placeByCopy(const std::string& target) {
  auto bookmark =
      fromSource([source = *request_.source] { return bookmarkForCopy(source); }, sourcePatience());
  if (!bookmark) return;
  if (!*bookmark) return fail(bookmark->error());
  auto self = shared_from_this();
  asset_->copyProgressHandler = [self](double percent, std::int64_t bytes) {
    self->progress(percent, bytes);
  };
  asset_->copyReportHandler = [self](const Value& result, const TQErrorPtr& error) {
    self->guarded([&] { self->copyEnded(result, error); });
  };
  TQCopyInterface::Job job{*request_.source, target, std::move(**bookmark)};
  job.verify = request_.item && request_.item->verifiesCopy;
  job.progress = asset_->copyProgressHandler;
  job.report = asset_->copyReportHandler;
  job.leavesRemains = [self] { self->leavesRemains_ = true; };
  // From its appearance on, a copy in the user's own folder is known to be this import's.
  if (isReference()) {
    job.willAppear = [self](const std::string& path) {
      self->journal_->markPlaced(*self->asset_->masterPath, fileIdentity(path));
    };
  }
  TQCopyInterface::JobID number = TQLibraryManager::sharedManager().copyInterface().copy(
      std::move(job), [self](bool started, const TQErrorPtr& error) {
        if (!started) self->fail(error);
      });
  // The job may have ended by now, and another one begun for another target.
  TQCopyInterface::JobID known = copyJob_;
  while (known < number && !copyJob_.compare_exchange_weak(known, number)) {
  }
  // A cancel that came before the job had its number has not reached the job.
  if (cancelled_) cancel();
}

void FileImport::copyEnded(const Value& result, const TQErrorPtr& error) {
  if (mayChooseAnotherTarget(error)) {
    if (redTarget_ && !chooseREDTarget()) return;
    if (chooseTarget() && recordInJournal()) placeByCopy(*target_);
    return;
  }
  if (error) return fail(error);
  if (const Value* checksum = result.find("checksum")) asset_->metaDataDictionary->set("checksum", *checksum);
  if (!isReference()) {
    placedFiles_ = true;
    return createRecord();
  }
  placedTarget_ = *target_;
  linkToTarget();
}

/// Whether another import took the name in the target folder while this one copied.
bool FileImport::mayChooseAnotherTarget(const TQErrorPtr& error) {
  constexpr int kMostTargets = 8;
  bool isTaken = error && error->domain() == "posix" && error->code() == EEXIST;
  return isTaken && isReference() && !cancelled_ && ++targetsChosen_ < kMostTargets;
}

bool FileImport::removeFiles() {
  bool isGone = !leavesRemains_;
  if (placedFiles_) {
    request_.project->deleteFileAsset(asset_);
    isGone = isGone && !itemExists(*masterFull_);
  }
  if (placedTarget_.empty()) return isGone;
  auto removed = patiently([path = placedTarget_] { return removeTree(path); }, sourcePatience());
  if (!removed) removed = posixFailure(ETIMEDOUT, "remove " + placedTarget_);
  if (!*removed) logLine(LogLevel::warning, "createAsset: " + removed->error().message);
  return isGone && *removed;
}

void FileImport::linkToTarget() {
  const ImportAssetPtr& item = request_.item;
  if (item && item->isREDFile && redFile_) {
    target_ = redFile_;
    TQProject::addRedMetaDataWithAsset(asset_, *target_);
    Dictionary& metadata = *asset_->metaDataDictionary;
    if (std::optional<Dictionary> record = asset_->assetDictionary()) metadata.merge(*record);
    metadata.set("name", Value(asset_->name()));
    metadata.set("importfrompath", recordText(*target_));
  }
  if (item && item->isSequentialREDFile) return end(0, 0, nullptr);
  auto exists = fromTarget([path = *target_] { return fileExists(path); }, sourcePatience());
  if (!exists) return;
  if (!*exists) return fail(10009, "library.error.target.path.no.exist");
  TQErrorPtr error;
  placedFiles_ = true;
  if (!TQProject::createLinkFileAtPath(target_, masterFull_, &error)) return fail(error);
  createRecordOfLink();
}

void FileImport::placeByLink() {
  placedFiles_ = true;
  // A link that cannot be made ends the file without an error: hosts rely on it.
  TQErrorPtr error;
  if (TQProject::createLinkFileAtPath(linkSource_, masterFull_, &error)) return createRecordOfLink();
  logLine(LogLevel::error, error ? error->description() : "createLinkFileAtPath failed");
  end(0, 0, nullptr);
}

// A record must never outlive its link, so the link reaches the disk first.
void FileImport::createRecordOfLink() {
  Result<void> synced = syncDirectory(deletingLastPathComponent(*masterFull_));
  if (!synced) return fail(makeSdkError(synced.error()));
  createRecord();
}

// The server's record and the thumbnail

void FileImport::createRecord() {
  if (endedByCancel()) return;
  asset_->setImportStatus(0);
  mayHaveLostRecord_ = true;
  request_.project->createAsset(
      asset_, [self = shared_from_this()](const AssetPtr&, const TQErrorPtr& error) {
        auto goOn = [self, error] { self->guarded([&] { self->recordEnded(error); }); };
        // The answer comes on the main queue, which must not wait for what follows.
        try {
          GlobalQueue::shared().async(goOn);
        } catch (const std::exception&) {
          // Without a thread it has to.
          goOn();
        }
      });
}

/// Whether the server has said that there will be no record. It may still be at work on a request that took
/// too long, and an answer may be lost or useless after the work was done.
static bool isRefusal(const TQErrorPtr& error) {
  if (error->domain() != kServerErrorDomain) return false;
  switch (static_cast<StatusCode>(error->code())) {
    case StatusCode::internalError:
    case StatusCode::databaseFailed:
    case StatusCode::limitExceeded:
    case StatusCode::timedOut:
    case StatusCode::serviceStopping:
    case StatusCode::cannotConnectToHost:
      return false;
    default:
      return true;
  }
}

void FileImport::recordEnded(const TQErrorPtr& error) {
  mayHaveLostRecord_ = error && !isRefusal(error);
  if (error) return fail(error);
  makeThumbnail();
}

void FileImport::makeThumbnail() {
  try {
    writePicture();
  } catch (const std::exception& exception) {
    logLine(LogLevel::error, "extractThumbnail exception : " + std::string(exception.what()));
  }
  end(100.0, static_cast<std::int64_t>(asset_->fileSize), nullptr);
}

/// A source that has gone silent or away costs the picture, not the file.
void FileImport::writePicture() {
  constexpr int kQuietLooks = 10;
  auto goOn = [this, looks = 0]() mutable {
    if (++looks > kQuietLooks) progress(0, 0);
    return !cancelled_;
  };
  auto pictures = request_.pictures;
  if (!pictures || pictures->source() != linkSource_) pictures = FilePictures::start(linkSource_, false);
  std::optional<Pictures> made = pictures->get(goOn);
  if (made) writeThumbnail(linkSource_, made->thumbnail, *thumbnailFull_);
}

// The callback

void FileImport::progress(double percent, std::int64_t bytes) {
  if (!ended_) callback_(asset_, percent, bytes, false, nullptr);
}

void FileImport::end(double percent, std::int64_t bytes, const TQErrorPtr& error) {
  if (ended_.exchange(true)) return;
  // The handlers hold this object.
  if (asset_) {
    asset_->copyProgressHandler = nullptr;
    asset_->copyReportHandler = nullptr;
  }
  callback_(asset_, percent, bytes, true, error);
}

void FileImport::fail(std::int64_t code, const char* messageKey) {
  fail(localizedError(code, messageKey));
}

bool FileImport::endedByCancel() {
  if (!cancelled_) return false;
  fail(posixError(ECANCELED, "import " + *request_.source));
  return true;
}

void FileImport::guarded(const std::function<void()>& step) {
  try {
    step();
  } catch (const std::exception& exception) {
    logLine(LogLevel::error, std::string("createAsset exception : ") + exception.what());
    fail(10001, "request.error.param.invalid");
  }
}

}  // namespace vornex
