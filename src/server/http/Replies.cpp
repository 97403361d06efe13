#include "server/http/Replies.h"

#include <array>
#include <ctime>

#include "foundation/Json.h"

namespace vornex::server {
namespace {

struct StatusRow {
  StatusCode code;
  unsigned httpStatus;
};

// The one place where codes become HTTP statuses.
constexpr StatusRow kStatusTable[] = {
    {StatusCode::ok, 200},
    {StatusCode::internalError, 500},
    {StatusCode::databaseFailed, 500},
    {StatusCode::invalidRequest, 400},
    {StatusCode::noAuthority, 403},
    {StatusCode::itemNotFound, 404},
    {StatusCode::itemExists, 409},
    {StatusCode::limitExceeded, 413},
    {StatusCode::databaseNotFound, 404},
    {StatusCode::timedOut, 504},
    {StatusCode::portInUse, 409},
    {StatusCode::serviceStopping, 503},
    {StatusCode::unknownOperation, 404},
    {StatusCode::hashMismatch, 409},
    {StatusCode::clientRefused, 403},
    {StatusCode::queryInvalid, 400},
    {StatusCode::diskFull, 507},
    {StatusCode::authenticationFailed, 401},
    {StatusCode::libraryNotShared, 403},
    {StatusCode::cannotConnectToHost, 502},
    {StatusCode::referenceUnreachable, 424},
    {StatusCode::alreadyLoggedIn, 409},
    {StatusCode::tooManySessions, 429},
    {StatusCode::clientTooOld, 426},
};

Response reply(unsigned httpStatus, std::string json) {
  Response response;
  response.status = httpStatus;
  response.headers.emplace_back("Content-Type", "application/json; charset=utf-8");
  response.headers.emplace_back("Cache-Control", "no-store");
  if (httpStatus == 401) {
    response.headers.emplace_back("WWW-Authenticate", "Basic realm=\"vornex\", charset=\"UTF-8\"");
  }
  if (httpStatus == 503) response.headers.emplace_back("Retry-After", "1");
  response.body = std::move(json);
  return response;
}

}  // namespace

unsigned httpStatusFor(StatusCode code) {
  for (const StatusRow& row : kStatusTable) {
    if (row.code == code) return row.httpStatus;
  }
  return 500;
}

Response jsonReply(const Value& value) {
  return jsonTextReply(writeJson(value));
}

Response jsonTextReply(std::string json) {
  return reply(200, std::move(json));
}

Response errorReply(const Error& error) {
  Error shown = publicError(error);
  return reply(httpStatusFor(statusCodeOf(shown)), writeJson(statusDictionary(shown)));
}

Response errorReply(StatusCode code, const std::string& message) {
  return errorReply(httpStatusFor(code), code, message);
}

Response errorReply(unsigned httpStatus, StatusCode code, const std::string& message) {
  return reply(httpStatus, writeJson(statusDictionary(serverFailure(code, message).value())));
}

Dictionary statusDictionary(const Error& error) {
  Error shown = publicError(error);
  return {{"Status", Dictionary{{"code", shown.code}, {"msg", shown.message}, {"domain", shown.domain}}}};
}

std::string httpDate(std::int64_t secondsSince1970) {
  static constexpr std::array kDays{"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  static constexpr std::array kMonths{"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                      "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  std::time_t seconds = secondsSince1970;
  std::tm date{};
  if (!::gmtime_r(&seconds, &date)) return "Thu, 01 Jan 1970 00:00:00 GMT";
  return fmt::format("{}, {:02} {} {:04} {:02}:{:02}:{:02} GMT",
                     kDays[static_cast<std::size_t>(date.tm_wday)], date.tm_mday,
                     kMonths[static_cast<std::size_t>(date.tm_mon)], date.tm_year + 1900, date.tm_hour,
                     date.tm_min, date.tm_sec);
}

}  // namespace vornex::server
