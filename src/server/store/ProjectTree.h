#pragma once

#include <vornex/AtomicPtr.h>
#include <vornex/Value.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "foundation/Error.h"
#include "foundation/FileStamp.h"

namespace vornex::server {

/// The projects of a local library, as its package folder's project list holds them. The list is also read
/// and changed by the programs that have the library open: every change starts from what the file holds, and
/// no two programs change it at once.
///
/// Thread-safety: safe on any thread.
class ProjectTree {
 public:
  explicit ProjectTree(const std::string& packageFolder);

  /// {"hash": text, "projects": [nodes]} as JSON; a node is {"id", "name", "dbname", "type"} and, with
  /// children, "group": [nodes]. The file is read again when it has changed. Without a file there are no
  /// projects and the hash is empty. Errors: databaseNotFound when the package folder is missing, too; domain
  /// "plist" for a malformed file.
  [[nodiscard]] Result<std::shared_ptr<const std::string>> json();
  /// The hash alone. "" when there is none, or when the tree cannot be read. While another thread reads a
  /// changed file, the hash before: nobody waits.
  std::string hash();

  /// What a change answers: the identifier of the node and the tree's new hash.
  struct Change {
    std::string id;
    std::string hash;
  };
  /// The hash of the tree that a change was thought up for; absent when the client does not tell.
  using Expected = std::optional<std::string>;
  // The changes of ProjectEdits.h, durable when they return. Further errors: those of json(), and of reading
  // and writing the file; hashMismatch when the tree is not the expected one any more; timedOut when another
  // program does not stop changing it.
  [[nodiscard]] Result<Change> create(const std::string& name, const std::string& parentID,
                                      const std::string& dbName, const Expected& expected = {});
  [[nodiscard]] Result<Change> rename(const std::string& id, const std::string& name,
                                      const Expected& expected = {});
  [[nodiscard]] Result<Change> move(const std::string& id, const std::string& parentID, std::int64_t toIndex,
                                    const Expected& expected = {});

 private:
  /// The edit gives the identifier of the changed node.
  [[nodiscard]] Result<Change> change(const Expected& expected,
                                      const std::function<Result<std::string>(Dictionary& content)>& edit);
  struct Tree {
    std::string hash;
    std::shared_ptr<const std::string> json;
  };
  /// Needs mutex_.
  [[nodiscard]] Result<Tree> current();
  void keep(const FileStamp& stamp, Result<Tree> tree);
  [[nodiscard]] Result<Tree> read(const FileStamp& stamp) const;
  [[nodiscard]] Result<Dictionary> readContent(const FileStamp& stamp) const;

  const std::string packageFolder_;
  const std::string path_;
  /// Held over a change, for file systems without locks. Taken before mutex_.
  std::mutex changing_;
  /// Held while the file is read.
  std::mutex mutex_;
  /// The file as it was last read or written, and what came of it.
  FileStamp knownAt_;
  std::optional<Result<Tree>> known_;
  /// The hash of that; null before the first.
  AtomicPtr<const std::string> knownHash_;
};

}  // namespace vornex::server
