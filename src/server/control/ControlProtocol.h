#pragma once

#include <vornex/Value.h>

#include <atomic>
#include <functional>
#include <memory>
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
  /// databases and connections, what copies whole databases, and what looks at disks that may hang.
  enum class Lane { quick, work, copy, look };
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
    /// Whose call it is; may be null.
    std::shared_ptr<const ClientPresence> client;
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

  /// To be called when a client's presence has ended.
  void clientLeft() { service_.libraries().clientLeft(); }

  static std::string launchedNotification();

 private:
  using Reply = Result<Value>;

  static const Method* methodNamed(const std::string& name);

  Reply registerClient(const Call& call);
  Reply launchWebServer(const Call& call);
  Reply loadLibrary(const Call& call);
  Reply stopWebServer(const Call& call);
  Reply shutdownDatabase(const Call& call);
  Reply getWebServerState(const Call& call);
  Reply getUserSessions(const Call& call);
  Reply getLocalAccountPassword(const Call& call);
  Reply updateLibrary(const Call& call);
  Reply updateUsers(const Call& call);
  Reply addLibrary(const Call& call);
  Reply getLibraryForDBName(const Call& call);
  Reply launchLibraryForDBName(const Call& call);
  Reply terminateLibraryForDBName(const Call& call);
  Reply removeLibraryWithDBName(const Call& call);
  Reply snapshotDatabase(const Call& call);
  Reply retireDatabase(const Call& call);
  Reply replaceDatabase(const Call& call);
  Reply startAllBookmarks(const Call& call);
  Reply terminate(const Call& call);

  Reply perform(const Call& call);

  Service& service_;
  HttpServer& webServer_;
  std::atomic<bool> ending_ = false;
  std::atomic<bool> isLooking_ = false;
  std::function<void(std::string notification)> broadcast_ = [](auto&&...) {};
};

}  // namespace vornex::server
