#include "server/http/HttpServer.h"

#include <fmt/format.h>
#include <vornex/Log.h>

#include <boost/asio/as_tuple.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/strand.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <condition_variable>
#include <csignal>
#include <future>
#include <map>
#include <thread>
#include <vector>

#include "server/ServerError.h"
#include "server/http/Connection.h"

namespace vornex::server {

namespace asio = boost::asio;
using boost::system::error_code;

namespace {

constexpr int kNetworkThreads = 2;
/// Refusals that are on their way; beyond them connections are dropped.
constexpr std::size_t kMostRefusals = 64;
constexpr auto kPauseAfterFailedAccept = std::chrono::milliseconds(100);
constexpr auto kAbortGrace = std::chrono::seconds(5);

tl::unexpected<Error> cannotServe(const std::string& address, std::uint16_t port, const error_code& error) {
  if (error == asio::error::address_in_use) {
    return serverFailure(StatusCode::portInUse, fmt::format("Port {} of {} is in use.", port, address));
  }
  return serverFailure(StatusCode::internalError,
                       fmt::format("Cannot serve on port {} of {}: {}", port, address, error.message()));
}

}  // namespace

/// A server that serves: threads, acceptor, connections.
class HttpServer::Running {
 public:
  Running(const Router& router, const Limits& limits)
      : limits_(limits),
        workers_(limits),
        context_(std::make_shared<ConnectionContext>(ConnectionContext{router, limits, workers_})),
        acceptor_(asio::make_strand(io_)),
        pause_(acceptor_.get_executor()) {}

  Result<std::uint16_t> start(const std::string& address, std::uint16_t port) {
    error_code error;
    auto numeric = asio::ip::make_address(address, error);
    if (error) return serverFailure(StatusCode::invalidRequest, address + " is no numeric address.");
    asio::ip::tcp::endpoint endpoint(numeric, port);
    acceptor_.open(endpoint.protocol(), error);
    if (!error) acceptor_.set_option(asio::socket_base::reuse_address(true), error);
    if (!error) acceptor_.bind(endpoint, error);
    if (!error) acceptor_.listen(asio::socket_base::max_listen_connections, error);
    if (!error) endpoint = acceptor_.local_endpoint(error);
    if (error) return cannotServe(address, port, error);
    asio::co_spawn(acceptor_.get_executor(), accept(), asio::detached);
    for (int i = 0; i < kNetworkThreads; ++i) threads_.emplace_back([this] { io_.run(); });
    return endpoint.port();
  }

  void stop() {
    std::promise<void> closed;
    asio::post(acceptor_.get_executor(), [this, &closed] {
      error_code ignored;
      stopping_ = true;
      acceptor_.close(ignored);
      pause_.cancel();
      closed.set_value();
    });
    closed.get_future().wait();
    forEachConnection([](Connection& connection) { connection.stop(); });
    if (!awaitConnections(limits_.drain)) {
      forEachConnection([](Connection& connection) { connection.abort(); });
      if (!awaitConnections(kAbortGrace))
        logLine(LogLevel::warning, "Connections remain while the web server stops");
    }
    work_.reset();
    workers_.join();
    io_.stop();
    for (std::thread& thread : threads_) thread.join();
  }

 private:
  asio::awaitable<void> accept() {
    while (!stopping_) {
      auto [error, socket] =
          co_await acceptor_.async_accept(asio::make_strand(io_), asio::as_tuple(asio::use_awaitable));
      if (stopping_) co_return;
      if (error) {
        logLine(LogLevel::warning, "Cannot accept a connection: " + error.message());
        pause_.expires_after(kPauseAfterFailedAccept);
        co_await pause_.async_wait(asio::as_tuple(asio::use_awaitable));
        continue;
      }
      take(std::move(socket));
    }
  }

  void take(asio::ip::tcp::socket socket) {
    auto executor = socket.get_executor();
    auto connection = std::make_shared<Connection>(std::move(socket), context_);
    std::size_t others = 0;
    {
      std::lock_guard lock(mutex_);
      others = connections_.size();
      if (others >= limits_.connections + kMostRefusals) return;
      connections_.emplace(connection.get(), connection);
    }
    bool welcome = others < limits_.connections;
    asio::co_spawn(
        executor, [connection, welcome] { return welcome ? connection->serve() : connection->refuse(); },
        [this, connection](std::exception_ptr failure) {
          if (failure) logLine(LogLevel::error, "A connection ended with an exception");
          std::lock_guard lock(mutex_);
          connections_.erase(connection.get());
          changed_.notify_all();
        });
  }

  bool awaitConnections(std::chrono::milliseconds limit) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, limit, [this] { return connections_.empty(); });
  }

  template <typename Action>
  void forEachConnection(Action action) {
    std::vector<std::shared_ptr<Connection>> all;
    {
      std::lock_guard lock(mutex_);
      for (const auto& [key, connection] : connections_) all.push_back(connection);
    }
    for (const auto& connection : all) action(*connection);
  }

  const Limits& limits_;
  asio::io_context io_;
  asio::executor_work_guard<asio::io_context::executor_type> work_{io_.get_executor()};
  Workers workers_;
  std::shared_ptr<ConnectionContext> context_;
  asio::ip::tcp::acceptor acceptor_;
  asio::steady_timer pause_;
  /// Belongs to the acceptor's strand.
  bool stopping_ = false;
  std::vector<std::thread> threads_;

  std::mutex mutex_;
  std::condition_variable changed_;
  std::map<Connection*, std::shared_ptr<Connection>> connections_;
};

HttpServer::HttpServer(const Router& router, std::string address, const Limits& limits)
    : router_(router), address_(std::move(address)), limits_(limits) {}

HttpServer::~HttpServer() {
  stop();
}

Result<std::uint16_t> HttpServer::launch(std::uint16_t wanted) {
  std::lock_guard changing(changing_);
  if (std::uint16_t current = port(); current != 0) {
    if (wanted == 0 || wanted == current) return current;
    return serverFailure(StatusCode::portInUse,
                         fmt::format("The service already serves on port {}.", current));
  }
  // sendfile() has no other way not to raise it when a client leaves.
  std::signal(SIGPIPE, SIG_IGN);
  auto running = std::make_shared<Running>(router_, limits_);
  auto started = running->start(address_, wanted);
  if (!started) return started;
  std::lock_guard lock(mutex_);
  running_ = std::move(running);
  port_ = *started;
  logLine(LogLevel::info, fmt::format("Serving on {} port {}", address_, port_));
  return port_;
}

void HttpServer::stop() {
  std::lock_guard changing(changing_);
  std::shared_ptr<Running> running;
  {
    std::lock_guard lock(mutex_);
    running = std::move(running_);
    running_.reset();
    port_ = 0;
  }
  if (!running) return;
  running->stop();
  logLine(LogLevel::info, "The web server has stopped");
}

std::uint16_t HttpServer::port() const {
  std::lock_guard lock(mutex_);
  return port_;
}

}  // namespace vornex::server
