#include "server/control/ControlProtocol.h"

#include <unistd.h>
#include <vornex/Log.h>

#include <exception>

#include "core/Coercion.h"
#include "core/StorageLayout.h"
#include "foundation/Files.h"
#include "foundation/Json.h"
#include "server/ServerError.h"

namespace vornex::server {
namespace {

// JSON-RPC's own codes.
constexpr std::int64_t kParseError = -32700;
constexpr std::int64_t kInvalidRequest = -32600;
constexpr std::int64_t kMethodNotFound = -32601;
constexpr std::int64_t kInvalidParams = -32602;

Error rpcError(std::int64_t code, std::string message) {
  return {kServerErrorDomain, code, std::move(message)};
}

std::string errorMessage(const Value& id, const Error& error) {
  Dictionary details{
      {"code", error.code}, {"message", error.message}, {"data", Dictionary{{"domain", error.domain}}}};
  return writeJson(Dictionary{{"jsonrpc", "2.0"}, {"id", id}, {"error", std::move(details)}});
}

std::string resultMessage(const Value& id, Value result) {
  return writeJson(Dictionary{{"jsonrpc", "2.0"}, {"id", id}, {"result", std::move(result)}});
}

std::string notification(const char* method, Dictionary params = {}) {
  return writeJson(Dictionary{{"jsonrpc", "2.0"}, {"method", method}, {"params", std::move(params)}});
}

Result<std::string> dbNameOf(const Dictionary& params) {
  OptionalString dbName = coerce::string(params.find("dbname"));
  if (dbName) return *dbName;
  return tl::unexpected(rpcError(kInvalidParams, "\"dbname\" is missing."));
}

Result<Value> emptyResult(const Result<void>& done) {
  if (!done) return tl::unexpected(done.error());
  return Value(Dictionary{});
}

}  // namespace

struct ControlProtocol::Method {
  const char* name;
  Reply (ControlProtocol::*call)(const Call& call);
  Lane lane = Lane::work;
  /// Makes no sense any more when the service ends.
  bool starts = false;
};

const ControlProtocol::Method* ControlProtocol::methodNamed(const std::string& name) {
  using P = ControlProtocol;
  static constexpr Method kMethods[] = {
      {"register", &P::registerClient, Lane::quick},
      {"launchWebServer", &P::launchWebServer, Lane::work, true},
      {"loadLibrary", &P::loadLibrary, Lane::work, true},
      {"stopWebServer", &P::stopWebServer},
      {"shutdownDatabase", &P::shutdownDatabase},
      {"getWebServerState", &P::getWebServerState, Lane::quick},
      {"getUserSessions", &P::getUserSessions, Lane::quick},
      {"getLocalAccountPassword", &P::getLocalAccountPassword, Lane::quick},
      {"updateLibrary", &P::updateLibrary},
      {"updateUsers", &P::updateUsers},
      {"addLibrary", &P::addLibrary, Lane::work, true},
      {"getLibraryForDBName", &P::getLibraryForDBName, Lane::quick},
      {"launchLibraryForDBName", &P::launchLibraryForDBName, Lane::work, true},
      {"terminateLibraryForDBName", &P::terminateLibraryForDBName},
      {"removeLibraryWithDBName", &P::removeLibraryWithDBName},
      {"snapshotDatabase", &P::snapshotDatabase, Lane::copy, true},
      {"retireDatabase", &P::retireDatabase, Lane::work, true},
      {"replaceDatabase", &P::replaceDatabase, Lane::copy, true},
      {"startAllBookmarks", &P::startAllBookmarks, Lane::look},
      {"terminate", &P::terminate, Lane::quick},
  };
  for (const Method& method : kMethods) {
    if (name == method.name) return &method;
  }
  return nullptr;
}

void ControlProtocol::sendEventsTo(std::function<void(std::string)> broadcast) {
  broadcast_ = std::move(broadcast);
  auto sendLibraries = [this](const char* method) {
    return [this, method](Array records) {
      broadcast_(notification(method, {{"libraries", std::move(records)}}));
    };
  };
  LibraryEvents events;
  events.stateChanged = [this](const std::string& dbName, LibraryState state) {
    broadcast_(notification("vornexLibraryDidChangeState",
                            {{"dbname", dbName}, {"state", static_cast<int>(state)}}));
  };
  events.loaded = [this] { broadcast_(notification("vornexLibraryDidLoad")); };
  events.created = sendLibraries("vornexLibraryCreated");
  events.updated = sendLibraries("vornexLibraryUpdated");
  events.deleted = sendLibraries("vornexLibraryDeleted");
  service_.libraries().listen(std::move(events));
}

std::string ControlProtocol::launchedNotification() {
  return notification("vornexServiceLaunched");
}

ControlProtocol::Call ControlProtocol::read(std::string_view text) {
  Call call;
  auto message = parseJson(text);
  if (!message) {
    call.wantsReply = true;
    call.refusal = rpcError(kParseError, message.error().message);
    return call;
  }
  const Value* id = message->find("id");
  const Value* method = message->find("method");
  // An answer to a call of the service; it makes none that takes one.
  if (!method && (message->find("result") || message->find("error"))) return call;
  call.wantsReply = id || !method || !method->ifString();
  if (id) call.id = *id;
  if (!method || !method->ifString()) {
    call.refusal = rpcError(kInvalidRequest, "The message is no JSON-RPC call.");
    return call;
  }
  const Value* params = message->find("params");
  call.method = methodNamed(*method->ifString());
  if (!call.method) {
    call.refusal = rpcError(kMethodNotFound, "There is no method \"" + *method->ifString() + "\".");
  } else if (params && !params->ifDictionary()) {
    call.refusal = rpcError(kInvalidParams, "\"params\" is no object.");
  } else {
    call.lane = call.method->lane;
    if (params) call.params = *params->ifDictionary();
  }
  return call;
}

ControlProtocol::Reply ControlProtocol::perform(const Call& call) {
  if (call.refusal) return tl::unexpected(*call.refusal);
  if (ending_ && call.method->starts)
    return serverFailure(StatusCode::serviceStopping, "The service is about to end.");
  try {
    return (this->*call.method->call)(call);
  } catch (const std::exception& exception) {
    return failure("exception", 0, fmt::format("{}: {}", call.method->name, exception.what()));
  }
}

ControlProtocol::Outcome ControlProtocol::run(const Call& call) {
  if (!call.method && !call.refusal) return {};
  Reply result = perform(call);
  Outcome outcome;
  if (call.wantsReply) {
    outcome.reply = result ? resultMessage(call.id, std::move(*result))
                           : errorMessage(call.id, publicError(result.error()));
  }
  outcome.registered = call.method && result && std::string_view(call.method->name) == "register";
  outcome.terminate = call.method && result && std::string_view(call.method->name) == "terminate";
  return outcome;
}

ControlProtocol::Reply ControlProtocol::registerClient(const Call& call) {
  logLine(LogLevel::info,
          fmt::format("Process {} registers as a client", coerce::integer(call.params.find("pid"))));
  return Dictionary{
      {"version", serverVersion()}, {"pid", std::int64_t{::getpid()}}, {"root", layout::rootFolder()}};
}

ControlProtocol::Reply ControlProtocol::launchWebServer(const Call& call) {
  const Value* port = call.params.find("port");
  const std::int64_t* number = port ? port->ifInteger() : nullptr;
  if (!number || *number < 0 || *number > 65535) {
    return tl::unexpected(rpcError(kInvalidParams, "\"port\" is no port number."));
  }
  auto launched = webServer_.launch(static_cast<std::uint16_t>(*number));
  if (!launched) return tl::unexpected(launched.error());
  return Dictionary{{"port", std::int64_t{*launched}}};
}

ControlProtocol::Reply ControlProtocol::loadLibrary(const Call&) {
  auto report = service_.libraries().load();
  if (!report) return tl::unexpected(report.error());
  Array failures;
  for (const auto& [dbName, error] : report->failures) {
    Error shown = publicError(error);
    failures.push_back(Dictionary{{"dbname", dbName}, {"code", shown.code}, {"msg", shown.message}});
  }
  return Dictionary{{"libraries", static_cast<std::int64_t>(report->open)},
                    {"failures", std::move(failures)}};
}

ControlProtocol::Reply ControlProtocol::stopWebServer(const Call&) {
  webServer_.stop();
  return Dictionary{};
}

ControlProtocol::Reply ControlProtocol::shutdownDatabase(const Call&) {
  service_.libraries().closeAll();
  return Dictionary{};
}

ControlProtocol::Reply ControlProtocol::getWebServerState(const Call&) {
  std::int64_t port = webServer_.port();
  return Dictionary{{"state", port != 0 ? 1 : 0}, {"port", port}};
}

ControlProtocol::Reply ControlProtocol::getUserSessions(const Call&) {
  return Dictionary{{"sessions", service_.sessions().list()}};
}

ControlProtocol::Reply ControlProtocol::getLocalAccountPassword(const Call&) {
  return Dictionary{{"password", service_.users().localPassword()}};
}

ControlProtocol::Reply ControlProtocol::updateLibrary(const Call&) {
  return emptyResult(service_.libraries().readList());
}

ControlProtocol::Reply ControlProtocol::updateUsers(const Call&) {
  return emptyResult(service_.users().reload(
      [this](const std::set<std::string>& identifiers) { service_.sessions().endOthers(identifiers); }));
}

ControlProtocol::Reply ControlProtocol::addLibrary(const Call& call) {
  const Value* library = call.params.find("library");
  if (!library || !library->ifDictionary())
    return tl::unexpected(rpcError(kInvalidParams, "\"library\" is no object."));
  const Value* create = call.params.find("create");
  const bool mayCreate = !create || coerce::boolean(create);
  return emptyResult(service_.libraries().add(*library->ifDictionary(), mayCreate));
}

ControlProtocol::Reply ControlProtocol::getLibraryForDBName(const Call& call) {
  auto dbName = dbNameOf(call.params);
  if (!dbName) return tl::unexpected(dbName.error());
  auto library = service_.libraries().find(*dbName);
  if (!library) return Dictionary{{"library", Value()}};
  Dictionary record = *library->record;
  record.set("dbport", library->state == LibraryState::open ? std::int64_t{webServer_.port()} : 0);
  return Dictionary{{"library", std::move(record)}};
}

ControlProtocol::Reply ControlProtocol::launchLibraryForDBName(const Call& call) {
  auto dbName = dbNameOf(call.params);
  if (!dbName) return tl::unexpected(dbName.error());
  return emptyResult(service_.libraries().launch(*dbName));
}

ControlProtocol::Reply ControlProtocol::terminateLibraryForDBName(const Call& call) {
  auto dbName = dbNameOf(call.params);
  if (!dbName) return tl::unexpected(dbName.error());
  service_.libraries().close(*dbName);
  return Dictionary{};
}

ControlProtocol::Reply ControlProtocol::removeLibraryWithDBName(const Call& call) {
  auto dbName = dbNameOf(call.params);
  if (!dbName) return tl::unexpected(dbName.error());
  return emptyResult(service_.libraries().remove(*dbName));
}

ControlProtocol::Reply ControlProtocol::snapshotDatabase(const Call& call) {
  auto dbName = dbNameOf(call.params);
  if (!dbName) return tl::unexpected(dbName.error());
  OptionalString folder = coerce::string(call.params.find("folder"));
  if (!folder) return tl::unexpected(rpcError(kInvalidParams, "\"folder\" is missing."));
  return emptyResult(service_.libraries().snapshot(*dbName, *folder,
                                                   coerce::boolean(call.params.find("close")), call.client));
}

ControlProtocol::Reply ControlProtocol::retireDatabase(const Call& call) {
  auto dbName = dbNameOf(call.params);
  if (!dbName) return tl::unexpected(dbName.error());
  return emptyResult(service_.libraries().retire(*dbName));
}

ControlProtocol::Reply ControlProtocol::replaceDatabase(const Call& call) {
  auto dbName = dbNameOf(call.params);
  if (!dbName) return tl::unexpected(dbName.error());
  return emptyResult(service_.libraries().replace(*dbName));
}

/// Access to folders needs no opening on this platform; what cannot be reached is worth a line in the log. A
/// file system that hangs keeps one worker at it, not everybody who asks.
ControlProtocol::Reply ControlProtocol::startAllBookmarks(const Call&) {
  if (isLooking_.exchange(true)) return Dictionary{};
  std::shared_ptr<void> looked(nullptr, [this](void*) { isLooking_ = false; });
  for (const Library& library : service_.libraries().all()) {
    if (isDirectory(library.packageFolder)) continue;
    logLine(LogLevel::warning, fmt::format("The package folder of library {} cannot be reached: {}",
                                           library.dbName, library.packageFolder));
  }
  return Dictionary{};
}

ControlProtocol::Reply ControlProtocol::terminate(const Call&) {
  ending_ = true;
  logLine(LogLevel::info, "A client ends the service");
  return Dictionary{};
}

}  // namespace vornex::server
