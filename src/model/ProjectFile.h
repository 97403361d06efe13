#pragma once

#include <vornex/Value.h>

#include <functional>

#include "foundation/Error.h"
#include "foundation/FileStamp.h"

namespace vornex {

/// The project list in a package folder, as one program's copy of the tree relates to it: what the copy was
/// made from is not overwritten when another program has changed it meanwhile.
///
/// Thread-safety: none; as the tree.
class ProjectFile {
 public:
  explicit ProjectFile(std::string path) : path_(std::move(path)) {}

  const std::string& path() const { return path_; }

  /// The file's state now.
  [[nodiscard]] Result<FileStamp> stamp() const { return fileStamp(path_); }
  /// From now on the copy is the tree that the file had in this state.
  void setBase(const FileStamp& stamp) { base_ = stamp; }
  /// The same for the state in which it was last read.
  void setBaseToRead() { base_ = known_; }
  bool hasBase() const { return base_.has_value(); }

  /// The nodes of the file if it is new or has changed since it was last read or written, else absent.
  /// Domains "posix" and "plist".
  [[nodiscard]] Result<std::optional<Array>> readChanged();

  enum class Saved { yes, overtaken };
  /// Writes the tree with its hash and the file's other keys. `overtaken`, and nothing is written, when the
  /// file is not what the copy was made from. A file that is gone has nothing to lose.
  [[nodiscard]] Result<Saved> save(Array nodes, const std::string& hash);

 private:
  std::string path_;
  /// What the copy was made from; absent while that is unknown.
  std::optional<FileStamp> base_;
  /// The state in which the file was last read or written, and its keys that are not the tree's.
  std::optional<FileStamp> known_;
  Dictionary otherKeys_;
};

}  // namespace vornex
