#pragma once

#include <vornex/Value.h>

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "server/Service.h"
#include "server/http/HttpServer.h"

namespace vornex::server {

/// The calls of the control channel (docs/control-channel.md), free of sockets.
///
/// Thread-safety: safe on any thread.
class ControlProtocol {
 public:
  /// What a message leads to.
  struct Outcome {
    /// The answer, without a line end; absent for messages that take none.
    std::optional<std::string> reply;
    /// The sender is to receive the callbacks from now on, the first right after the answer.
    bool registered = false;
    /// The process is to end once the answer has been sent.
    bool terminate = false;
  };

  /// Both must outlive the protocol.
  ControlProtocol(Service& service, HttpServer& webServer) : service_(service), webServer_(webServer) {}
  /// No library may be changing then.
  ~ControlProtocol() { service_.libraries().listen({}); }
  ControlProtocol(const ControlProtocol&) = delete;
  ControlProtocol& operator=(const ControlProtocol&) = delete;

  /// Has the service's events sent as notifications to every registered client.
  void sendEventsTo(std::function<void(std::string notification)> broadcast);

  /// Works on one message; blocks until the call is done. Anything malformed is answered with an error.
  Outcome handle(std::string_view message);

  static std::string launchedNotification();

 private:
  using Reply = Result<Value>;
  struct Method;

  static const Method* methodNamed(const std::string& name);

  Reply registerClient(const Dictionary& params);
  Reply launchWebServer(const Dictionary& params);
  Reply loadLibrary(const Dictionary& params);
  Reply stopWebServer(const Dictionary& params);
  Reply shutdownDatabase(const Dictionary& params);
  Reply getWebServerState(const Dictionary& params);
  Reply getUserSessions(const Dictionary& params);
  Reply getLocalAccountPassword(const Dictionary& params);
  Reply updateLibrary(const Dictionary& params);
  Reply updateUsers(const Dictionary& params);
  Reply addLibrary(const Dictionary& params);
  Reply getLibraryForDBName(const Dictionary& params);
  Reply launchLibraryForDBName(const Dictionary& params);
  Reply terminateLibraryForDBName(const Dictionary& params);
  Reply removeLibraryWithDBName(const Dictionary& params);
  Reply snapshotDatabase(const Dictionary& params);
  Reply startAllBookmarks(const Dictionary& params);
  Reply terminate(const Dictionary& params);

  Service& service_;
  HttpServer& webServer_;
  std::function<void(std::string notification)> broadcast_ = [](auto&&...) {};
};

}  // namespace vornex::server
