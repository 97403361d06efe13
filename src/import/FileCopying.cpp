#include "import/FileCopying.h"

#include <unistd.h>
#include <vornex/Log.h>
#include <vornex/TQBookmarkUtil.h>
#include <vornex/TQLibraryManager.h>
#include <vornex/TQVornexUtil.h>

#include <cerrno>

#include "foundation/Error.h"

namespace vornex {

/// Why the source cannot be read, as far as the system tells.
static std::string unreadableReason(const std::string& source) {
  int reason = ::access(source.c_str(), R_OK) == 0 ? 0 : errno;
  return reason == 0 ? source : posixFailure(reason, source).value().message;
}

TQCopyInterface::JobID startCopy(const std::string& source, const std::string& target, bool verify,
                                 TQCopyInterface::ProgressHandler progress,
                                 TQCopyInterface::ReportHandler report, Completion completion) {
  std::optional<Data> bookmark = TQBookmarkUtil::sharedInstance().bookmarkDataFromFilePath(source);
  if (!bookmark) {
    std::string reason = unreadableReason(source);
    logLine(LogLevel::error, "copyFileAtPath bookmarkDataFromFilePath error:" + reason);
    std::string message = LocalizedString("bookmark.error.cannot.create.url") + " (" + reason + ")";
    completion(false, TQVornexUtil::errorWithCode(10011, message));
    return 0;
  }
  return TQLibraryManager::sharedManager().copyInterface().copyFileAtPath(
      source, target, *bookmark, verify, std::move(progress), std::move(report), std::move(completion));
}

}  // namespace vornex
