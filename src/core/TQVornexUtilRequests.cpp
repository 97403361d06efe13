#include <vornex/Log.h>
#include <vornex/Queue.h>
#include <vornex/TQVornexUtil.h>

#include "core/ServerRequest.h"
#include "core/StatusCode.h"
#include "foundation/Json.h"
#include "foundation/RunTask.h"

namespace vornex {
namespace {

/// Absent when a required argument is.
std::optional<ServerRequest> makeRequest(const OptionalString& url, const OptionalString& userID,
                                         const OptionalString& userPassword, const OptionalString& method,
                                         const std::optional<Value>& params) {
  if (!url || !userID || !userPassword || !method) return std::nullopt;
  ServerRequest request;
  request.url = *url;
  request.userID = *userID;
  request.userPassword = *userPassword;
  request.method = *method;
  if (params && !params->isNull()) request.body = writeJson(*params, JsonStyle::pretty);
  return request;
}

/// These concern the whole session, so the host may react in one place.
bool concernsSession(std::int64_t code) {
  return code == static_cast<std::int64_t>(StatusCode::cannotConnectToHost) ||
         code == static_cast<std::int64_t>(StatusCode::alreadyLoggedIn) ||
         code == static_cast<std::int64_t>(StatusCode::tooManySessions) ||
         code == static_cast<std::int64_t>(StatusCode::clientTooOld);
}

void announce(const TQErrorPtr& error, const std::string& url) {
  if (error && concernsSession(error->code()) && announcesErrors(url))
    TQVornexUtil::sendNotificationWithError(error);
}

void finish(ServerReply reply, const std::string& url, const TQVornexUtil::RequestCompletion& completion) {
  if (!reply.error) {
    completion(std::move(reply.response), nullptr);
    return;
  }
  logLine(LogLevel::warning, "Vornex Error:" + reply.error->description());
  // Whatever the completion throws, others hear of the error.
  runTask([&] { completion(Value(), reply.error); }, "completion of a request");
  announce(reply.error, url);
}

}  // namespace

void TQVornexUtil::requestURL(const OptionalString& url, const OptionalString& userID,
                              const OptionalString& userPassword, const OptionalString& method,
                              const std::optional<Value>& params, RequestCompletion completion) {
  std::optional<ServerRequest> request = makeRequest(url, userID, userPassword, method, params);
  if (!request) {
    completion(Value(), errorWithCode(10000, LocalizedString("request.error.param.nil")));
    return;
  }
  sendServerRequest(std::move(*request), [url = *url, completion = std::move(completion)](ServerReply reply) {
    MainQueue::shared().async(
        [reply = std::move(reply), url, completion]() mutable { finish(std::move(reply), url, completion); });
  });
}

Value TQVornexUtil::syncRequestURL(const OptionalString& url, const OptionalString& userID,
                                   const OptionalString& userPassword, const OptionalString& method,
                                   const std::optional<Value>& params, TQErrorPtr* error) {
  std::optional<ServerRequest> request = makeRequest(url, userID, userPassword, method, params);
  if (!request) return Value();
  ServerReply reply = sendServerRequest(std::move(*request));
  if (!error) return reply.response;
  *error = reply.error;
  announce(reply.error, *url);
  return reply.response;
}

}  // namespace vornex
