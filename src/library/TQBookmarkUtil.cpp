#include <unistd.h>
#include <vornex/Log.h>
#include <vornex/TQBookmarkUtil.h>

#include <algorithm>
#include <cerrno>
#include <mutex>

#include "core/Coercion.h"
#include "core/StorageLayout.h"
#include "foundation/FileLock.h"
#include "foundation/Files.h"
#include "foundation/PropertyList.h"
#include "foundation/SharedDictionaryFile.h"
#include "foundation/Text.h"
#include "library/Published.h"
#include "library/SharedList.h"
#include "platform/FolderAccess.h"
#include "platform/Volumes.h"

namespace vornex {
namespace {

constexpr const char* kFileVersion = "2.0";
constexpr const char* kOldVersion = "1.0";

// Missing data is written as an empty text.
std::optional<Data> dataOf(const Dictionary& dictionary, const char* key) {
  const Value* value = dictionary.find(key);
  if (value && value->ifData()) return *value->ifData();
  return value && *value == Value("") ? std::optional(Data()) : std::nullopt;
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

// Empty when the file has none, absent when it cannot be read.
OptionalString storedVersion() {
  auto file = readDictionaryFile(layout::bookmarkPlist());
  return file ? coerce::string(file->find("version")).value_or("") : OptionalString();
}

void discardOldFile() {
  auto lock = FileLock::acquire(layout::bookmarkPlist());
  if (!lock) return logLine(LogLevel::error, lock.error().message);
  // Another process may have written meanwhile.
  if (storedVersion() != kOldVersion) return;
  logLine(LogLevel::info, "Delete bookmark plist");
  if (::unlink(layout::bookmarkPlist().c_str()) != 0)
    logLine(LogLevel::error, posixFailure(errno, "delete " + layout::bookmarkPlist()).value().message);
}

bool logUnlessDone(const Result<void>& written) {
  if (!written) logLine(LogLevel::error, written.error().message);
  return written.has_value();
}

// Whether the folder is still there and open to us; the bookmark is brought up to date then.
bool startAccess(TQBookmark& bookmark) {
  auto folder = resolveAccessToken(*bookmark.bookmarkData);
  if (!folder) {
    logLine(LogLevel::error, "SecurityScope URLByResolvingBookmarkData error:" + folder.error().message);
    return false;
  }
  auto minimal = makeAccessToken(*folder);
  if (!minimal) {
    logLine(LogLevel::error, "Minimal URLByResolvingBookmarkData error:" + minimal.error().message);
    return false;
  }
  // The file holds texts; only the token knows the bytes of a path that is none.
  if (bookmark.filePath == validUtf8(*folder)) bookmark.filePath = *folder;
  bookmark.bookmarkMinimalData = std::move(*minimal);
  bookmark.isAccessed = true;
  return true;
}

std::string_view withoutLastSlash(std::string_view path) {
  while (path.size() > 1 && path.ends_with('/')) path.remove_suffix(1);
  return path;
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

struct TQBookmarkUtil::State {
  /// Held by who changes the list or the file.
  std::recursive_mutex monitor;
  Published<std::vector<TQBookmark>> bookmarks;
  /// A bookmark always has a path, be it empty: a row without one is of an older writer or damaged.
  SharedList file{{.path = layout::bookmarkPlist(),
                   .rows = "bookmark",
                   .identity = "filepath",
                   .keepsNamelessRows = false}};

  void append(TQBookmark bookmark) {
    std::vector<TQBookmark> next = *bookmarks.read();
    next.push_back(std::move(bookmark));
    bookmarks.publish(std::move(next));
  }
};

std::optional<TQBookmark> TQBookmark::bookmarkWithDictionary(const Dictionary& dictionary) {
  TQBookmark bookmark{coerce::string(dictionary.find("filepath")), dataOf(dictionary, "bookmarkdata"),
                      dataOf(dictionary, "bookmarkminimaldata")};
  if (!bookmark.bookmarkData || !bookmark.bookmarkMinimalData) return std::nullopt;
  return bookmark;
}

Dictionary TQBookmark::bookmarkDictionary() const {
  return {{"filepath", validUtf8(filePath.value_or(""))},
          {"bookmarkdata", dataOrEmpty(bookmarkData)},
          {"bookmarkminimaldata", dataOrEmpty(bookmarkMinimalData)}};
}

TQBookmarkUtil& TQBookmarkUtil::sharedInstance() {
  static auto* instance = new TQBookmarkUtil;
  return *instance;
}

TQBookmarkUtil::TQBookmarkUtil() : state_(std::make_unique<State>()) {}

std::vector<TQBookmark> TQBookmarkUtil::bookmarks() const {
  return *state_->bookmarks.read();
}

std::vector<TQBookmark> TQBookmarkUtil::loadBookmarks() {
  std::lock_guard lock(state_->monitor);
  state_->bookmarks.publish({});
  bool isEnded = false;
  auto read = state_->file.load([&](const Value& entry) {
    if (isEnded) return false;
    auto bookmark = bookmarkOf(entry);
    isEnded = !bookmark;
    if (isEnded) logLine(LogLevel::error, "loadBookmarks exception:an entry is no bookmark");
    if (bookmark && startAccess(*bookmark)) state_->append(std::move(*bookmark));
    return true;
  });
  if (logUnlessDone(read) && !isEnded) saveBookmarks();
  return bookmarks();
}

void TQBookmarkUtil::unloadBookmarks() {
  std::lock_guard lock(state_->monitor);
  std::vector<TQBookmark> list = bookmarks();
  for (TQBookmark& bookmark : list) {
    bookmark.isAccessed = false;
    auto folder = resolveAccessToken(*bookmark.bookmarkData);
    if (!folder)
      logLine(LogLevel::error, "SecurityScope URLByResolvingBookmarkData error:" + folder.error().message);
  }
  state_->bookmarks.publish(std::move(list));
}

bool TQBookmarkUtil::saveBookmarks() {
  std::lock_guard lock(state_->monitor);
  auto list = state_->bookmarks.read();
  if (list->empty()) return true;
  Array entries;
  for (const TQBookmark& bookmark : *list) entries.emplace_back(bookmark.bookmarkDictionary());
  return logUnlessDone(state_->file.save(std::move(entries), {{"version", kFileVersion}}));
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
  std::lock_guard lock(state_->monitor);
  if (!existBookmarkWithFilePath(path)) state_->append({path, std::move(*token), std::move(*minimal)});
  claim(path);
  return true;
}

bool TQBookmarkUtil::addBookmarkWithFilePath(const OptionalString& path) {
  if (!path) return false;
  OptionalString covering = findParentFolderFromFilePath(path);
  if (!covering) return addBookmark(*path);
  claim(*covering);
  return true;
}

// The next save writes the bookmark of this path even if another process has removed it.
void TQBookmarkUtil::claim(const std::string& path) {
  std::lock_guard lock(state_->monitor);
  auto bookmark = bookmarkWithFilePath(path);
  if (bookmark) state_->file.claim(validUtf8(*bookmark->filePath));
}

bool TQBookmarkUtil::addBookmarkWithVolumePath(const OptionalString& path) {
  OptionalString volume = path ? mountPath(*path) : std::nullopt;
  return volume && addBookmark(*volume);
}

std::optional<TQBookmark> TQBookmarkUtil::bookmarkWithFilePath(const OptionalString& path) const {
  if (!path) return std::nullopt;
  auto list = state_->bookmarks.read();
  const std::string_view wanted = withoutLastSlash(*path);
  auto found = std::find_if(list->begin(), list->end(), [&](const TQBookmark& bookmark) {
    return bookmark.filePath && localizedEqual(withoutLastSlash(*bookmark.filePath), wanted);
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
  OptionalString version = storedVersion();
  if (version == kOldVersion) discardOldFile();
  return version == "" || version == kOldVersion;
}

bool TQBookmarkUtil::updateVersion() {
  std::lock_guard lock(state_->monitor);
  auto emptyFile = [](const std::optional<Dictionary>&) {
    return Dictionary{{"version", kFileVersion}, {"bookmark", Array()}};
  };
  return state_->bookmarks.read()->empty() &&
         logUnlessDone(changeDictionaryFile(layout::bookmarkPlist(), emptyFile));
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
