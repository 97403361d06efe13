#include "model/ProjectFile.h"

#include "core/Coercion.h"
#include "foundation/FileLock.h"
#include "foundation/PropertyList.h"

namespace vornex {

static constexpr const char* kProjectsKey = "projects";
static constexpr const char* kHashKey = "hash";

Result<std::optional<Array>> ProjectFile::readChanged() {
  Result<FileStamp> now = stamp();
  if (!now) return tl::unexpected(now.error());
  if (known_ == *now) return std::nullopt;
  Dictionary content;
  if (now->exists()) {
    Result<Dictionary> read = readDictionaryFile(path_);
    if (!read) return tl::unexpected(read.error());
    content = std::move(*read);
  }
  Array nodes = coerce::array(content.find(kProjectsKey));
  content.erase(kProjectsKey);
  otherKeys_ = std::move(content);
  known_ = *now;
  return nodes;
}

Result<ProjectFile::Saved> ProjectFile::save(Array nodes, const std::string& hash) {
  Result<FileLock> lock = FileLock::acquire(path_);
  if (!lock) return tl::unexpected(lock.error());
  if (Result<std::optional<Array>> read = readChanged(); !read) return tl::unexpected(read.error());
  if (base_ && known_->exists() && base_ != known_) return Saved::overtaken;
  Dictionary content = otherKeys_;
  content.set(kProjectsKey, std::move(nodes));
  content.set(kHashKey, hash);
  Result<void> written = writePropertyListFile(path_, content);
  if (!written) return tl::unexpected(written.error());
  Result<FileStamp> now = stamp();
  if (!now) return tl::unexpected(now.error());
  base_ = known_ = *now;
  return Saved::yes;
}

}  // namespace vornex
