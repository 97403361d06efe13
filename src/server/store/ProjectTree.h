#pragma once

#include <sys/types.h>
#include <vornex/Value.h>

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

#include "foundation/Error.h"

namespace vornex::server {

/// The projects of a local library, as its package folder's project list holds them.
///
/// Thread-safety: safe on any thread.
class ProjectTree {
 public:
  explicit ProjectTree(const std::string& packageFolder);

  /// {"hash": text, "projects": [nodes]}; a node is {"id", "name", "dbname", "type"} and, with children,
  /// "group": [nodes]. The file is read again when it has changed. Without a file, or a package folder, there
  /// are no projects and the hash is empty. A malformed file is an error of domain "plist".
  [[nodiscard]] Result<Dictionary> tree();

 private:
  // What tells one state of the file from another.
  struct Stamp {
    ino_t inode;
    off_t size;
    std::int64_t modified;
    bool operator==(const Stamp&) const = default;
  };

  [[nodiscard]] Result<std::optional<Stamp>> stamp() const;

  const std::string path_;
  std::mutex mutex_;
  std::optional<Stamp> known_;
  Dictionary tree_;
};

}  // namespace vornex::server
