#include "server/store/ProjectTree.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <cerrno>

#include "core/StorageLayout.h"
#include "foundation/PropertyList.h"

namespace vornex::server {

static tl::unexpected<Error> malformed(const std::string& path, const std::string& what) {
  return failure("plist", 0, fmt::format("{}: {}", path, what));
}

static Result<Value> nodes(const Value* list, const std::string& path);

static Result<Value> node(const Value& source, const std::string& path) {
  const Dictionary* entries = source.ifDictionary();
  if (!entries) return malformed(path, "a project is no dictionary");
  Dictionary result;
  for (const char* key : {"id", "name", "dbname"}) {
    const Value* text = entries->find(key);
    if (!text || !text->ifString()) return malformed(path, fmt::format("a project has no {}", key));
    result.set(key, *text);
  }
  const Value* type = entries->find("type");
  result.set("type", type && type->ifInteger() ? *type : Value(-1));
  if (const Value* group = entries->find("group")) {
    Result<Value> children = nodes(group, path);
    if (!children) return children;
    result.set("group", std::move(*children));
  }
  return result;
}

static Result<Value> nodes(const Value* list, const std::string& path) {
  const Array* sources = list ? list->ifArray() : nullptr;
  if (!sources) return malformed(path, "there is no list of projects");
  Array result;
  for (const Value& source : *sources) {
    Result<Value> made = node(source, path);
    if (!made) return made;
    result.push_back(std::move(*made));
  }
  return result;
}

static Result<Dictionary> readTree(const std::string& path) {
  Result<Dictionary> file = readDictionaryFile(path);
  if (!file) return file;
  const Value* hash = file->find("hash");
  Result<Value> projects = nodes(file->find("projects"), path);
  if (!projects) return tl::unexpected(projects.error());
  return Dictionary{{"hash", hash && hash->ifString() ? *hash : Value("")},
                    {"projects", std::move(*projects)}};
}

ProjectTree::ProjectTree(const std::string& packageFolder) : path_(layout::projectPlist(packageFolder)) {}

Result<std::optional<ProjectTree::Stamp>> ProjectTree::stamp() const {
  struct stat status {};
  if (::stat(path_.c_str(), &status) == 0) {
    std::int64_t nanoseconds = std::int64_t{status.st_mtim.tv_sec} * 1'000'000'000 + status.st_mtim.tv_nsec;
    return Stamp{status.st_ino, status.st_size, nanoseconds};
  }
  if (errno == ENOENT || errno == ENOTDIR) return std::nullopt;
  return posixFailure(errno, "cannot read " + path_);
}

Result<Dictionary> ProjectTree::tree() {
  std::lock_guard lock(mutex_);
  // Taken before reading: a change in between only makes the file be read once more.
  Result<std::optional<Stamp>> now = stamp();
  if (!now) return tl::unexpected(now.error());
  if (!*now) {
    known_.reset();
    return Dictionary{{"hash", ""}, {"projects", Array()}};
  }
  if (known_ == *now) return tree_;
  known_.reset();
  Result<Dictionary> read = readTree(path_);
  if (!read) return read;
  known_ = *now;
  tree_ = *read;
  return read;
}

}  // namespace vornex::server
