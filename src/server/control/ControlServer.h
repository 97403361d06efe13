#pragma once

#include <functional>
#include <memory>
#include <string>

#include "foundation/Error.h"
#include "foundation/FileDescriptor.h"
#include "server/control/ControlProtocol.h"

namespace vornex::server {

/// What one client may do; whatever goes beyond ends its connection.
struct ControlLimits {
  /// Calls that are worked on or wait.
  std::size_t calls = 256;
  /// Bytes that wait for a client that does not read.
  std::size_t waitingBytes = std::size_t{64} << 20;
};

/// The control channel's Unix socket: one JSON message a line, for processes of the same user only.
///
/// Thread-safety: start() and stop() belong to one thread.
class ControlServer {
 public:
  /// Longest line taken, the line end included.
  static constexpr std::size_t kLineLimit = std::size_t{16} << 20;

  /// The protocol must outlive the server. `onTerminate` is called when a client has ended the service and
  /// its answer is on the way; it must not block.
  ControlServer(ControlProtocol& protocol, std::function<void()> onTerminate, ControlLimits limits = {});
  /// Stops.
  ~ControlServer();

  /// Makes the socket, in the place of one that a killed process left, and takes clients. An inherited socket
  /// that listens already is used instead, and can be reached at the usual place too. `itemExists` when
  /// somebody else listens at that place, who keeps it.
  [[nodiscard]] Result<void> start(FileDescriptor inherited = {});

  /// Removes the socket, unless it was inherited or somebody else has taken its place, and closes every
  /// connection. Calls that are worked on cannot be interrupted and are waited for, however long they take;
  /// those that wait are dropped.
  void stop();

 private:
  class Running;
  ControlProtocol& protocol_;
  std::function<void()> onTerminate_;
  const ControlLimits limits_;
  std::shared_ptr<Running> running_;
};

}  // namespace vornex::server
