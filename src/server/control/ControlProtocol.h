#pragma once

#include <vornex/Value.h>

#include <atomic>
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

  /// Kinds of calls that have workers of their own: what is answered from memory, what opens and closes
  /// databases and connections, and what copies whole databases.
  enum class Lane { quick, work, copy };
  struct Method;

  /// A message that has been read.
  struct Call {
    Value id;
    bool wantsReply = false;
    /// None when there is nothing to do but to reply.
    const Method* method = nullptr;
    Dictionary params;
    std::optional<Error> refusal;
    Lane lane = Lane::quick;
  };

  /// Both must outlive the protocol.
  ControlProtocol(Service& service, HttpServer& webServer) : service_(service), webServer_(webServer) {}
  /// No library may be changing then.
  ~ControlProtocol() { service_.libraries().listen({}); }
  ControlProtocol(const ControlProtocol&) = delete;
  ControlProtocol& operator=(const ControlProtocol&) = delete;

  /// Has the service's events sent as notifications to every registered client.
  void sendEventsTo(std::function<void(std::string notification)> broadcast);

  /// Reads one message. Anything malformed becomes a call that is answered with an error.
  static Call read(std::string_view message);
  /// Works on the call; blocks until it is done. Once a client has ended the service, calls that would start
  /// something fail with `serviceStopping`.
  Outcome run(const Call& call);
  /// Both.
  Outcome handle(std::string_view message) { return run(read(message)); }

  static std::string launchedNotification();

 private:
  using Reply = Result<Value>;

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
  Reply retireDatabase(const Dictionary& params);
  Reply replaceDatabase(const Dictionary& params);
  Reply startAllBookmarks(const Dictionary& params);
  Reply terminate(const Dictionary& params);

  Reply perform(const Call& call);

  Service& service_;
  HttpServer& webServer_;
  std::atomic<bool> ending_ = false;
  std::function<void(std::string notification)> broadcast_ = [](auto&&...) {};
};

}  // namespace vornex::server
