#include "core/Coercion.h"
#include "foundation/Json.h"
#include "server/http/Handlers.h"
#include "server/http/Replies.h"

namespace vornex::server {
namespace {

Dictionary userReply(const User& user) {
  return {{"userid", user.id}, {"username", user.name}, {"usertype", user.type}};
}

}  // namespace

Result<Dictionary> bodyDictionary(const Request& request) {
  if (request.body.empty()) return Dictionary{};
  auto body = parseJson(request.body);
  if (!body) return serverFailure(StatusCode::invalidRequest, "The body is no JSON: " + body.error().message);
  Dictionary* dictionary = body->ifDictionary();
  if (!dictionary) return serverFailure(StatusCode::invalidRequest, "The body is no JSON object.");
  return std::move(*dictionary);
}

Response getVersion(const Context&, const Call&, const Request&) {
  return jsonReply(Dictionary{{"version", serverVersion()}});
}

Response checkLogin(const Context&, const Call& call, const Request&) {
  return jsonReply(userReply(call.user));
}

Response login(const Context& context, const Call& call, const Request& request) {
  auto body = bodyDictionary(request);
  if (!body) return errorReply(body.error());
  const Value* force = body->find("forcelogin");
  auto loggedIn = context.service.sessions().login(call.user, call.client, force && coerce::boolean(force));
  return loggedIn ? jsonReply(userReply(call.user)) : errorReply(loggedIn.error());
}

Response logout(const Context& context, const Call& call, const Request&) {
  context.service.sessions().logout(call.user, call.client);
  return jsonReply(userReply(call.user));
}

}  // namespace vornex::server
