#pragma once

#include <vornex/Value.h>

#include "core/TreeForm.h"
#include "foundation/Error.h"
#include "foundation/FileStamp.h"

namespace vornex {

/// The file of a tree in a package folder, as one program's copy of the tree relates to it: what the copy was
/// made from is not overwritten when another program has changed it meanwhile. Whoever changes the tree gives
/// it a new hash; the file's stamp, where it is known, also tells changes that did not.
///
/// Thread-safety: none; as the tree.
class TreeFile {
 public:
  TreeFile(std::string path, const TreeForm& form) : path_(std::move(path)), form_(form) {}

  const std::string& path() const { return path_; }
  /// The key of the tree in the file and in the server's answers.
  const char* listKey() const { return form_.childrenKey; }

  /// The file's state now.
  [[nodiscard]] Result<FileStamp> stamp() const { return fileStamp(path_); }
  /// From now on the copy is the tree that the file had in this state.
  void setBase(const FileStamp& stamp) { base_ = stamp; }

  struct Tree {
    Array nodes;
    std::string hash;
  };
  /// The file's tree, which is the copy from now on; absent without a file. A list that is not of the form is
  /// an error: written again it would lose nodes. Domains "posix" and "plist".
  [[nodiscard]] Result<std::optional<Tree>> read();

  enum class Saved { yes, overtaken };
  /// Writes the tree with a new hash and the file's other keys. `overtaken`, and nothing is written, when the
  /// file is not what the copy was made from: it has another hash than `madeFrom`, or another stamp. A file
  /// that is gone has nothing to lose. Errors as of read().
  [[nodiscard]] Result<Saved> save(Array nodes, const std::string& madeFrom, const std::string& hash);

 private:
  std::string path_;
  const TreeForm& form_;
  /// Absent while only the hash tells what the copy was made from.
  std::optional<FileStamp> base_;
};

}  // namespace vornex
