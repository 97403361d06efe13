#pragma once

#include <boost/asio/awaitable.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/string_body.hpp>
#include <memory>
#include <optional>
#include <string>

#include "server/http/Limits.h"
#include "server/http/Router.h"
#include "server/http/Workers.h"

namespace vornex::server {

/// What the connections of one server share.
struct ConnectionContext {
  const Router& router;
  const Limits& limits;
  Workers& workers;
};

/// One client's connection: reads requests, has them answered by a worker, and writes the answers. Every wait
/// has a time limit.
///
/// Thread-safety: everything but stop() and abort() runs on the socket's strand.
class Connection : public std::enable_shared_from_this<Connection> {
 public:
  Connection(boost::asio::ip::tcp::socket socket, std::shared_ptr<ConnectionContext> context);

  /// Serves requests until either side has enough.
  boost::asio::awaitable<void> serve();

  /// Tells the client that there are too many connections.
  boost::asio::awaitable<void> refuse();

  /// Ends after the request in hand; at once when there is none.
  void stop();
  /// Ends now.
  void abort();

 private:
  using Parser = boost::beast::http::request_parser<boost::beast::http::string_body>;

  boost::asio::awaitable<bool> awaitRequest();
  boost::asio::awaitable<bool> serveRequest();
  boost::asio::awaitable<Response> work(Call call, Request request);
  boost::asio::awaitable<bool> readBody(Parser& parser);
  boost::asio::awaitable<void> answerReadFailure(boost::system::error_code error);
  boost::asio::awaitable<bool> write(Response response, bool isHead, bool keepAlive);
  boost::asio::awaitable<bool> sendFile(const FileBody& file);
  boost::asio::awaitable<void> writeLast(Response response);

  void arm(std::chrono::milliseconds limit);
  void awaitDeadline(std::uint64_t turn);
  Request requestFrom(const Parser& parser) const;

  boost::asio::ip::tcp::socket socket_;
  std::shared_ptr<ConnectionContext> context_;
  boost::beast::flat_buffer buffer_;
  std::string host_;
  std::string server_;

  boost::asio::steady_timer deadline_;
  std::uint64_t armed_ = 0;
  bool expired_ = false;

  bool idle_ = false;
  bool stopping_ = false;
  bool aborted_ = false;
  /// Fires when the answer of a worker is there.
  std::weak_ptr<boost::asio::steady_timer> awaitedAnswer_;
};

}  // namespace vornex::server
