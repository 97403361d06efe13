#include "server/http/Connection.h"

#include <fmt/format.h>
#include <sys/sendfile.h>
#include <vornex/Log.h>

#include <algorithm>
#include <array>
#include <boost/asio/as_tuple.hpp>
#include <boost/asio/bind_executor.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/string.hpp>
#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/error.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/write.hpp>
#include <cerrno>
#include <ctime>

#include "server/http/Replies.h"

namespace vornex::server {

namespace asio = boost::asio;
namespace http = boost::beast::http;
using boost::system::error_code;

namespace {

constexpr auto kAwaitTuple = asio::as_tuple(asio::use_awaitable);
constexpr std::size_t kSendPiece = std::size_t{1} << 20;
constexpr auto kExpiryRepeat = std::chrono::milliseconds(50);
constexpr auto kLinger = std::chrono::milliseconds(2000);

std::string text(boost::beast::string_view view) {
  return {view.data(), view.size()};
}

template <typename Body>
http::response<Body> responseHead(const Response& response, bool keepAlive) {
  http::response<Body> head;
  head.version(11);
  head.result(response.status);
  head.set(http::field::server, std::string("vornexd/") + serverVersion());
  head.set(http::field::date, httpDate(std::time(nullptr)));
  for (const auto& [name, value] : response.headers) head.insert(name, value);
  // Media files may hold scripts, and pages may try to show them: nothing runs, nothing is embedded.
  head.set("X-Content-Type-Options", "nosniff");
  head.set("Cross-Origin-Resource-Policy", "same-origin");
  head.set("Content-Security-Policy",
           "default-src 'none'; img-src 'self' data:; media-src 'self'; style-src 'unsafe-inline'; sandbox");
  head.keep_alive(keepAlive);
  return head;
}

/// "address:port", the address of IPv6 in brackets.
std::string textOf(const asio::ip::tcp::endpoint& endpoint) {
  std::string address = endpoint.address().to_string();
  if (endpoint.address().is_v6()) address = "[" + address + "]";
  return address + ":" + std::to_string(endpoint.port());
}

/// A request that a worker has in hand. It outlives its connection's patience: a worker cannot be
/// interrupted.
struct Work {
  Work(const asio::any_io_executor& executor, Call takenCall, Request takenRequest)
      : call(std::move(takenCall)), request(std::move(takenRequest)), finished(executor) {}

  Call call;
  Request request;
  Response response;
  bool done = false;
  asio::steady_timer finished;
};

}  // namespace

Connection::Connection(asio::ip::tcp::socket socket, std::shared_ptr<ConnectionContext> context)
    : socket_(std::move(socket)), context_(std::move(context)), deadline_(socket_.get_executor()) {
  error_code ignored;
  socket_.set_option(asio::ip::tcp::no_delay(true), ignored);
  auto peer = socket_.remote_endpoint(ignored);
  if (!ignored) host_ = peer.address().to_string();
  auto local = socket_.local_endpoint(ignored);
  if (!ignored) server_ = textOf(local);
}

/// Starts the time limit of the next wait; when it passes, the wait fails and expired_ says why.
void Connection::arm(std::chrono::milliseconds limit) {
  expired_ = false;
  deadline_.expires_after(limit);
  awaitDeadline(++armed_);
}

/// An operation of several reads may be between two of them when the time is over, and would go on: it is
/// cancelled until the next limit is set.
void Connection::awaitDeadline(std::uint64_t turn) {
  deadline_.async_wait([weak = weak_from_this(), turn](error_code error) {
    auto self = weak.lock();
    if (error || !self || turn != self->armed_) return;
    self->expired_ = true;
    self->socket_.cancel(error);
    self->deadline_.expires_after(kExpiryRepeat);
    self->awaitDeadline(turn);
  });
}

void Connection::stop() {
  asio::post(socket_.get_executor(), [self = shared_from_this()] {
    self->stopping_ = true;
    error_code ignored;
    if (self->idle_) self->socket_.cancel(ignored);
  });
}

void Connection::abort() {
  asio::post(socket_.get_executor(), [self = shared_from_this()] {
    self->stopping_ = true;
    self->aborted_ = true;
    error_code ignored;
    // Not closed: a worker may be sending from a file into it.
    self->socket_.shutdown(asio::ip::tcp::socket::shutdown_both, ignored);
    self->socket_.cancel(ignored);
    self->deadline_.cancel();
    if (auto answer = self->awaitedAnswer_.lock()) answer->cancel();
  });
}

asio::awaitable<void> Connection::serve() {
  bool goesOn = true;
  while (goesOn && !stopping_) {
    goesOn = co_await awaitRequest();
    if (goesOn) goesOn = co_await serveRequest();
  }
  error_code ignored;
  ++armed_;
  deadline_.cancel();
  socket_.shutdown(asio::ip::tcp::socket::shutdown_both, ignored);
  socket_.close(ignored);
}

asio::awaitable<void> Connection::refuse() {
  Response refusal = errorReply(503, StatusCode::limitExceeded, "The server has too many connections.");
  co_await writeLast(std::move(refusal));
}

asio::awaitable<bool> Connection::awaitRequest() {
  if (buffer_.size() > 0) co_return true;
  idle_ = true;
  arm(context_->limits.idle);
  auto [error] = co_await socket_.async_wait(asio::ip::tcp::socket::wait_read, kAwaitTuple);
  idle_ = false;
  co_return !error;
}

/// Returns whether the connection can take another request.
asio::awaitable<bool> Connection::serveRequest() {
  Parser parser;
  parser.header_limit(static_cast<std::uint32_t>(context_->limits.headerBytes));
  parser.body_limit(context_->limits.bodyBytes);
  arm(context_->limits.header);
  auto [error, size] = co_await http::async_read_header(socket_, buffer_, parser, kAwaitTuple);
  if (error) {
    co_await answerReadFailure(error);
    co_return false;
  }

  Request request = requestFrom(parser);
  auto call = context_->router.admit(request);
  bool isHead = request.method == "HEAD";
  if (!call) {
    // What follows on the connection may be a body, which is not worth reading.
    if (!parser.is_done()) {
      co_await writeLast(std::move(call.error()));
      co_return false;
    }
    bool refusalGoesOn = co_await write(std::move(call.error()), isHead, parser.get().keep_alive());
    co_return refusalGoesOn;
  }
  bool complete = co_await readBody(parser);
  if (!complete) co_return false;
  request.body = std::move(parser.get().body());
  Response response = co_await work(std::move(*call), std::move(request));
  bool goesOn = co_await write(std::move(response), isHead, parser.get().keep_alive() && !stopping_);
  co_return goesOn;
}

Request Connection::requestFrom(const Parser& parser) const {
  const auto& head = parser.get();
  Request request;
  request.method = text(head.method_string());
  request.target = text(head.target());
  request.authorization = text(head[http::field::authorization]);
  request.device = text(head["X-Vornex-Device"]);
  request.clientType = text(head["X-Vornex-Client"]);
  request.range = text(head[http::field::range]);
  request.ifRange = text(head[http::field::if_range]);
  request.ifNoneMatch = text(head[http::field::if_none_match]);
  request.contentType = text(head[http::field::content_type]);
  request.origin = text(head[http::field::origin]);
  request.fetchSite = text(head["Sec-Fetch-Site"]);
  request.host = host_;
  request.server = server_;
  request.hasBody = !parser.is_done();
  return request;
}

asio::awaitable<bool> Connection::readBody(Parser& parser) {
  if (parser.is_done()) co_return true;
  arm(context_->limits.body);
  if (boost::beast::iequals(parser.get()[http::field::expect], "100-continue")) {
    static constexpr std::string_view kContinue = "HTTP/1.1 100 Continue\r\n\r\n";
    auto [error, size] = co_await asio::async_write(socket_, asio::buffer(kContinue), kAwaitTuple);
    if (error) co_return false;
  }
  auto [error, size] = co_await http::async_read(socket_, buffer_, parser, kAwaitTuple);
  if (error) co_await answerReadFailure(error);
  co_return !error;
}

/// Says what was wrong with the request; nothing to a client that has left.
asio::awaitable<void> Connection::answerReadFailure(error_code error) {
  bool isProtocolError = error.category() == error_code(http::error::bad_target).category();
  Response refusal;
  if (expired_) {
    refusal = errorReply(408, StatusCode::timedOut, "The request did not arrive in time.");
  } else if (error == http::error::header_limit) {
    refusal = errorReply(431, StatusCode::limitExceeded, "The request's header is too large.");
  } else if (error == http::error::body_limit) {
    refusal = errorReply(413, StatusCode::limitExceeded, "The request's body is too large.");
  } else if (isProtocolError && error != http::error::end_of_stream &&
             error != http::error::partial_message) {
    refusal = errorReply(400, StatusCode::invalidRequest, "The request is malformed.");
  } else {
    co_return;
  }
  co_await writeLast(std::move(refusal));
}

/// Has a worker answer the request; answers for it when none is free or when it takes too long.
asio::awaitable<Response> Connection::work(Call call, Request request) {
  Lane lane = call.route->lane;
  auto job = std::make_shared<Work>(socket_.get_executor(), std::move(call), std::move(request));
  auto started = std::chrono::steady_clock::now();
  job->finished.expires_after(context_->limits.handling);
  bool taken = context_->workers.run(
      lane, [job, context = context_] { job->response = context->router.handle(job->call, job->request); },
      [job] {
        asio::post(job->finished.get_executor(), [job] {
          job->done = true;
          job->finished.cancel();
        });
      });
  if (!taken) co_return errorReply(503, StatusCode::limitExceeded, "The server is busy.");
  awaitedAnswer_ = std::shared_ptr<asio::steady_timer>(job, &job->finished);
  if (!aborted_) co_await job->finished.async_wait(kAwaitTuple);
  auto milliseconds =
      std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - started);
  unsigned status = job->done ? job->response.status : 504;
  logLine(LogLevel::debug, fmt::format("{} {} {} {} ms", job->request.method, job->request.target, status,
                                       milliseconds.count()));
  if (!job->done) co_return errorReply(StatusCode::timedOut, "The server took too long.");
  co_return std::move(job->response);
}

asio::awaitable<bool> Connection::write(Response response, bool isHead, bool keepAlive) {
  arm(context_->limits.stall);
  error_code error;
  if (response.file || isHead) {
    auto head = responseHead<http::empty_body>(response, keepAlive);
    head.content_length(response.file ? response.file->length : response.body.size());
    http::response_serializer<http::empty_body> serializer{head};
    co_await http::async_write_header(socket_, serializer, asio::redirect_error(asio::use_awaitable, error));
    if (!error && response.file && !isHead) {
      bool sent = co_await sendFile(*response.file);
      if (!sent) co_return false;
    }
  } else {
    auto message = responseHead<http::string_body>(response, keepAlive);
    message.body() = std::move(response.body);
    if (response.status != 304) message.content_length(message.body().size());
    http::response_serializer<http::string_body> serializer{message};
    while (!error && !serializer.is_done()) {
      arm(context_->limits.stall);
      co_await http::async_write_some(socket_, serializer, asio::redirect_error(asio::use_awaitable, error));
    }
  }
  co_return !error && keepAlive;
}

/// Copies inside the kernel, piece by piece on a worker, since a disk may be slow.
asio::awaitable<bool> Connection::sendFile(const FileBody& body) {
  error_code error;
  socket_.native_non_blocking(true, error);
  auto offset = static_cast<off_t>(body.offset);
  std::uint64_t left = body.length;
  const int target = socket_.native_handle();
  while (left > 0 && !error) {
    arm(context_->limits.stall);
    std::size_t piece = std::min<std::uint64_t>(left, kSendPiece);
    co_await asio::post(asio::bind_executor(context_->workers.fileExecutor(), asio::use_awaitable));
    ssize_t sent = ::sendfile(target, body.file.get(), &offset, piece);
    int failure = errno;
    co_await asio::post(asio::bind_executor(socket_.get_executor(), asio::use_awaitable));
    if (sent > 0) {
      left -= static_cast<std::uint64_t>(sent);
    } else if (sent < 0 && (failure == EAGAIN || failure == EINTR)) {
      co_await socket_.async_wait(asio::ip::tcp::socket::wait_write,
                                  asio::redirect_error(asio::use_awaitable, error));
    } else {
      co_return false;  // the client left, or the file has become shorter
    }
  }
  co_return !error;
}

/// Writes, then waits shortly for the client to read the answer before the connection goes.
asio::awaitable<void> Connection::writeLast(Response response) {
  co_await write(std::move(response), false, false);
  error_code error;
  socket_.shutdown(asio::ip::tcp::socket::shutdown_send, error);
  arm(kLinger);
  std::array<char, 4096> scrap;
  while (!error && !stopping_ && !expired_) {
    co_await socket_.async_read_some(asio::buffer(scrap), asio::redirect_error(asio::use_awaitable, error));
  }
}

}  // namespace vornex::server
