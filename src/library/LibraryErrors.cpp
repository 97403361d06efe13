#include "library/LibraryErrors.h"

#include <vornex/Log.h>
#include <vornex/TQBookmarkUtil.h>

#include "core/SdkError.h"

namespace vornex {

TQErrorPtr libraryError(std::int64_t code, const std::string& key, const std::string& reason) {
  return withReason(localizedError(code, key), reason);
}

TQErrorPtr bookmarkFolder(const std::string& folder) {
  TQBookmarkUtil& bookmarks = TQBookmarkUtil::sharedInstance();
  if (!bookmarks.addBookmarkWithFilePath(folder)) {
    logLine(LogLevel::error, "Can't create bookmark url: " + folder);
    return libraryError(10011, "bookmark.error.cannot.create.url");
  }
  if (!bookmarks.saveBookmarks()) {
    logLine(LogLevel::error, "Can't save bookmarks");
    return libraryError(10012, "bookmark.error.cannot.save");
  }
  return nullptr;
}

}  // namespace vornex
