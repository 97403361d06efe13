#include "server/TreeHash.h"

#include <vornex/Log.h>

#include "core/Coercion.h"
#include "foundation/PropertyList.h"

namespace vornex::server {
namespace {

bool isUnchanged(const struct ::stat& before, const struct ::stat& now) {
  auto same = [](const timespec& a, const timespec& b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
  };
  return before.st_dev == now.st_dev && before.st_ino == now.st_ino && before.st_size == now.st_size &&
         same(before.st_mtim, now.st_mtim) && same(before.st_ctim, now.st_ctim);
}

}  // namespace

std::string TreeHash::current() {
  std::lock_guard lock(mutex_);
  struct ::stat now {};
  if (::stat(path_.c_str(), &now) != 0) {
    readAt_.reset();
    return "";
  }
  if (readAt_ && isUnchanged(*readAt_, now)) return hash_;
  auto tree = readDictionaryFile(path_);
  if (!tree) logLine(LogLevel::error, "Cannot read a tree: " + tree.error().message);
  hash_ = tree ? coerce::string(tree->find("hash")).value_or("") : "";
  readAt_ = now;
  return hash_;
}

}  // namespace vornex::server
