#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <stdexcept>
#include <string>

#include "foundation/FileDescriptor.h"

namespace vornex::server::testing {

inline sockaddr_un unixAddress(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  return address;
}

/// A Unix socket that listens, as a service manager makes it.
inline FileDescriptor listenAt(const std::string& path) {
  FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address = unixAddress(path);
  if (::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      ::listen(socket.get(), 8) != 0)
    throw std::runtime_error(std::strerror(errno));
  return socket;
}

/// A socket that sends exactly what it is told to. Reading gives up after ten seconds.
class RawClient {
 public:
  static RawClient tcp(std::uint16_t port) {
    RawClient client(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    client.connect(reinterpret_cast<sockaddr*>(&address), sizeof address);
    return client;
  }

  static RawClient unixSocket(const std::string& path) {
    RawClient client(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address = unixAddress(path);
    client.connect(reinterpret_cast<sockaddr*>(&address), sizeof address);
    return client;
  }

  /// False when the other side has closed.
  bool send(const std::string& text) {
    for (std::size_t sent = 0; sent < text.size();) {
      ssize_t n = ::send(socket_.get(), text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
      if (n <= 0) return false;
      sent += static_cast<std::size_t>(n);
    }
    return true;
  }

  void finishSending() { ::shutdown(socket_.get(), SHUT_WR); }

  /// The text up to and with the mark; what came when the other side closed or the time was over.
  std::string readUntil(const std::string& mark) {
    std::size_t end;
    while ((end = buffer_.find(mark)) == std::string::npos) {
      if (!readMore()) return std::exchange(buffer_, "");
    }
    return take(end + mark.size());
  }

  std::string readBytes(std::size_t count) {
    while (buffer_.size() < count) {
      if (!readMore()) break;
    }
    return take(std::min(count, buffer_.size()));
  }

  /// Whether the other side closes now, having sent nothing more.
  bool atEnd() { return buffer_.empty() && !readMore() && !timedOut_; }

  struct Reply {
    int status = 0;
    std::string head;
    std::string body;
  };

  /// One HTTP response with a Content-Length; status 0 when the other side closes instead.
  Reply readReply() {
    Reply reply;
    reply.head = readUntil("\r\n\r\n");
    if (reply.head.rfind("HTTP/1.1 ", 0) != 0) return reply;
    reply.status = std::stoi(reply.head.substr(9, 3));
    std::size_t length = reply.head.find("Content-Length: ");
    if (length != std::string::npos) reply.body = readBytes(std::stoul(reply.head.substr(length + 16)));
    return reply;
  }

 private:
  explicit RawClient(int socket) : socket_(socket) {
    timeval limit{10, 0};
    ::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  }

  void connect(const sockaddr* address, socklen_t size) {
    if (::connect(socket_.get(), address, size) != 0) throw std::runtime_error(std::strerror(errno));
  }

  bool readMore() {
    char piece[65536];
    ssize_t n = ::recv(socket_.get(), piece, sizeof piece, 0);
    timedOut_ = n < 0 && errno == EAGAIN;
    if (n <= 0) return false;
    buffer_.append(piece, static_cast<std::size_t>(n));
    return true;
  }

  std::string take(std::size_t count) {
    std::string taken = buffer_.substr(0, count);
    buffer_.erase(0, count);
    return taken;
  }

  FileDescriptor socket_;
  std::string buffer_;
  bool timedOut_ = false;
};

}  // namespace vornex::server::testing
