#include <vornex/Log.h>
#include <vornex/NotificationCenter.h>
#include <vornex/TQVornexUtil.h>

#include <algorithm>
#include <any>

#include "core/Coercion.h"
#include "core/StatusCode.h"

namespace vornex {
namespace {

struct StatusNotification {
  StatusCode code;
  const char* name;
  /// Logged before the notification; null for none.
  const char* logLine = nullptr;
};

constexpr StatusNotification kStatusNotifications[] = {
    {StatusCode::databaseFailed, "TQLibraryDBErrorNotification"},
    {StatusCode::noAuthority, "TQLibraryNoAuthorityNotification"},
    {StatusCode::databaseNotFound, "TQLibraryDBNotFoundNotification"},
    {StatusCode::authenticationFailed, "TQLibraryAuthFailedNotification"},
    {StatusCode::libraryNotShared, "TQLibraryNotSharedNotification"},
    {StatusCode::cannotConnectToHost, "TQLibraryCannotConnectToHostNotification"},
    {StatusCode::alreadyLoggedIn, "TQNetworkLibraryAlreadyLoginNotification",
     "다른 장비에서 로그인... NOTI!!!!!!"},
    {StatusCode::tooManySessions, "TQNetwokLibraryExceedSessionCountNotification",
     "로그인 갯수 초과 NOTI!!!!!!"},
    {StatusCode::clientTooOld, "TQClientNeedUpdateNotification", "클라이언트 버전 업데이트 필요!!!!!!"},
};

TQErrorPtr errorWithStatus(const Dictionary& status) {
  std::int64_t code = coerce::integer(status.find("code"));
  if (code == 0) return nullptr;
  return TQVornexUtil::errorWithCode(code, coerce::string(status.find("msg")).value_or(""),
                                     coerce::string(status.find("domain")));
}

}  // namespace

TQErrorPtr TQVornexUtil::errorWithCode(std::int64_t code, const std::string& message) {
  return errorWithCode(code, message, kVornexErrorDomain);
}

TQErrorPtr TQVornexUtil::errorWithCode(std::int64_t code, const std::string& message, OptionalString domain) {
  return std::make_shared<const TQError>(std::move(domain), code,
                                         Dictionary{{kLocalizedDescriptionKey, message}});
}

TQErrorPtr TQVornexUtil::errorWithResponse(const Value& response) {
  const Array* answers = response.ifArray();
  std::size_t count = answers ? answers->size() : 1;
  for (std::size_t i = 0; i < count; ++i) {
    const Value* status = (answers ? (*answers)[i] : response).find("Status");
    if (!status) continue;
    if (!status->ifDictionary()) {
      logLine(LogLevel::error, "Exception occured [Status is not an object]");
      return nullptr;
    }
    if (TQErrorPtr error = errorWithStatus(*status->ifDictionary())) return error;
  }
  return nullptr;
}

void TQVornexUtil::sendNotificationWithError(const TQErrorPtr& error) {
  if (!error) return;
  logLine(LogLevel::warning, "sendNotificationWithError:" + error->description());
  auto matches = [&error](const StatusNotification& candidate) {
    return static_cast<std::int64_t>(candidate.code) == error->code();
  };
  auto found = std::ranges::find_if(kStatusNotifications, matches);
  if (found == std::end(kStatusNotifications)) return;
  if (found->logLine) logLine(LogLevel::warning, found->logLine);
  OptionalString dbName = coerce::string(error->userInfo().find("dbname"));
  std::any object = dbName ? std::any(*dbName) : std::any();
  NotificationCenter::defaultCenter().post({found->name, std::move(object), {}});
}

}  // namespace vornex
