#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vornex::bench {

/// One kept-alive connection. Failures end the program.
class Connection {
 public:
  static Connection tcp(std::uint16_t port);
  static Connection unixSocket(const std::string& path);
  Connection(Connection&& other) noexcept;
  ~Connection();

  /// Sends one JSON-RPC message and gives the answer's line.
  std::string call(const std::string& message);
  /// Posts a body and gives the answer's one. The view is valid until the next post.
  std::string_view post(const std::string& path, std::string_view authorization, std::string_view body);

 private:
  explicit Connection(int socket) : socket_(socket) {}
  void send(std::string_view bytes);
  void receive();
  std::string_view received() const { return {buffer_.data(), received_}; }

  int socket_;
  std::vector<char> buffer_;
  std::size_t received_ = 0;
};

/// A vornexd of its own on a root folder, with one library.
class Service {
 public:
  Service(const std::string& program, const std::string& folder);
  /// Lets it end by itself.
  ~Service();

  Connection connect() const { return Connection::tcp(port_); }
  const std::string& authorization() const { return authorization_; }
  /// Resident memory in MB, of it what is mapped from files.
  std::pair<double, double> memory() const;

 private:
  std::string folder_;
  pid_t process_;
  std::uint16_t port_ = 0;
  std::string authorization_;
};

}  // namespace vornex::bench
