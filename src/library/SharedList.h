#pragma once

#include <vornex/Value.h>

#include <functional>
#include <string>

#include "foundation/Error.h"

namespace vornex {

/// A list of records in a property-list file that other processes change as well.
///
/// It remembers the records of this process as they were when the file was last read or written, so that a
/// save carries over what has changed here and leaves the rest as others have left it: see ListMerge.h. When
/// the file holds no such list any more (it is gone, or was damaged and set aside), a save writes all of
/// ours.
///
/// Thread-safety: none; one owner. Everything blocks on the file system.
class SharedList {
 public:
  struct Form {
    std::string path;
    /// The key of the array.
    std::string rows;
    /// The key of the text that names a record.
    std::string identity;
    unsigned mode = 0644;
    /// Whether a save keeps rows that have no name.
    bool keepsNamelessRows = true;
  };

  explicit SharedList(Form form) : form_(std::move(form)) {}

  /// Hands over the file's rows in their order. `take` says whether a row is a record of ours from now on: a
  /// save may then change it or, when it is not among our rows, remove it. No rows when there is no file; an
  /// error when it cannot be read, and none of its rows is ours then.
  [[nodiscard]] Result<void> load(const std::function<bool(const Value& row)>& take);

  /// Merges our rows, and the other entries of the file as given, into the file. Domains as for
  /// changeDictionaryFile.
  [[nodiscard]] Result<void> save(Array ours, const Dictionary& otherEntries = {});

  /// The record is ours anew: the next save writes it even if another process has removed it.
  void claim(const std::string& name);

  /// The record's row as it was when the file was last read or written; null when unknown.
  const Value* knownRow(const std::string& name) const;

 private:
  Form form_;
  Array known_;
};

}  // namespace vornex
