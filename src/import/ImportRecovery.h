#pragma once

#include <vornex/TQLibrary.h>

#include <optional>
#include <string>

#include "import/ImportJournal.h"
#include "platform/OpenFolders.h"

namespace vornex {

/// Settles what the journals of killed imports tell. A record is deleted only when its file is gone, and
/// files are removed only when the server knows no record of them. A package may come from anywhere: nothing
/// in it is reached through a link.
///
/// Thread-safety: none; one owner. run() blocks for the server's answers and for missing thumbnails.
class ImportRecovery {
 public:
  /// The URL of the library's asset search.
  ImportRecovery(LibraryPtr library, OptionalString searchURL);

  /// The server's refusal, and then the journal that failed and the ones after it stay. A journal with
  /// something that cannot be settled yet stays too.
  TQErrorPtr run();

 private:
  /// Whether nothing is left to do for the entry; else the request's error.
  tl::expected<bool, TQErrorPtr> settle(const ImportJournalEntry& entry) const;
  /// The records with the master path; absent with the error of the request.
  std::optional<Array> records(const std::string& masterPath, TQErrorPtr* error) const;
  TQErrorPtr deleteRecords(const Array& records) const;
  void makeMissingPictures(const ImportJournalEntry& entry, const Value& record) const;
  // Whether they are gone; not so while another import holds the folder.
  bool removeFiles(const ImportJournalEntry& entry) const;
  bool removeUnfinished(const ImportJournalEntry& entry) const;
  /// Absent when the disk of the target does not answer.
  static std::optional<bool> tidyTarget(const ImportJournalEntry& entry, bool alsoCopy);
  std::string inPackage(const std::string& mediaPath) const;
  /// ENOTDIR when a link leads to it.
  Result<FolderEntry> item(const std::string& mediaPath) const;

  const LibraryPtr library_;
  const OptionalString searchURL_;
};

}  // namespace vornex
