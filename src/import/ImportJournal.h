#pragma once

#include <vornex/Value.h>

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "foundation/Error.h"
#include "foundation/FileDescriptor.h"

namespace vornex {

/// The files that one import is about to place.
struct ImportJournalEntry {
  /// Relative to the package folder, as in the asset's record. The preview path is empty for no preview.
  std::string masterPath;
  std::string thumbnailPath;
  std::string previewPath;
  /// Absolute path of the copy that a reference will point at; empty for none.
  std::string targetPath;
  /// Which item that copy is, by fileIdentity(), from just before it appears; empty earlier.
  std::string targetIdentity = {};

  bool operator==(const ImportJournalEntry&) const = default;
};

/// What an import has begun and not yet ended, kept on disk so that a killed import can be tidied up: a file
/// of its own per batch, held with flock(2) as long as the batch runs. A file that nobody holds was left
/// behind.
///
/// One JSON object a line: {"begin": entry}, {"placed": masterpath, "identity": text}, {"lost": masterpath,
/// "time": seconds} or {"end": masterpath}; a line that broke off counts as not written.
///
/// Thread-safety: safe on any thread.
class ImportJournal {
 public:
  /// Nothing is written before the first begin().
  explicit ImportJournal(std::string folder);
  /// Closes.
  ~ImportJournal();
  ImportJournal(const ImportJournal&) = delete;
  ImportJournal& operator=(const ImportJournal&) = delete;

  /// Returns when the entry is on disk. Domain "posix".
  [[nodiscard]] Result<void> begin(const ImportJournalEntry& entry);
  /// The copy is whole and about to appear at the entry's target path. Does not wait for the disk.
  void markPlaced(const std::string& masterPath, const std::string& targetIdentity);
  /// Does not wait for the disk: an entry that comes back is found to be complete. An unknown path is
  /// ignored.
  void end(const std::string& masterPath);

  /// Lets go of the file: removed when everything has ended, else left behind.
  void close();

  /// The server may still make the record of a pending entry, though its client has given up waiting.
  void markLost(const std::string& masterPath);

  bool isPending(const std::string& masterPath) const;
  bool hasPending() const;

 private:
  Result<void> open();
  Result<void> append(const Dictionary& line);
  /// Adds a line about a pending entry.
  void note(const std::string& masterPath, const Dictionary& line);

  const std::string folder_;
  mutable std::mutex mutex_;
  std::string path_;
  FileDescriptor file_;
  std::map<std::string, ImportJournalEntry> pending_;
};

/// The entries of a journal's text that have begun and not ended, by path.
std::vector<ImportJournalEntry> pendingEntries(std::string_view journal);

/// A journal file as recovery finds it.
///
/// Thread-safety: none; one owner.
class FoundJournal {
 public:
  /// The journals in the folder; an absent folder has none.
  static std::vector<FoundJournal> inFolder(const std::string& folder);

  /// Whether the import that writes it still runs; otherwise it is held by this object now.
  bool isRunning() const { return running_; }
  const std::vector<ImportJournalEntry>& pending() const { return pending_; }
  /// Whether a record may still come for an entry that has been looked at: the journal is kept for another
  /// look, when no request can be under way any more.
  bool mayGetRecords() const;
  /// Deletes the file.
  void remove();

 private:
  FoundJournal() = default;

  std::string path_;
  FileDescriptor file_;
  bool running_ = false;
  /// Seconds since 1970 of the last answer that was lost.
  std::int64_t lostAt_ = 0;
  std::vector<ImportJournalEntry> pending_;
};

}  // namespace vornex
