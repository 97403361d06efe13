#pragma once

#include <functional>
#include <memory>
#include <string>

#include "foundation/Error.h"
#include "foundation/FileDescriptor.h"
#include "server/control/ControlProtocol.h"

namespace vornex::server {

/// The control channel's Unix socket: one JSON message a line, for processes of the same user only.
///
/// Thread-safety: start() and stop() belong to one thread.
class ControlServer {
 public:
  /// Longest line taken, the line end included.
  static constexpr std::size_t kLineLimit = std::size_t{16} << 20;

  /// The protocol must outlive the server. `onTerminate` is called when a client has ended the service and
  /// its answer is on the way; it must not block.
  ControlServer(ControlProtocol& protocol, std::function<void()> onTerminate);
  /// Stops.
  ~ControlServer();

  /// Makes the socket, in the place of one that a killed process left, and takes clients. An inherited socket
  /// that listens already is used instead, and can be reached at the usual place too.
  [[nodiscard]] Result<void> start(FileDescriptor inherited = {});

  /// Removes the socket, unless it was inherited, waits for running calls, and closes every connection.
  void stop();

 private:
  class Running;
  ControlProtocol& protocol_;
  std::function<void()> onTerminate_;
  std::shared_ptr<Running> running_;
};

}  // namespace vornex::server
