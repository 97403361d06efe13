#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "foundation/Error.h"
#include "server/http/Limits.h"
#include "server/http/Router.h"

namespace vornex::server {

/// The web server: takes connections and has a router answer their requests.
///
/// Thread-safety: safe on any thread; launch() and stop() wait for one another.
class HttpServer {
 public:
  /// Router and limits must outlive the server. The address is numeric.
  HttpServer(const Router& router, std::string address, const Limits& limits);
  /// Stops.
  ~HttpServer();

  /// Serves on the port, on any free one for 0, and gives the port in use. When it serves already, the port
  /// in use, or `portInUse` if another one was asked for. `portInUse` also when another process has the port.
  [[nodiscard]] Result<std::uint16_t> launch(std::uint16_t port);

  /// Takes no more connections, lets running requests end within the limit, and closes. Work that a worker
  /// has in hand then cannot be interrupted; blocks until that has ended, too, its answer being lost.
  void stop();

  /// The port in use; 0 while it does not serve.
  std::uint16_t port() const;

 private:
  class Running;

  const Router& router_;
  const std::string address_;
  const Limits& limits_;
  std::mutex changing_;
  mutable std::mutex mutex_;
  std::shared_ptr<Running> running_;
  std::uint16_t port_ = 0;
};

}  // namespace vornex::server
