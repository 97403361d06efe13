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

TQCopyInterface::JobID startCopy(TQCopyInterface::Job job, Completion completion) {
  std::optional<Data> bookmark = TQBookmarkUtil::sharedInstance().bookmarkDataFromFilePath(job.source);
  if (!bookmark) {
    std::string reason = unreadableReason(job.source);
    logLine(LogLevel::error, "copyFileAtPath bookmarkDataFromFilePath error:" + reason);
    std::string message = LocalizedString("bookmark.error.cannot.create.url") + " (" + reason + ")";
    completion(false, TQVornexUtil::errorWithCode(10011, message));
    return 0;
  }
  job.bookmarkData = std::move(*bookmark);
  return TQLibraryManager::sharedManager().copyInterface().copy(std::move(job), std::move(completion));
}

}  // namespace vornex
