#include "core/ServerRequest.h"

#include <vornex/Queue.h>
#include <vornex/TQVornexUtil.h>

#include <exception>

#include "core/SdkError.h"
#include "core/StatusCode.h"
#include "foundation/Json.h"
#include "foundation/Text.h"

namespace vornex {
namespace {

constexpr const char* kClientType = "Mac";
// Reading that many bytes takes less time than handing them to another thread.
constexpr std::size_t kDecodedAtOnce = 16 << 10;

HttpExchange makeExchange(ServerRequest request) {
  HttpExchange exchange;
  exchange.url = std::move(request.url);
  exchange.method = std::move(request.method);
  exchange.userName = std::move(request.userID);
  exchange.password = std::move(request.userPassword);
  exchange.timeLimit = request.timeLimit;
  exchange.answerLimit = request.answerLimit;
  // Without "Expect" a large body is sent at once.
  exchange.headers = {"Accept: application/json", "Expect:", std::string("X-Vornex-Client: ") + kClientType};
  if (OptionalString device = TQVornexUtil::systemUUID())
    exchange.headers.push_back("X-Vornex-Device: " + *device);
  // Without a body the header is taken out: it would name a form.
  exchange.headers.push_back(request.body ? "Content-Type: application/json" : "Content-Type:");
  exchange.body = std::move(request.body);
  return exchange;
}

bool isSuccess(long status) {
  return status >= 200 && status < 300;
}

StatusCode codeForHttpStatus(long status) {
  switch (status) {
    case 401:
      return StatusCode::authenticationFailed;
    case 403:
      return StatusCode::noAuthority;
    case 404:
      return StatusCode::databaseNotFound;
    default:
      return StatusCode::internalError;
  }
}

TQErrorPtr serverError(StatusCode code, const char* messageKey, const std::string& detail) {
  return withReason(TQVornexUtil::errorWithCode(static_cast<std::int64_t>(code), LocalizedString(messageKey),
                                                kServerErrorDomain),
                    detail);
}

TQErrorPtr transportError(const Error& error) {
  if (error.code == kUnusableRequest) {
    return withReason(TQVornexUtil::errorWithCode(10001, LocalizedString("request.error.param.invalid")),
                      error.message);
  }
  if (error.code == kAnswerTooLong) {
    return serverError(StatusCode::limitExceeded, "response.error.invalid", error.message);
  }
  if (error.code == kNeverSent) {
    return serverError(StatusCode::limitExceeded, "request.error.transport", error.message);
  }
  return serverError(StatusCode::cannotConnectToHost, "request.error.transport", error.message);
}

/// "application/json", with parameters or not.
bool isJson(const std::string& contentType) {
  std::string type = trimmedWhitespace(contentType.substr(0, contentType.find(';')));
  return lowercased(type) == "application/json";
}

ServerReply failureReply(const HttpAnswer& answer, const Result<Value>& decoded) {
  std::string status = "HTTP " + std::to_string(answer.status);
  TQErrorPtr error = decoded ? TQVornexUtil::errorWithResponse(*decoded) : nullptr;
  if (!error || error->code() < 0)
    error = serverError(codeForHttpStatus(answer.status), "request.error.status", status);
  return {decoded ? *decoded : Value(), error};
}

/// Whatever happens, whoever waits for the answer must hear of it.
ServerReply exceptionReply(const std::exception& exception) {
  return {Value(), serverError(StatusCode::internalError, "response.error.invalid", exception.what())};
}

/// The component after "libraries" in ".../vornex/libraries/NAME/...".
OptionalString libraryName(const std::string& url) {
  constexpr std::string_view kPrefix = "/vornex/libraries/";
  std::optional<UrlParts> parts = parseHttpUrl(url);
  if (!parts || !parts->path.starts_with(kPrefix)) return std::nullopt;
  std::string_view rest = std::string_view(parts->path).substr(kPrefix.size());
  std::string name = percentDecoded(rest.substr(0, rest.find('/')));
  return name.empty() ? std::nullopt : OptionalString(name);
}

TQErrorPtr withLibraryName(const TQErrorPtr& error, const std::string& url) {
  OptionalString name = libraryName(url);
  if (!name) return error;
  Dictionary userInfo = error->userInfo();
  userInfo.set("dbname", *name);
  return std::make_shared<const TQError>(error->domain(), error->code(), std::move(userInfo));
}

ServerReply replyFromOutcome(const Result<HttpAnswer>& answer, const std::string& url) {
  ServerReply reply;
  try {
    reply = answer ? replyFromAnswer(*answer) : ServerReply{Value(), transportError(answer.error())};
  } catch (const std::exception& exception) {
    reply = exceptionReply(exception);
  }
  if (!reply.error) return reply;
  reply.error = withLibraryName(reply.error, url);
  if (!reply.response.find("items")) reply.response = Value();
  return reply;
}

}  // namespace

ServerReply replyFromAnswer(const HttpAnswer& answer) {
  if (answer.status == 204) return {};
  Result<Value> decoded = isJson(answer.contentType)
                              ? parseJson(answer.body)
                              : failure("http", answer.status, "content type \"" + answer.contentType + "\"");
  if (!isSuccess(answer.status)) return failureReply(answer, decoded);
  if (!decoded) {
    return {Value(),
            serverError(StatusCode::internalError, "response.error.invalid", decoded.error().message)};
  }
  TQErrorPtr error = TQVornexUtil::errorWithResponse(*decoded);
  return {std::move(*decoded), error};
}

ServerReply sendServerRequest(ServerRequest request) {
  std::string url = request.url;
  try {
    return replyFromOutcome(exchangeHttp(makeExchange(std::move(request))), url);
  } catch (const std::exception& exception) {
    return exceptionReply(exception);
  }
}

void sendServerRequest(ServerRequest request, std::function<void(ServerReply reply)> done) {
  std::string url = request.url;
  try {
    exchangeHttp(makeExchange(std::move(request)), [url, done](Result<HttpAnswer> answer) {
      if (!answer || answer->body.size() <= kDecodedAtOnce) return done(replyFromOutcome(answer, url));
      // Decoding a large answer must not hold up the other requests.
      GlobalQueue::shared().async(
          [answer = std::move(answer), url, done] { done(replyFromOutcome(answer, url)); });
    });
  } catch (const std::exception& exception) {
    GlobalQueue::shared().async([reply = exceptionReply(exception), done] { done(reply); });
  }
}

bool announcesErrors(const std::string& url) {
  std::optional<UrlParts> parts = parseHttpUrl(url);
  return !parts || parts->path.find("login") == std::string::npos;
}

}  // namespace vornex
