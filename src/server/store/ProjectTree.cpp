#include "server/store/ProjectTree.h"

#include <fmt/format.h>
#include <vornex/Log.h>

#include <cerrno>

#include "core/Coercion.h"
#include "core/StorageLayout.h"
#include "foundation/FileLock.h"
#include "foundation/Files.h"
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
  result.set("type", coerce::integer(entries->find("type")));
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

static std::string hashIn(const Dictionary& content) {
  return coerce::string(content.find("hash")).value_or("");
}

static Result<Dictionary> treeIn(const Dictionary& content, const std::string& path) {
  Result<Value> projects = nodes(content.find("projects"), path);
  if (!projects) return tl::unexpected(projects.error());
  return Dictionary{{"hash", hashIn(content)}, {"projects", std::move(*projects)}};
}

ProjectTree::ProjectTree(const std::string& packageFolder)
    : packageFolder_(packageFolder), path_(layout::projectPlist(packageFolder)) {}

Result<Dictionary> ProjectTree::readContent(const FileStamp& stamp) const {
  if (stamp.exists()) return readDictionaryFile(path_);
  // A volume that is not there says nothing about the projects on it.
  if (!itemExists(packageFolder_))
    return serverFailure(StatusCode::databaseNotFound, "The library's package folder is missing.");
  return Dictionary{{"projects", Array()}};
}

Result<ProjectTree::Tree> ProjectTree::read(const FileStamp& stamp) const {
  Result<Dictionary> content = readContent(stamp);
  if (!content) return tl::unexpected(content.error());
  Result<Dictionary> tree = treeIn(*content, path_);
  if (!tree) return tl::unexpected(tree.error());
  return Tree{hashIn(*content), std::make_shared<const std::string>(writeJson(*tree))};
}

Result<ProjectTree::Tree> ProjectTree::current() {
  Result<FileStamp> now = fileStamp(path_);
  if (!now) return tl::unexpected(now.error());
  if (known_ && now->exists() && knownAt_ == *now) return *known_;
  keep(*now, read(*now));
  if (!*known_ && now->exists()) logLine(LogLevel::error, "Cannot read a tree: " + known_->error().message);
  return *known_;
}

void ProjectTree::keep(const FileStamp& stamp, Result<Tree> tree) {
  knownAt_ = stamp;
  knownHash_ = std::make_shared<const std::string>(tree ? tree->hash : "");
  known_ = std::move(tree);
}

Result<std::shared_ptr<const std::string>> ProjectTree::json() {
  std::lock_guard lock(mutex_);
  return current().map([](const Tree& tree) { return tree.json; });
}

std::string ProjectTree::hash() {
  std::unique_lock lock(mutex_, std::try_to_lock);
  if (!lock) {
    if (auto before = knownHash_.load()) return *before;
    lock.lock();
  }
  return current().map([](const Tree& tree) { return tree.hash; }).value_or("");
}

Result<ProjectTree::Change> ProjectTree::change(
    const Expected& expected, const std::function<Result<std::string>(Dictionary& content)>& edit) {
  Result<FileLock> lock = FileLock::acquire(path_);
  if (!lock && lock.error().code == ETIMEDOUT)
    return serverFailure(StatusCode::timedOut, "Another program keeps changing the projects.");
  if (!lock) return tl::unexpected(lock.error());
  std::lock_guard changing(changing_);
  Result<FileStamp> stamp = fileStamp(path_);
  if (!stamp) return tl::unexpected(stamp.error());
  Result<Dictionary> content = readContent(*stamp);
  if (!content) return tl::unexpected(content.error());
  // What cannot be read is not written either.
  if (Result<Dictionary> tree = treeIn(*content, path_); !tree) return tl::unexpected(tree.error());
  if (expected && *expected != hashIn(*content))
    return serverFailure(StatusCode::hashMismatch, "The projects have been changed meanwhile.");
  Result<std::string> id = edit(*content);
  if (!id) return tl::unexpected(id.error());
  std::string hash = md5Hex(makeUUID());
  content->set("hash", hash);
  Result<Dictionary> tree = treeIn(*content, path_);
  if (!tree) return tl::unexpected(tree.error());
  auto json = std::make_shared<const std::string>(writeJson(*tree));
  Result<void> written = writePropertyListFile(path_, *content);
  if (!written) return tl::unexpected(written.error());
  if (Result<FileStamp> now = fileStamp(path_)) {
    std::lock_guard guard(mutex_);
    keep(*now, Tree{hash, std::move(json)});
  }
  return Change{std::move(*id), std::move(hash)};
}

Result<ProjectTree::Change> ProjectTree::create(const std::string& name, const std::string& parentID,
                                                const std::string& dbName, const Expected& expected) {
  return change(expected,
                [&](Dictionary& content) { return projects::create(content, name, parentID, dbName); });
}

Result<ProjectTree::Change> ProjectTree::rename(const std::string& id, const std::string& name,
                                                const Expected& expected) {
  return change(expected, [&](Dictionary& content) {
    return projects::rename(content, id, name).map([&] { return id; });
  });
}

Result<ProjectTree::Change> ProjectTree::move(const std::string& id, const std::string& parentID,
                                              std::int64_t toIndex, const Expected& expected) {
  return change(expected, [&](Dictionary& content) {
    return projects::move(content, id, parentID, toIndex).map([&] { return id; });
  });
}

}  // namespace vornex::server
