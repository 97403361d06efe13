#include "server/store/ProjectTree.h"

#include <fmt/format.h>

#include <cerrno>

#include "core/StorageLayout.h"
#include "foundation/FileLock.h"
#include "foundation/Json.h"
#include "foundation/PropertyList.h"
#include "foundation/Text.h"
#include "server/ServerError.h"
#include "server/store/ProjectEdits.h"

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

static Result<Dictionary> treeIn(const Dictionary& content, const std::string& path) {
  const Value* hash = content.find("hash");
  Result<Value> projects = nodes(content.find("projects"), path);
  if (!projects) return tl::unexpected(projects.error());
  return Dictionary{{"hash", hash && hash->ifString() ? *hash : Value("")},
                    {"projects", std::move(*projects)}};
}

/// An empty list when there is no file.
static Result<Dictionary> readContent(const std::string& path, const FileStamp& stamp) {
  if (!stamp.exists()) return Dictionary{{"projects", Array()}};
  return readDictionaryFile(path);
}

ProjectTree::ProjectTree(const std::string& packageFolder) : path_(layout::projectPlist(packageFolder)) {}

Result<std::shared_ptr<const std::string>> ProjectTree::json() {
  std::lock_guard lock(mutex_);
  Result<FileStamp> now = fileStamp(path_);
  if (!now) return tl::unexpected(now.error());
  if (json_ && known_ == *now) return json_;
  json_.reset();
  Result<Dictionary> content = readContent(path_, *now);
  if (!content) return tl::unexpected(content.error());
  Result<Dictionary> tree = treeIn(*content, path_);
  if (!tree) return tl::unexpected(tree.error());
  json_ = std::make_shared<const std::string>(writeJson(*tree));
  known_ = *now;
  return json_;
}

Result<ProjectTree::Change> ProjectTree::change(
    const std::function<Result<std::string>(Dictionary& content)>& edit) {
  Result<FileLock> lock = FileLock::acquire(path_);
  if (!lock && lock.error().code == ETIMEDOUT)
    return serverFailure(StatusCode::timedOut, "Another program keeps changing the projects.");
  if (!lock) return tl::unexpected(lock.error());
  Result<FileStamp> stamp = fileStamp(path_);
  if (!stamp) return tl::unexpected(stamp.error());
  Result<Dictionary> content = readContent(path_, *stamp);
  if (!content) return tl::unexpected(content.error());
  // What cannot be read is not written either.
  if (Result<Dictionary> tree = treeIn(*content, path_); !tree) return tl::unexpected(tree.error());
  Result<std::string> id = edit(*content);
  if (!id) return tl::unexpected(id.error());
  std::string hash = md5Hex(makeUUID());
  content->set("hash", hash);
  Result<void> written = writePropertyListFile(path_, *content);
  if (!written) return tl::unexpected(written.error());
  return Change{std::move(*id), std::move(hash)};
}

Result<ProjectTree::Change> ProjectTree::create(const std::string& name, const std::string& parentID,
                                                const std::string& dbName) {
  return change([&](Dictionary& content) { return projects::create(content, name, parentID, dbName); });
}

Result<ProjectTree::Change> ProjectTree::rename(const std::string& id, const std::string& name) {
  return change(
      [&](Dictionary& content) { return projects::rename(content, id, name).map([&] { return id; }); });
}

Result<ProjectTree::Change> ProjectTree::move(const std::string& id, const std::string& parentID,
                                              std::int64_t toIndex) {
  return change([&](Dictionary& content) {
    return projects::move(content, id, parentID, toIndex).map([&] { return id; });
  });
}

}  // namespace vornex::server
