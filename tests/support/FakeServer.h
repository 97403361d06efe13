#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <atomic>
#include <cctype>
#include <functional>
#include <map>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "foundation/FileDescriptor.h"

namespace vornex::testing {

struct FakeRequest {
  std::string method;
  std::string target;
  /// Names in lower case.
  std::map<std::string, std::string> headers;
  std::string body;
};

/// What the server sends, to the byte, and what it does to the connection then.
struct FakeReply {
  enum class Then { keepOpen, close, reset, hang };

  std::string bytes;
  Then then = Then::keepOpen;

  static FakeReply json(std::string body, int status = 200,
                        const std::string& contentType = "application/json") {
    return {"HTTP/1.1 " + std::to_string(status) + " Said\r\nContent-Type: " + contentType +
            "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body};
  }
};

/// An HTTP server on a free loopback port that answers as it is told, however wrong.
///
/// Thread-safety: the handler runs on the server's threads, one for each connection; the rest is safe
/// anywhere.
class FakeServer {
 public:
  using Handler = std::function<FakeReply(const FakeRequest&)>;

  explicit FakeServer(Handler handler)
      : handler_(std::move(handler)), listener_(::socket(AF_INET, SOCK_STREAM, 0)) {
    sockaddr_in address = loopback();
    socklen_t size = sizeof address;
    if (::bind(listener_.get(), reinterpret_cast<sockaddr*>(&address), size) != 0 ||
        ::listen(listener_.get(), 64) != 0 ||
        ::getsockname(listener_.get(), reinterpret_cast<sockaddr*>(&address), &size) != 0) {
      throw std::runtime_error("the fake server cannot listen");
    }
    port_ = ntohs(address.sin_port);
    acceptor_ = std::thread([this] { accept(); });
  }

  ~FakeServer() {
    stopping_ = true;
    ::shutdown(listener_.get(), SHUT_RDWR);
    acceptor_.join();
    {
      std::lock_guard lock(mutex_);
      for (const FileDescriptor& connection : connections_) ::shutdown(connection.get(), SHUT_RDWR);
    }
    for (std::thread& worker : workers_) worker.join();
  }

  int port() const { return port_; }
  std::string url(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(port_) + path;
  }

  std::vector<FakeRequest> requests() const {
    std::lock_guard lock(mutex_);
    return requests_;
  }
  std::size_t connectionCount() const {
    std::lock_guard lock(mutex_);
    return connections_.size();
  }

 private:
  static sockaddr_in loopback() {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
  }

  void accept() {
    while (!stopping_) {
      FileDescriptor connection(::accept(listener_.get(), nullptr, nullptr));
      if (!connection) continue;
      std::lock_guard lock(mutex_);
      int descriptor = connection.get();
      connections_.push_back(std::move(connection));
      workers_.emplace_back([this, descriptor] { serve(descriptor); });
    }
  }

  void serve(int connection) {
    std::string received;
    FakeRequest request;
    while (read(connection, received, request)) {
      {
        std::lock_guard lock(mutex_);
        requests_.push_back(request);
      }
      FakeReply reply = handler_(request);
      if (::send(connection, reply.bytes.data(), reply.bytes.size(), MSG_NOSIGNAL) < 0) return;
      if (reply.then == FakeReply::Then::keepOpen) continue;
      if (reply.then == FakeReply::Then::hang) waitForTheEnd(connection);
      if (reply.then == FakeReply::Then::reset) reset(connection);
      ::shutdown(connection, SHUT_RDWR);
      return;
    }
  }

  static void waitForTheEnd(int connection) {
    char ignored[256];
    while (::recv(connection, ignored, sizeof ignored, 0) > 0) continue;
  }

  /// Dissolving the association of a connected socket resets it, and keeps the descriptor.
  static void reset(int connection) {
    linger abortive{1, 0};
    ::setsockopt(connection, SOL_SOCKET, SO_LINGER, &abortive, sizeof abortive);
    sockaddr nowhere{};
    nowhere.sa_family = AF_UNSPEC;
    ::connect(connection, &nowhere, sizeof nowhere);
  }

  /// Takes one request off the connection; false at its end.
  static bool read(int connection, std::string& received, FakeRequest& request) {
    std::size_t headerEnd = 0;
    while ((headerEnd = received.find("\r\n\r\n")) == std::string::npos)
      if (!receiveMore(connection, received)) return false;
    request = parseHead(received.substr(0, headerEnd + 2));
    auto length = request.headers.find("content-length");
    std::size_t end = headerEnd + 4 + (length == request.headers.end() ? 0 : std::stoul(length->second));
    while (received.size() < end)
      if (!receiveMore(connection, received)) return false;
    request.body = received.substr(headerEnd + 4, end - headerEnd - 4);
    received.erase(0, end);
    return true;
  }

  static bool receiveMore(int connection, std::string& received) {
    char bytes[4096];
    ssize_t count = ::recv(connection, bytes, sizeof bytes, 0);
    if (count > 0) received.append(bytes, static_cast<std::size_t>(count));
    return count > 0;
  }

  static FakeRequest parseHead(const std::string& head) {
    FakeRequest request;
    std::size_t lineEnd = head.find("\r\n");
    std::size_t methodEnd = head.find(' ');
    request.method = head.substr(0, methodEnd);
    request.target = head.substr(methodEnd + 1, head.rfind(' ', lineEnd) - methodEnd - 1);
    for (std::size_t start = lineEnd + 2; start < head.size(); start = lineEnd + 2) {
      lineEnd = head.find("\r\n", start);
      std::size_t colon = head.find(':', start);
      std::string name = head.substr(start, colon - start);
      for (char& c : name) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
      std::size_t value = head.find_first_not_of(' ', colon + 1);
      request.headers[name] = head.substr(value, lineEnd - value);
    }
    return request;
  }

  Handler handler_;
  FileDescriptor listener_;
  int port_ = 0;
  std::atomic<bool> stopping_ = false;
  std::thread acceptor_;
  mutable std::mutex mutex_;
  std::vector<FakeRequest> requests_;
  std::vector<FileDescriptor> connections_;
  std::vector<std::thread> workers_;
};

}  // namespace vornex::testing
