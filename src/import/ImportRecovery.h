#pragma once

#include <vornex/TQLibrary.h>

#include <string>

#include "import/ImportJournal.h"

namespace vornex {

/// Settles what the journals of killed imports tell. A record is deleted only when its file is gone, and
/// files are removed only when the server knows no record of them.
///
/// Thread-safety: none; one owner. run() blocks for the server's answers and for missing thumbnails.
class ImportRecovery {
 public:
  /// The URL of the library's asset search.
  ImportRecovery(LibraryPtr library, OptionalString searchURL);

  /// Null when nothing is left to do. Otherwise the journal that failed, and the ones after it, stay.
  TQErrorPtr run();

 private:
  TQErrorPtr settle(const ImportJournalEntry& entry) const;
  /// The records with the master path; absent with the error of the request.
  std::optional<Array> records(const std::string& masterPath, TQErrorPtr* error) const;
  TQErrorPtr deleteRecords(const Array& records) const;
  void makeMissingPictures(const ImportJournalEntry& entry, const Value& record) const;
  void removeFiles(const ImportJournalEntry& entry) const;
  void removeUnfinished(const ImportJournalEntry& entry) const;
  std::string inPackage(const std::string& relative) const;

  const LibraryPtr library_;
  const OptionalString searchURL_;
};

}  // namespace vornex
