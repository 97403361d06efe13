#include <unistd.h>
#include <vornex/Log.h>
#include <vornex/TQBookmarkUtil.h>

#include <algorithm>

#include "core/Coercion.h"
#include "core/StorageLayout.h"
#include "foundation/Files.h"
#include "foundation/PropertyList.h"
#include "foundation/SharedDictionaryFile.h"
#include "foundation/Text.h"
#include "library/ListMerge.h"
#include "platform/FolderAccess.h"
#include "platform/Volumes.h"

namespace vornex {
namespace {

constexpr const char* kFileVersion = "2.0";

std::optional<Data> dataOf(const Dictionary& dictionary, const char* key) {
  const Value* value = dictionary.find(key);
  if (!value || !value->ifData()) return std::nullopt;
  return *value->ifData();
}

Value dataOrEmpty(const std::optional<Data>& data) {
  return data ? Value(*data) : Value("");
}

Array storedBookmarks() {
  auto file = readDictionaryFile(layout::bookmarkPlist());
  return file ? coerce::array(file->find("bookmark")) : Array();
}

std::optional<TQBookmark> bookmarkOf(const Value& entry) {
  const Dictionary* dictionary = entry.ifDictionary();
  return dictionary ? TQBookmark::bookmarkWithDictionary(*dictionary) : std::nullopt;
}

bool logUnlessDone(const Result<void>& written) {
  if (!written) logLine(LogLevel::error, written.error().message);
  return written.has_value();
}

// "/", "/a", "/a/b", ... up to the path itself.
std::vector<std::string> prefixesOf(const std::string& path) {
  std::vector<std::string> prefixes;
  if (path.starts_with('/')) prefixes.emplace_back("/");
  for (std::size_t start = 0; start < path.size();) {
    std::size_t end = std::min(path.find('/', start), path.size());
    if (end > start)
      prefixes.push_back(
          appendPathComponent(prefixes.empty() ? "" : prefixes.back(), path.substr(start, end - start)));
    start = end + 1;
  }
  return prefixes;
}

}  // namespace

std::optional<TQBookmark> TQBookmark::bookmarkWithDictionary(const Dictionary& dictionary) {
  TQBookmark bookmark{coerce::string(dictionary.find("filepath")), dataOf(dictionary, "bookmarkdata"),
                      dataOf(dictionary, "bookmarkminimaldata")};
  if (!bookmark.bookmarkData || !bookmark.bookmarkMinimalData) return std::nullopt;
  return bookmark;
}

Dictionary TQBookmark::bookmarkDictionary() const {
  return {{"filepath", filePath.value_or("")},
          {"bookmarkdata", dataOrEmpty(bookmarkData)},
          {"bookmarkminimaldata", dataOrEmpty(bookmarkMinimalData)}};
}

TQBookmarkUtil& TQBookmarkUtil::sharedInstance() {
  static auto* instance = new TQBookmarkUtil;
  return *instance;
}

std::shared_ptr<const TQBookmarkUtil::List> TQBookmarkUtil::bookmarks() const {
  std::lock_guard lock(listMutex_);
  return bookmarks_;
}

void TQBookmarkUtil::publish(List list) {
  auto next = std::make_shared<const List>(std::move(list));
  std::lock_guard lock(listMutex_);
  bookmarks_.swap(next);
}

void TQBookmarkUtil::append(TQBookmark bookmark) {
  List list = *bookmarks();
  list.push_back(std::move(bookmark));
  publish(std::move(list));
}

std::vector<TQBookmark> TQBookmarkUtil::loadBookmarks() {
  std::lock_guard lock(monitor_);
  publish({});
  auto file = readDictionaryFile(layout::bookmarkPlist());
  if (!file) return {};
  savedEntries_ = coerce::array(file->find("bookmark"));
  for (const Value& entry : savedEntries_) {
    auto bookmark = bookmarkOf(entry);
    if (!bookmark) {
      logLine(LogLevel::error, "loadBookmarks exception:an entry is no bookmark");
      return *bookmarks();
    }
    auto folder = resolveAccessToken(*bookmark->bookmarkData);
    if (!folder) {
      logLine(LogLevel::error, "SecurityScope URLByResolvingBookmarkData error:" + folder.error().message);
      continue;
    }
    auto minimal = makeAccessToken(*folder);
    if (!minimal) {
      logLine(LogLevel::error, "Minimal URLByResolvingBookmarkData error:" + minimal.error().message);
      continue;
    }
    bookmark->bookmarkMinimalData = std::move(*minimal);
    append(std::move(*bookmark));
  }
  saveBookmarks();
  return *bookmarks();
}

void TQBookmarkUtil::unloadBookmarks() {
  auto list = bookmarks();
  for (const TQBookmark& bookmark : *list) {
    if (!bookmark.bookmarkData) continue;
    auto folder = resolveAccessToken(*bookmark.bookmarkData);
    if (!folder)
      logLine(LogLevel::error, "SecurityScope URLByResolvingBookmarkData error:" + folder.error().message);
  }
}

bool TQBookmarkUtil::saveBookmarks() {
  std::lock_guard lock(monitor_);
  auto list = bookmarks();
  if (list->empty()) return true;
  Array entries;
  for (const TQBookmark& bookmark : *list) entries.emplace_back(bookmark.bookmarkDictionary());
  const bool isNew = !itemExists(layout::bookmarkPlist());
  auto merge = [&](Dictionary& file) {
    file.set("version", kFileVersion);
    file.set("bookmark", mergedRows("filepath", coerce::array(file.find("bookmark")),
                                    isNew ? Array() : savedEntries_, entries));
  };
  if (!logUnlessDone(changeDictionaryFile(layout::bookmarkPlist(), merge))) return false;
  savedEntries_ = std::move(entries);
  return true;
}

bool TQBookmarkUtil::addBookmark(const std::string& path) {
  auto token = makeAccessToken(path);
  if (!token) {
    logLine(LogLevel::error, "bookmarkDataWithOptions error:" + token.error().message);
    return false;
  }
  if (auto folder = resolveAccessToken(*token); !folder) {
    logLine(LogLevel::error, "SecuritySope URLByResolvingBookmarkData error:" + folder.error().message);
    return false;
  }
  auto minimal = makeAccessToken(path);
  if (!minimal) {
    logLine(LogLevel::error, "Minimal URLByResolvingBookmarkData error:" + minimal.error().message);
    return false;
  }
  std::lock_guard lock(monitor_);
  if (!existBookmarkWithFilePath(path)) append({path, std::move(*token), std::move(*minimal)});
  return true;
}

bool TQBookmarkUtil::addBookmarkWithFilePath(const OptionalString& path) {
  if (!path) return false;
  return findParentFolderFromFilePath(path) || addBookmark(*path);
}

bool TQBookmarkUtil::addBookmarkWithVolumePath(const OptionalString& path) {
  OptionalString volume = path ? mountPath(*path) : std::nullopt;
  return volume && addBookmark(*volume);
}

std::optional<TQBookmark> TQBookmarkUtil::bookmarkWithFilePath(const OptionalString& path) const {
  if (!path) return std::nullopt;
  auto list = bookmarks();
  auto found = std::find_if(list->begin(), list->end(), [&](const TQBookmark& bookmark) {
    return bookmark.filePath && (bookmark.filePath == path || localizedEqual(*bookmark.filePath, *path));
  });
  if (found == list->end()) return std::nullopt;
  return *found;
}

bool TQBookmarkUtil::existBookmarkWithFilePath(const OptionalString& path) const {
  return bookmarkWithFilePath(path).has_value();
}

OptionalString TQBookmarkUtil::findParentFolderFromFilePath(const OptionalString& path) const {
  if (!path) return std::nullopt;
  for (const std::string& prefix : prefixesOf(*path))
    if (existBookmarkWithFilePath(prefix)) return prefix;
  return std::nullopt;
}

bool TQBookmarkUtil::accessibilityBookmarkWithFilePath(const OptionalString& path) const {
  auto bookmark = bookmarkWithFilePath(findParentFolderFromFilePath(path));
  if (!bookmark || !bookmark->bookmarkData) return false;
  auto folder = resolveAccessToken(*bookmark->bookmarkData);
  if (!folder)
    logLine(LogLevel::error, "SecuritySope URLByResolvingBookmarkData error:" + folder.error().message);
  return folder.has_value();
}

bool TQBookmarkUtil::hasDownloadFolderWithFilePath(const OptionalString& path) const {
  std::vector<std::string> folders = userFolders();
  if (!path || folders.empty()) return false;
  std::string downloads = appendPathComponent(folders.front(), "Downloads");
  std::vector<std::string> prefixes = prefixesOf(*path);
  return std::any_of(prefixes.begin(), prefixes.end(),
                     [&](const std::string& prefix) { return localizedEqual(prefix, downloads); });
}

std::optional<Data> TQBookmarkUtil::bookmarkDataFromFilePath(const OptionalString& path) const {
  if (!path) return std::nullopt;
  auto token = makeAccessToken(*path);
  if (token) return std::move(*token);
  logLine(LogLevel::error, "bookmarkDataFromFilePath exception:" + token.error().message);
  return std::nullopt;
}

bool TQBookmarkUtil::needUpdateVersion() {
  std::lock_guard lock(monitor_);
  auto file = readDictionaryFile(layout::bookmarkPlist());
  if (!file) return false;
  std::string version = coerce::string(file->find("version")).value_or("");
  if (version == "1.0") {
    logLine(LogLevel::info, "Delete bookmark plist");
    ::unlink(layout::bookmarkPlist().c_str());
  }
  return version.empty() || version == "1.0";
}

bool TQBookmarkUtil::updateVersion() {
  std::lock_guard lock(monitor_);
  return bookmarks()->empty() &&
         logUnlessDone(writePropertyListFile(layout::bookmarkPlist(),
                                             Dictionary{{"version", kFileVersion}, {"bookmark", Array()}}));
}

void TQBookmarkUtil::startAllBookmarks() {
  for (const Value& entry : storedBookmarks()) {
    auto bookmark = bookmarkOf(entry);
    if (!bookmark) continue;
    // Looking at the folder wakes it; whether it is there does not matter here.
    [[maybe_unused]] auto folder = resolveAccessToken(*bookmark->bookmarkMinimalData);
  }
}

OptionalString TQBookmarkUtil::bookmarkURLFromPath(const OptionalString& path) {
  if (!path) return std::nullopt;
  auto token = makeAccessToken(*path);
  if (!token) {
    logLine(LogLevel::error, "bookmarkDataWithOptions error:" + token.error().message);
    return std::nullopt;
  }
  auto resolved = resolveAccessToken(*token);
  if (!resolved) {
    logLine(LogLevel::error, "URLByResolvingBookmarkData error:" + resolved.error().message);
    return std::nullopt;
  }
  return "file://" + percentEncoded(*resolved, "/-._~!$&'()*+,;=:@");
}

}  // namespace vornex
