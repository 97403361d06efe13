#pragma once

#include <mutex>
#include <string>

#include "foundation/FileStamp.h"

namespace vornex::server {

/// The "hash" of one of a library's trees that the server does not change, as its property list in the
/// package folder has it. Every search page carries it, so the file is read again only when it has changed.
///
/// Thread-safety: safe on any thread.
class TreeHash {
 public:
  explicit TreeHash(std::string path) : path_(std::move(path)) {}

  /// "" when the file is missing, unreadable or has none.
  std::string current();

 private:
  const std::string path_;
  std::mutex mutex_;
  FileStamp readAt_;
  std::string hash_;
};

}  // namespace vornex::server
