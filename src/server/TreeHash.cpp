#include "server/TreeHash.h"

#include <vornex/Log.h>

#include "core/Coercion.h"
#include "foundation/PropertyList.h"

namespace vornex::server {

std::string TreeHash::current() {
  std::lock_guard lock(mutex_);
  Result<FileStamp> now = fileStamp(path_);
  if (!now || !now->exists()) {
    readAt_ = {};
    return "";
  }
  if (readAt_ == *now) return hash_;
  auto tree = readDictionaryFile(path_);
  if (!tree) logLine(LogLevel::error, "Cannot read a tree: " + tree.error().message);
  hash_ = tree ? coerce::string(tree->find("hash")).value_or("") : "";
  readAt_ = *now;
  return hash_;
}

}  // namespace vornex::server
