#include "Service.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vornex/Types.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include "core/StorageLayout.h"
#include "foundation/Json.h"
#include "foundation/PropertyList.h"
#include "foundation/Text.h"

namespace vornex::bench {

[[noreturn]] static void fail(const std::string& what) {
  fmt::print(stderr, "{}\n", what);
  std::exit(1);
}

Connection Connection::tcp(std::uint16_t port) {
  int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  int on = 1;
  ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (::connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) fail("cannot connect");
  return Connection(socket);
}

Connection Connection::unixSocket(const std::string& path) {
  int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  for (int i = 0; i < 1'000; ++i) {
    if (::connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0)
      return Connection(socket);
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  fail("the service does not start");
}

Connection::Connection(Connection&& other) noexcept
    : socket_(std::exchange(other.socket_, -1)),
      buffer_(std::move(other.buffer_)),
      received_(other.received_) {}

Connection::~Connection() {
  if (socket_ >= 0) ::close(socket_);
}

void Connection::send(std::string_view bytes) {
  while (!bytes.empty()) {
    ssize_t count = ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (count <= 0) fail("the connection broke");
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
}

// The buffer keeps what it grew to, so that receiving costs no more than the copy.
void Connection::receive() {
  if (buffer_.size() - received_ < (std::size_t{1} << 18)) buffer_.resize(buffer_.size() + (1 << 20));
  ssize_t count = ::recv(socket_, buffer_.data() + received_, buffer_.size() - received_, 0);
  if (count <= 0) fail("the connection broke");
  received_ += static_cast<std::size_t>(count);
}

std::string Connection::call(const std::string& message) {
  send(message + "\n");
  received_ = 0;
  while (received().find('\n') == std::string_view::npos) receive();
  return std::string(received());
}

std::string_view Connection::post(const std::string& path, std::string_view authorization,
                                  std::string_view body) {
  std::string head = fmt::format(
      "POST {} HTTP/1.1\r\nHost: localhost\r\nAuthorization: {}\r\nContent-Type: application/json\r\n"
      "Content-Length: {}\r\n\r\n",
      path, authorization, body.size());
  bool isShort = body.size() < 16'384;
  send(isShort ? head.append(body) : head);
  if (!isShort) send(body);
  received_ = 0;
  std::size_t header = std::string::npos;
  while ((header = received().find("\r\n\r\n")) == std::string::npos) receive();
  std::size_t length = received().find("Content-Length: ");
  std::size_t end = header + 4 + std::strtoull(buffer_.data() + length + 16, nullptr, 10);
  while (received_ < end) receive();
  if (!received().starts_with("HTTP/1.1 200")) fail(std::string(received()));
  return received().substr(header + 4);
}

Service::Service(const std::string& program, const std::string& folder) : folder_(folder) {
  std::filesystem::create_directories(folder + "/run");
  ::setenv("VORNEX_ROOT", (folder + "/root").c_str(), 1);
  ::setenv("XDG_RUNTIME_DIR", (folder + "/run").c_str(), 1);
  Dictionary library{
      {"dbname", "bench"}, {"name", "Bench"}, {"packagefolder", folder + "/package"}, {"type", 0}};
  std::filesystem::create_directories(layout::preferenceFolder());
  bool known = std::filesystem::exists(layout::localLibraryPlist());
  if (!writePropertyListFile(layout::localLibraryPlist(), Dictionary{{"library", Array{library}}}))
    fail("cannot write the library list");
  process_ = ::fork();
  if (process_ == 0) {
    int log = ::open((folder + "/log").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    ::dup2(log, STDOUT_FILENO);
    ::dup2(log, STDERR_FILENO);
    ::execl(program.c_str(), program.c_str(), "--log-level", "warning", nullptr);
    ::_exit(127);
  }
  Connection control = Connection::unixSocket(layout::controlSocket());
  auto call = [&](const std::string& method, Dictionary params) {
    std::string answer = control.call(writeJson(
        Dictionary{{"jsonrpc", "2.0"}, {"id", 1}, {"method", method}, {"params", std::move(params)}}));
    Value value = parseJson(answer).value_or(Value());
    const Value* result = value.find("result");
    if (!result) fail(answer);
    return *result;
  };
  std::string password = *call("getLocalAccountPassword", {}).find("password")->ifString();
  authorization_ = "Basic " + base64(std::string(kTQLocalUserID) + ":" + md5Hex(password));
  port_ = static_cast<std::uint16_t>(*call("launchWebServer", {{"port", 0}}).find("port")->ifInteger());
  if (known)
    (void)call("loadLibrary", {});
  else
    (void)call("addLibrary", {{"library", library}});
}

Service::~Service() {
  ::kill(process_, SIGTERM);
  ::waitpid(process_, nullptr, 0);
}

std::pair<double, double> Service::memory() const {
  std::ifstream status(fmt::format("/proc/{}/status", process_));
  double all = 0, mapped = 0;
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmRSS:")) all = std::atof(line.c_str() + 6) / 1024;
    if (line.starts_with("RssFile:")) mapped = std::atof(line.c_str() + 8) / 1024;
  }
  return {all, mapped};
}

}  // namespace vornex::bench
