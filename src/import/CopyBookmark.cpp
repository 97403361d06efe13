#include "import/CopyBookmark.h"

#include <unistd.h>
#include <vornex/Log.h>
#include <vornex/TQBookmarkUtil.h>
#include <vornex/TQVornexUtil.h>

#include <cerrno>

#include "foundation/Error.h"

namespace vornex {

/// Why the source cannot be read, as far as the system tells.
static std::string unreadableReason(const std::string& source) {
  int reason = ::access(source.c_str(), R_OK) == 0 ? 0 : errno;
  return reason == 0 ? source : posixFailure(reason, source).value().message;
}

tl::expected<Data, TQErrorPtr> bookmarkForCopy(const std::string& source) {
  std::optional<Data> bookmark = TQBookmarkUtil::sharedInstance().bookmarkDataFromFilePath(source);
  if (bookmark) return std::move(*bookmark);
  std::string reason = unreadableReason(source);
  logLine(LogLevel::error, "copyFileAtPath bookmarkDataFromFilePath error:" + reason);
  std::string message = LocalizedString("bookmark.error.cannot.create.url") + " (" + reason + ")";
  return tl::unexpected(TQVornexUtil::errorWithCode(10011, message));
}

}  // namespace vornex
