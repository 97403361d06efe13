#include "import/ImportRecovery.h"

#include <fcntl.h>
#include <sys/file.h>
#include <vornex/Log.h>
#include <vornex/TQAsset.h>
#include <vornex/TQBookmarkUtil.h>
#include <vornex/TQConnection.h>
#include <vornex/TQUser.h>
#include <vornex/TQVornexUtil.h>

#include <cerrno>
#include <set>

#include "core/Coercion.h"
#include "core/SdkError.h"
#include "foundation/FileDescriptor.h"
#include "foundation/Files.h"
#include "foundation/Patience.h"
#include "import/FileFacts.h"
#include "import/PackagePath.h"
#include "import/Thumbnail.h"
#include "platform/FileCopy.h"
#include "platform/OpenFolders.h"

namespace vornex {

static void warn(const Error& error) {
  logLine(LogLevel::warning, "recoverInterruptedImports: " + error.message);
}

bool TQLibrary::recoverInterruptedImports(TQErrorPtr* error) {
  TQErrorPtr failure;
  if (packageFolder && libraryType != kLibraryTypeNetwork)
    failure = ImportRecovery(shared_from_this(), serverURL("/assets/search")).run();
  if (error) *error = failure;
  return !failure;
}

ImportRecovery::ImportRecovery(LibraryPtr library, OptionalString searchURL)
    : library_(std::move(library)), searchURL_(std::move(searchURL)) {}

TQErrorPtr ImportRecovery::run() {
  std::vector<std::string> folder = pathComponents(importJournalFolder(""));
  Result<FolderEntry> journalFolder = findEntry(*library_->packageFolder, folder);
  FileDescriptor opened =
      journalFolder ? openFolderIn(journalFolder->folder.get(), journalFolder->name) : FileDescriptor();
  if (!opened) return nullptr;
  std::vector<FoundJournal> journals = FoundJournal::inFolder(pathThrough(opened, ""));
  std::set<std::string> inUse;
  for (const FoundJournal& journal : journals)
    if (journal.isRunning())
      for (const ImportJournalEntry& entry : journal.pending()) inUse.insert(entry.masterPath);

  for (FoundJournal& journal : journals) {
    if (journal.isRunning()) continue;
    bool areSettled = !journal.mayGetRecords();
    for (const ImportJournalEntry& entry : journal.pending()) {
      if (inUse.contains(entry.masterPath)) continue;
      tl::expected<bool, TQErrorPtr> isSettled = settle(entry);
      if (!isSettled) return isSettled.error();
      areSettled = areSettled && *isSettled;
    }
    if (areSettled) journal.remove();
  }
  return nullptr;
}

tl::expected<bool, TQErrorPtr> ImportRecovery::settle(const ImportJournalEntry& entry) const {
  Result<FolderEntry> master = item(entry.masterPath);
  bool isReachable = master || master.error().code == ENOENT;
  if (!isReachable) {
    warn(master.error());
    // What lies behind a link is not the package's.
    return master.error().code == ENOTDIR;
  }
  TQErrorPtr error;
  std::optional<Array> found = records(entry.masterPath, &error);
  if (!found) return tl::unexpected(error);
  logLine(LogLevel::info, "recoverInterruptedImports: " + entry.masterPath);
  std::optional<bool> isTargetTidy = tidyTarget(entry, found->empty());
  // Missing pictures might have to be made of the copy.
  if (!isTargetTidy) return false;
  bool isTidy = removeUnfinished(entry) && *isTargetTidy;
  if (found->empty()) return removeFiles(entry) && isTidy;
  if (master && itemExists(master->path()))
    makeMissingPictures(entry, found->front());
  else if ((error = deleteRecords(*found)))
    return tl::unexpected(error);
  return isTidy;
}

/// A text constant of a predicate.
static std::string quoted(const std::string& text) {
  std::string constant = "\"";
  for (char c : text) {
    if (c == '\\' || c == '"') constant += '\\';
    constant += c;
  }
  return constant + '"';
}

std::optional<Array> ImportRecovery::records(const std::string& masterPath, TQErrorPtr* error) const {
  UserPtr user = library_->connection ? library_->connection->user : nullptr;
  Dictionary search{{"page", 0}, {"limit", 100}, {"query", "masterpath == " + quoted(masterPath)}};
  Value answer =
      TQVornexUtil::syncRequestURL(searchURL_, user ? user->id : std::nullopt,
                                   user ? user->password : std::nullopt, "POST", Value(search), error);
  const Value* items = answer.find("items");
  if (!*error && items && items->ifArray()) return *items->ifArray();
  if (!*error) *error = localizedError(10006, "response.error.invalid");
  return std::nullopt;
}

TQErrorPtr ImportRecovery::deleteRecords(const Array& records) const {
  for (const Value& record : records) {
    AssetPtr asset = record.ifDictionary() ? TQAsset::assetWithDictionary(*record.ifDictionary()) : nullptr;
    TQErrorPtr error;
    if (!asset || !library_->deleteAsset(asset, false, &error))
      return error ? error : localizedError(10006, "response.error.invalid");
  }
  return nullptr;
}

// The programs that make pictures are told by plain paths; the walk has found no link on them.
void ImportRecovery::makeMissingPictures(const ImportJournalEntry& entry, const Value& record) const {
  if (!record.ifDictionary()) return;
  std::string source = inPackage(entry.masterPath);
  std::int64_t importType = coerce::integer(record.find("importtype"));
  if (importType == 0) source = TQBookmarkUtil::resolvingAliasFileWithPath(source).value_or(source);
  const std::string thumbnail = inPackage(entry.thumbnailPath), preview = inPackage(entry.previewPath);
  if (item(entry.thumbnailPath) && !itemExists(thumbnail)) writeThumbnail(source, thumbnail);

  bool mayHavePreview = coerce::integer(record.find("type")) == kAssetTypeImage;
  if (!mayHavePreview || !item(entry.previewPath) || itemExists(preview)) return;
  if (!needsPreview(*record.ifDictionary(), importType)) return;
  if (ImagePtr image = previewOfFile(source)) image->saveJPEGWithPath(preview);
}

bool ImportRecovery::removeFiles(const ImportJournalEntry& entry) const {
  bool isGone = true;
  auto note = [&](const Result<void>& removed) {
    if (removed) return;
    isGone = false;
    warn(removed.error());
  };
  for (const std::string& path : {entry.previewPath, entry.masterPath, entry.thumbnailPath})
    if (Result<FolderEntry> found = item(path)) note(removeTree(found->folder.get(), found->name));
  return isGone;
}

static bool removeUnfinishedIn(const FileDescriptor& folder) {
  // A batch under way holds its folders: what is unfinished there may be its own, or of the killed one.
  if (::flock(folder.get(), LOCK_EX | LOCK_NB) != 0) return errno != EWOULDBLOCK;
  auto names = namesInFolder(folder.get(), "a folder of an import");
  if (!names) return false;
  bool isGone = true;
  for (const std::string& name : *names)
    if (isUnfinishedCopy(name) || isUnfinishedWrite(name)) isGone = removeTree(folder.get(), name) && isGone;
  return isGone;
}

bool ImportRecovery::removeUnfinished(const ImportJournalEntry& entry) const {
  bool isGone = true;
  for (const std::string& path : {entry.masterPath, entry.thumbnailPath, entry.previewPath})
    if (Result<FolderEntry> found = item(path)) isGone = removeUnfinishedIn(found->folder) && isGone;
  return isGone;
}

/// Whether what is unfinished beside the copy is gone, and the copy too if it is still the import's.
static bool removeAtTarget(const ImportJournalEntry& entry, bool alsoCopy) {
  const std::string targets = deletingLastPathComponent(entry.targetPath);
  FileDescriptor folder(::open(targets.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  bool isGone = !folder || removeUnfinishedIn(folder);
  bool isOwnCopy = !entry.targetIdentity.empty() && fileIdentity(entry.targetPath) == entry.targetIdentity;
  if (!alsoCopy || !isOwnCopy) return isGone;
  Result<void> removed = removeTree(entry.targetPath);
  if (!removed) warn(removed.error());
  return removed && isGone;
}

std::optional<bool> ImportRecovery::tidyTarget(const ImportJournalEntry& entry, bool alsoCopy) {
  if (entry.targetPath.empty()) return true;
  try {
    auto isGone = patiently([entry, alsoCopy] { return removeAtTarget(entry, alsoCopy); }, lookPatience());
    if (!isGone) warn(posixFailure(ETIMEDOUT, "no answer from " + entry.targetPath).value());
    return isGone;
  } catch (const std::exception& exception) {
    warn(posixFailure(EAGAIN, entry.targetPath + ": " + exception.what()).value());
    return std::nullopt;
  }
}

std::string ImportRecovery::inPackage(const std::string& mediaPath) const {
  return appendPathComponent(*library_->packageFolder, mediaPath);
}

Result<FolderEntry> ImportRecovery::item(const std::string& mediaPath) const {
  return findEntry(*library_->packageFolder, pathComponents(mediaPath));
}

}  // namespace vornex
