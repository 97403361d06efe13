#pragma once

#include <sys/stat.h>
#include <vornex/Value.h>

#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "foundation/Error.h"

namespace vornex::server {

/// One tree of a library as its package folder keeps it: a property list that carries a "hash". The file is
/// read again only when it has changed.
///
/// Thread-safety: safe on any thread.
class TreeFile {
 public:
  explicit TreeFile(std::string path) : path_(std::move(path)) {}

  /// The whole file; an empty dictionary when there is none.
  [[nodiscard]] Result<std::shared_ptr<const Dictionary>> document();

  /// "" when the file is missing, unreadable or has none.
  std::string hash();

 private:
  const std::string path_;
  std::mutex mutex_;
  std::optional<struct ::stat> readAt_;
  Result<std::shared_ptr<const Dictionary>> document_;
};

}  // namespace vornex::server
