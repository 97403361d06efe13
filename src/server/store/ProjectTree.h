#pragma once

#include <vornex/Value.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
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
  /// children, "group": [nodes]. The file is read again when it has changed. Without a file, or a package
  /// folder, there are no projects and the hash is empty. A malformed file is an error of domain "plist".
  [[nodiscard]] Result<std::shared_ptr<const std::string>> json();

  /// What a change answers: the identifier of the node and the tree's new hash.
  struct Change {
    std::string id;
    std::string hash;
  };
  // The changes of ProjectEdits.h, durable when they return. Further errors: those of reading and writing the
  // file, timedOut when another program does not stop changing it.
  [[nodiscard]] Result<Change> create(const std::string& name, const std::string& parentID,
                                      const std::string& dbName);
  [[nodiscard]] Result<Change> rename(const std::string& id, const std::string& name);
  [[nodiscard]] Result<Change> move(const std::string& id, const std::string& parentID, std::int64_t toIndex);

 private:
  /// The edit gives the identifier of the changed node.
  [[nodiscard]] Result<Change> change(const std::function<Result<std::string>(Dictionary& content)>& edit);

  const std::string path_;
  std::mutex mutex_;
  FileStamp known_;
  std::shared_ptr<const std::string> json_;
};

}  // namespace vornex::server
