#pragma once

#include <optional>
#include <string>
#include <tl/expected.hpp>
#include <vector>

#include "server/Service.h"
#include "server/http/Limits.h"
#include "server/http/Message.h"
#include "server/http/Target.h"

namespace vornex::server {

struct Route;

/// A request that may be worked on: who sent it and what it asks for.
struct Call {
  const Route* route = nullptr;
  User user;
  Client client;
  Target target;
  /// What stands for "{db}" and "{id}" in the route's pattern; empty where it has none.
  std::string dbName;
  std::string id;
  /// What stands for "{path}".
  std::vector<std::string> path;
};

/// What handlers work with.
struct Context {
  Service& service;
  const Limits& limits;
};

using Handler = Response (*)(const Context& context, const Call& call, const Request& request);

/// Kinds of work that have workers of their own, so that one kind cannot hold another one up.
enum class Lane { quick, search, change, file };
inline constexpr std::size_t kLanes = 4;

/// One operation of the server.
struct Route {
  const char* method;
  /// Components in braces take any value; "{path}" takes one or more components.
  const char* pattern;
  Handler handler;
  Lane lane = Lane::change;
};

/// All operations; of two patterns that match, the earlier one counts.
const std::vector<Route>& routes();

/// Answers requests; knows nothing of sockets.
///
/// Thread-safety: safe on any thread.
class Router {
 public:
  Router(Service& service, const Limits& limits) : service_(service), limits_(limits) {}

  /// Checks origin, credentials, address and session of a request whose body need not be there yet. Does not
  /// block.
  /// The unexpected value is the refusal.
  tl::expected<Call, Response> admit(const Request& request) const;

  /// Works on an admitted request. Blocks as long as the database or the disk takes.
  Response handle(const Call& call, const Request& request) const;

  /// Both.
  Response answer(const Request& request) const;

 private:
  tl::expected<User, Response> authenticate(const Request& request, const Client& client) const;

  Service& service_;
  const Limits& limits_;
};

}  // namespace vornex::server
