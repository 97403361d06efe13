#include "server/http/Router.h"

#include <vornex/Log.h>

#include <algorithm>
#include <exception>

#include "foundation/Text.h"
#include "server/http/Credentials.h"
#include "server/http/Handlers.h"
#include "server/http/Replies.h"

namespace vornex::server {
namespace {

/// Names go into records and into the log.
constexpr std::size_t kLongestName = 256;

constexpr std::string_view kDatabaseSegment = "{db}";
constexpr std::string_view kIdentifierSegment = "{id}";
constexpr std::string_view kPathSegment = "{path}";

/// Whether the pattern takes the path; the values of its braces go into the call.
bool matches(std::string_view pattern, const std::vector<std::string>& segments, Call& call) {
  std::size_t position = 0;
  pattern.remove_prefix(1);
  while (!pattern.empty()) {
    std::size_t slash = pattern.find('/');
    std::string_view expected = pattern.substr(0, slash);
    pattern.remove_prefix(slash == std::string_view::npos ? pattern.size() : slash + 1);
    if (position == segments.size()) return false;
    const std::string& segment = segments[position];
    if (expected == kPathSegment) {
      call.path.assign(segments.begin() + static_cast<std::ptrdiff_t>(position), segments.end());
      return true;
    }
    if (expected == kDatabaseSegment) {
      call.dbName = segment;
    } else if (expected == kIdentifierSegment) {
      call.id = segment;
    } else if (expected != segment) {
      return false;
    }
    ++position;
  }
  return position == segments.size();
}

/// GET routes answer HEAD too; the connection leaves the body out.
bool takesMethod(const Route& route, const std::string& method) {
  return method == route.method || (method == "HEAD" && std::string_view(route.method) == "GET");
}

/// The route of the request with its values, or the refusal.
tl::expected<Call, Response> findRoute(const Request& request, Target target) {
  const char* pattern = nullptr;
  std::string allowed;
  for (const Route& route : routes()) {
    if (pattern && std::string_view(pattern) != route.pattern) continue;
    Call call;
    if (!matches(route.pattern, target.segments, call)) continue;
    if (takesMethod(route, request.method)) {
      call.route = &route;
      call.target = std::move(target);
      return call;
    }
    pattern = route.pattern;
    allowed += (allowed.empty() ? "" : ", ") + std::string(route.method);
  }
  if (!pattern) {
    return tl::unexpected(errorReply(StatusCode::unknownOperation, "The server knows no such operation."));
  }
  Response refusal =
      errorReply(405, StatusCode::unknownOperation, "The operation takes another method: " + allowed);
  refusal.headers.emplace_back("Allow", allowed);
  return tl::unexpected(std::move(refusal));
}

/// A browser may carry a user's credentials for a page of somebody else's. Such a page cannot leave out its
/// origin, nor can a form send JSON.
std::optional<Response> refusalOfForeignPage(const Request& request) {
  bool isForeign = !request.origin.empty() && request.origin != "http://" + request.server;
  isForeign = isForeign || request.fetchSite == "cross-site" || request.fetchSite == "same-site";
  if (isForeign) return errorReply(StatusCode::clientRefused, "Requests of web pages are refused.");
  if (request.method != "POST" || (request.contentType.empty() && !request.hasBody)) return {};
  std::string type =
      lowercased(trimmedWhitespace(request.contentType.substr(0, request.contentType.find(';'))));
  if (type == "application/json") return {};
  return errorReply(415, StatusCode::invalidRequest, "The body is not sent as application/json.");
}

/// The session calls must work on a device whose session was displaced, and the version before a login.
bool needsSession(const Route& route) {
  return route.handler != login && route.handler != checkLogin && route.handler != logout &&
         route.handler != getVersion;
}

}  // namespace

const std::vector<Route>& routes() {
  static const std::vector<Route> table{
      {"GET", "/vornex/version", getVersion, Lane::quick},
      {"GET", "/vornex/login/check", checkLogin, Lane::quick},
      {"POST", "/vornex/login", login, Lane::quick},
      {"GET", "/vornex/logout", logout, Lane::quick},
      {"GET", "/vornex/libraries", listLibraries, Lane::quick},
      {"GET", "/vornex/libraries/{db}", getLibrary, Lane::quick},
      {"GET", "/vornex/libraries/{db}/fcpxlibraries", getFCPXLibraries, Lane::file},
      {"GET", "/vornex/libraries/{db}/projects", getProjects, Lane::quick},
      {"POST", "/vornex/libraries/{db}/projects/create", createProject, Lane::change},
      {"POST", "/vornex/libraries/{db}/projects/update", updateProject, Lane::change},
      {"POST", "/vornex/libraries/{db}/projects/move", moveProject, Lane::change},
      {"POST", "/vornex/libraries/{db}/assets/create", createAssets, Lane::change},
      {"POST", "/vornex/libraries/{db}/assets/search", searchAssets, Lane::search},
      {"POST", "/vornex/libraries/{db}/assets/update", updateAssets, Lane::change},
      {"POST", "/vornex/libraries/{db}/assets/delete", deleteAssets, Lane::change},
      {"POST", "/vornex/libraries/{db}/assets/access", checkAccess, Lane::file},
      {"POST", "/vornex/libraries/{db}/assets/download", locateMasters, Lane::file},
      {"POST", "/vornex/libraries/{db}/assets/preview", locatePreviews, Lane::file},
      {"GET", "/vornex/libraries/{db}/assets/{id}", getAsset, Lane::search},
      {"GET", "/vornex/libraries/{db}/master/{path}", getMaster, Lane::file},
      {"GET", "/vornex/libraries/{db}/thumbnail/{path}", getThumbnail, Lane::file},
      {"GET", "/vornex/libraries/{db}/preview/{path}", getPreview, Lane::file},
  };
  return table;
}

tl::expected<Call, Response> Router::admit(const Request& request) const {
  if (auto refusal = refusalOfForeignPage(request)) return tl::unexpected(std::move(*refusal));
  Client client{request.host, request.device.empty() ? "host " + request.host : request.device,
                request.clientType};
  auto user = authenticate(request, client);
  if (!user) return tl::unexpected(std::move(user.error()));
  auto target = parseTarget(request.target);
  if (!target) return tl::unexpected(errorReply(target.error()));
  auto call = findRoute(request, std::move(*target));
  if (!call) return call;
  if (needsSession(*call->route)) {
    if (auto admitted = service_.sessions().admit(*user, client); !admitted) {
      return tl::unexpected(errorReply(admitted.error()));
    }
  }
  call->user = std::move(*user);
  call->client = std::move(client);
  return call;
}

tl::expected<User, Response> Router::authenticate(const Request& request, const Client& client) const {
  auto credentials = parseBasicCredentials(request.authorization);
  if (!credentials) {
    return tl::unexpected(
        errorReply(StatusCode::authenticationFailed, "A user ID and a password are needed."));
  }
  std::size_t longest = std::max({credentials->userID.size(), client.device.size(), client.type.size()});
  if (longest > kLongestName || credentials->password.size() > kLongestName) {
    return tl::unexpected(errorReply(
        StatusCode::invalidRequest,
        fmt::format("User ID, password, device and client take at most {} bytes each.", kLongestName)));
  }
  // The owner's password cannot be guessed, and nobody may keep the owner out by guessing.
  bool isGuessable = credentials->userID != kTQLocalUserID;
  FailedLogins& failedLogins = service_.failedLogins();
  bool isWelcome = failedLogins.mayTry(credentials->userID, client.host);
  if (isGuessable && !isWelcome) {
    Response refusal =
        errorReply(429, StatusCode::authenticationFailed, "Too many failed logins; try later.");
    refusal.headers.emplace_back("Retry-After", "5");
    return tl::unexpected(std::move(refusal));
  }
  auto user = service_.users().authenticate(credentials->userID, credentials->password);
  if (user) {
    failedLogins.forget(user->id, client.host);
    return *user;
  }
  failedLogins.count(credentials->userID, client.host);
  // The log takes no more lines than there are attempts that count.
  if (isWelcome)
    logLine(LogLevel::warning,
            fmt::format("Failed login of \"{}\" from {}", credentials->userID, client.host));
  return tl::unexpected(
      errorReply(StatusCode::authenticationFailed, "The user ID or the password is wrong."));
}

Response Router::handle(const Call& call, const Request& request) const {
  try {
    return call.route->handler(Context{service_, limits_}, call, request);
  } catch (const std::exception& exception) {
    logLine(LogLevel::error,
            fmt::format("{} {}: {}", call.route->method, call.route->pattern, exception.what()));
    return errorReply(StatusCode::internalError, "The server failed; its log says why.");
  }
}

Response Router::answer(const Request& request) const {
  auto call = admit(request);
  return call ? handle(*call, request) : std::move(call.error());
}

}  // namespace vornex::server
