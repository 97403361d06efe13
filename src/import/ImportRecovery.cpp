#include "import/ImportRecovery.h"

#include <fcntl.h>
#include <sys/file.h>
#include <vornex/Log.h>
#include <vornex/TQAsset.h>
#include <vornex/TQBookmarkUtil.h>
#include <vornex/TQConnection.h>
#include <vornex/TQUser.h>
#include <vornex/TQVornexUtil.h>

#include <filesystem>
#include <set>

#include "core/Coercion.h"
#include "core/SdkError.h"
#include "foundation/FileDescriptor.h"
#include "foundation/Files.h"
#include "import/FileFacts.h"
#include "import/PackagePath.h"
#include "import/Thumbnail.h"
#include "platform/FileCopy.h"

namespace vornex {

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
  std::vector<FoundJournal> journals = FoundJournal::inFolder(importJournalFolder(*library_->packageFolder));
  std::set<std::string> inUse;
  for (const FoundJournal& journal : journals)
    if (journal.isRunning())
      for (const ImportJournalEntry& entry : journal.pending()) inUse.insert(entry.masterPath);

  for (FoundJournal& journal : journals) {
    if (journal.isRunning()) continue;
    for (const ImportJournalEntry& entry : journal.pending()) {
      if (inUse.contains(entry.masterPath)) continue;
      if (TQErrorPtr failure = settle(entry)) return failure;
    }
    if (!journal.mayGetRecords()) journal.remove();
  }
  return nullptr;
}

TQErrorPtr ImportRecovery::settle(const ImportJournalEntry& entry) const {
  TQErrorPtr error;
  std::optional<Array> found = records(entry.masterPath, &error);
  if (!found) return error;
  logLine(LogLevel::info, "recoverInterruptedImports: " + entry.masterPath);
  removeUnfinished(entry);
  if (found->empty()) {
    removeFiles(entry);
    return nullptr;
  }
  if (!itemExists(inPackage(entry.masterPath))) return deleteRecords(*found);
  makeMissingPictures(entry, found->front());
  return nullptr;
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

void ImportRecovery::makeMissingPictures(const ImportJournalEntry& entry, const Value& record) const {
  if (!record.ifDictionary()) return;
  std::string source = inPackage(entry.masterPath);
  std::int64_t importType = coerce::integer(record.find("importtype"));
  if (importType == 0) source = TQBookmarkUtil::resolvingAliasFileWithPath(source).value_or(source);
  const std::string thumbnail = inPackage(entry.thumbnailPath);
  if (!itemExists(thumbnail)) writeThumbnail(source, thumbnail);

  bool mayHavePreview = coerce::integer(record.find("type")) == kAssetTypeImage && !entry.previewPath.empty();
  if (!mayHavePreview || itemExists(inPackage(entry.previewPath))) return;
  if (!needsPreview(*record.ifDictionary(), importType)) return;
  if (ImagePtr image = previewOfFile(source)) image->saveJPEGWithPath(inPackage(entry.previewPath));
}

void ImportRecovery::removeFiles(const ImportJournalEntry& entry) const {
  for (const std::string& path : {entry.previewPath, entry.masterPath, entry.thumbnailPath}) {
    std::error_code failed;
    if (!path.empty()) std::filesystem::remove_all(inPackage(path), failed);
    if (failed) logLine(LogLevel::warning, "recoverInterruptedImports: " + path + ": " + failed.message());
  }
  bool isOwnCopy = !entry.targetIdentity.empty() && fileIdentity(entry.targetPath) == entry.targetIdentity;
  std::error_code ignored;
  if (isOwnCopy) std::filesystem::remove_all(entry.targetPath, ignored);
}

void ImportRecovery::removeUnfinished(const ImportJournalEntry& entry) const {
  std::set<std::string> folders;
  for (const std::string& path : {entry.masterPath, entry.thumbnailPath, entry.previewPath})
    if (!path.empty()) folders.insert(deletingLastPathComponent(inPackage(path)));
  if (!entry.targetPath.empty()) folders.insert(deletingLastPathComponent(entry.targetPath));

  for (const std::string& folder : folders) {
    FileDescriptor claim(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    // A batch under way holds its folders: what is unfinished there is its own.
    if (!claim || ::flock(claim.get(), LOCK_EX | LOCK_NB) != 0) continue;
    std::error_code failed;
    std::vector<std::filesystem::path> unfinished;
    for (std::filesystem::directory_iterator item(folder, failed), end; !failed && item != end;
         item.increment(failed)) {
      std::string name = item->path().filename().string();
      if (isUnfinishedCopy(name) || isUnfinishedWrite(name)) unfinished.push_back(item->path());
    }
    for (const std::filesystem::path& path : unfinished) std::filesystem::remove_all(path, failed);
  }
}

std::string ImportRecovery::inPackage(const std::string& relative) const {
  return appendPathComponent(*library_->packageFolder, relative);
}

}  // namespace vornex
