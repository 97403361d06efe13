#include "model/TreeFile.h"

#include <fmt/format.h>

#include "core/Coercion.h"
#include "foundation/FileLock.h"
#include "foundation/PropertyList.h"

namespace vornex {

static constexpr const char* kHashKey = "hash";

static std::string hashIn(const Dictionary& content) {
  return coerce::string(content.find(kHashKey)).value_or("");
}

static Result<Dictionary> readContent(const std::string& path, const TreeForm& form) {
  Result<Dictionary> content = readDictionaryFile(path);
  if (content && !isTree(content->find(form.childrenKey), *form.children))
    return failure("plist", 0,
                   fmt::format("{}: the list of {} is missing or not whole", path, form.childrenKey));
  return content;
}

Result<std::optional<TreeFile::Tree>> TreeFile::read() {
  Result<FileStamp> now = stamp();
  if (!now) return tl::unexpected(now.error());
  if (!now->exists()) return std::nullopt;
  Result<Dictionary> content = readContent(path_, form_);
  if (!content) return tl::unexpected(content.error());
  base_ = *now;
  return Tree{coerce::array(content->find(listKey())), hashIn(*content)};
}

Result<TreeFile::Saved> TreeFile::save(Array nodes, const std::string& madeFrom, const std::string& hash) {
  Result<FileLock> lock = FileLock::acquire(path_);
  if (!lock) return tl::unexpected(lock.error());
  Result<FileStamp> now = stamp();
  if (!now) return tl::unexpected(now.error());
  Dictionary content;
  if (now->exists()) {
    // Read even when the stamp is the known one: a quick change need not show in it.
    Result<Dictionary> read = readContent(path_, form_);
    if (!read) return tl::unexpected(read.error());
    if (hashIn(*read) != madeFrom || (base_ && base_ != *now)) return Saved::overtaken;
    content = std::move(*read);
  }
  content.set(listKey(), std::move(nodes));
  content.set(kHashKey, hash);
  Result<void> written = writePropertyListFile(path_, content);
  if (!written) return tl::unexpected(written.error());
  now = stamp();
  if (!now) return tl::unexpected(now.error());
  base_ = *now;
  return Saved::yes;
}

}  // namespace vornex
