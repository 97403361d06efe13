#include "server/TreeFile.h"

#include <vornex/Log.h>

#include <cerrno>

#include "core/Coercion.h"
#include "foundation/PropertyList.h"

namespace vornex::server {
namespace {

bool sameFile(const struct ::stat& a, const struct ::stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
         a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec &&
         a.st_ctim.tv_sec == b.st_ctim.tv_sec && a.st_ctim.tv_nsec == b.st_ctim.tv_nsec;
}

}  // namespace

Result<std::shared_ptr<const Dictionary>> TreeFile::document() {
  std::lock_guard lock(mutex_);
  struct ::stat current {};
  if (::stat(path_.c_str(), &current) != 0) {
    readAt_.reset();
    if (errno == ENOENT || errno == ENOTDIR) return std::make_shared<const Dictionary>();
    return posixFailure(errno, "Cannot examine " + path_);
  }
  if (readAt_ && sameFile(*readAt_, current)) return document_;
  auto read = readDictionaryFile(path_);
  readAt_ = current;
  if (read) {
    document_ = std::make_shared<const Dictionary>(std::move(*read));
  } else {
    logLine(LogLevel::error, "Cannot read " + path_ + ": " + read.error().message);
    document_ = tl::unexpected(read.error());
  }
  return document_;
}

std::string TreeFile::hash() {
  auto tree = document();
  return tree ? coerce::string((*tree)->find("hash")).value_or("") : "";
}

}  // namespace vornex::server
