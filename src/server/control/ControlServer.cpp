#include "server/control/ControlServer.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <vornex/Log.h>

#include <boost/asio/as_tuple.hpp>
#include <boost/asio/buffer.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/read_until.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/thread_pool.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/asio/write.hpp>
#include <cerrno>
#include <cstring>
#include <deque>
#include <filesystem>
#include <future>
#include <mutex>
#include <set>
#include <thread>

#include "core/StorageLayout.h"
#include "foundation/Files.h"
#include "platform/UnixSocket.h"
#include "server/ServerError.h"

namespace vornex::server {

namespace asio = boost::asio;
using boost::system::error_code;
using Unix = asio::local::stream_protocol;

namespace {

/// Threads by lane.
constexpr std::size_t kQuickWorkers = 2;
constexpr std::size_t kWorkers = 4;
constexpr std::size_t kCopyWorkers = 2;
constexpr std::size_t kLookWorkers = 2;
/// How long a stop waits for clients to take their answers.
constexpr auto kFarewell = std::chrono::seconds(1);
constexpr auto kPauseAfterFailedAccept = std::chrono::milliseconds(100);

/// The socket's folder, private to this user.
Result<void> preparePrivateFolder(const std::string& folder) {
  if (auto made = createDirectories(folder, 0700); !made) return made;
  struct stat info {};
  if (::lstat(folder.c_str(), &info) != 0) return posixFailure(errno, "Cannot examine " + folder);
  if (!S_ISDIR(info.st_mode) || info.st_uid != ::geteuid()) {
    return failure("posix", EPERM, folder + " belongs to somebody else");
  }
  if ((info.st_mode & 077) != 0 && ::chmod(folder.c_str(), 0700) != 0) {
    return posixFailure(errno, "Cannot protect " + folder);
  }
  return {};
}

/// Where the socket is bound.
std::string placeOf(int socket) {
  sockaddr_un address{};
  socklen_t size = sizeof address;
  if (::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size) != 0) return "";
  return {address.sun_path, ::strnlen(address.sun_path, sizeof address.sun_path)};
}

bool isSameFile(const std::string& a, const std::string& b) {
  struct stat first {};
  struct stat second {};
  return ::stat(a.c_str(), &first) == 0 && ::stat(b.c_str(), &second) == 0 && first.st_dev == second.st_dev &&
         first.st_ino == second.st_ino;
}

/// The file itself, not what a link names: whether it is still the one that was made.
std::pair<dev_t, ino_t> identityOf(const std::string& path) {
  struct stat info {};
  if (::lstat(path.c_str(), &info) != 0) return {};
  return {info.st_dev, info.st_ino};
}

/// The path with the links of its folder resolved.
std::string realPlace(const std::string& path) {
  std::error_code error;
  auto folder = std::filesystem::canonical(deletingLastPathComponent(path), error);
  return error ? path : appendPathComponent(folder.string(), lastPathComponent(path));
}

/// Makes a socket that lies elsewhere reachable at the path.
Result<void> linkTo(const std::string& socket, const std::string& path) {
  if (::unlink(path.c_str()) != 0 && errno != ENOENT) return posixFailure(errno, "Cannot replace " + path);
  if (::symlink(socket.c_str(), path.c_str()) != 0) return posixFailure(errno, "Cannot make " + path);
  return {};
}

}  // namespace

/// Everything below runs on one network thread, except the calls themselves, which workers run.
class ControlServer::Running : public std::enable_shared_from_this<ControlServer::Running> {
 public:
  Running(ControlProtocol& protocol, std::function<void()> onTerminate, const ControlLimits& limits)
      : protocol_(protocol),
        onTerminate_(std::move(onTerminate)),
        limits_(limits),
        acceptor_(io_),
        pause_(io_) {}

  Result<void> start(FileDescriptor inherited) {
    path_ = layout::controlSocket();
    if (auto prepared = preparePrivateFolder(deletingLastPathComponent(path_)); !prepared) return prepared;
    auto listener = inherited ? adopt(std::move(inherited)) : makeListener();
    if (!listener) return tl::unexpected(listener.error());
    made_ = identityOf(path_);
    error_code error;
    acceptor_.assign(Unix(), listener->get(), error);
    if (error) return failure("posix", error.value(), "Cannot use " + path_ + ": " + error.message());
    (void)listener->release();  // owned by the acceptor
    asio::co_spawn(io_, accept(), asio::detached);
    thread_ = std::thread([this] { io_.run(); });
    return {};
  }

  void stop() {
    std::promise<void> closed;
    asio::post(io_, [this, &closed] {
      error_code ignored;
      stopping_ = true;
      acceptor_.close(ignored);
      pause_.cancel();
      if (ownsPath_ && identityOf(path_) == made_) ::unlink(path_.c_str());
      closed.set_value();
    });
    closed.get_future().wait();
    for (asio::thread_pool* pool : {&quick_, &work_, &copy_, &look_}) pool->stop();
    for (asio::thread_pool* pool : {&quick_, &work_, &copy_, &look_}) pool->join();
    asio::post(io_, [this] { dismissClients(); });
    running_.reset();
    thread_.join();
  }

  /// Sends the notification to every registered client. Safe on any thread.
  void broadcast(std::string message) {
    asio::post(io_, [this, message = std::move(message)] {
      // A client that does not read leaves the set when it is sent more.
      for (const auto& client : std::set<ClientPtr>(clients_)) {
        if (client->registered) send(client, message);
      }
    });
  }

 private:
  struct Client {
    explicit Client(Unix::socket taken) : socket(std::move(taken)) {}
    Unix::socket socket;
    const std::shared_ptr<ClientPresence> presence = std::make_shared<ClientPresence>();
    bool registered = false;
    /// It sends nothing more.
    bool ended = false;
    std::size_t calls = 0;
    std::deque<std::string> outgoing;
    std::size_t waiting = 0;
  };
  using ClientPtr = std::shared_ptr<Client>;

  Result<FileDescriptor> makeListener() {
    if (auto free = checkNobodyListens(); !free) return tl::unexpected(free.error());
    return listenOnUnixSocket(path_);
  }

  Result<void> checkNobodyListens() const {
    if (!isListenedOn(path_)) return {};
    return serverFailure(StatusCode::itemExists, "Somebody else listens at " + path_ + ".");
  }

  /// The service manager keeps listening when this process has ended, so its socket stays where it is.
  Result<FileDescriptor> adopt(FileDescriptor inherited) {
    std::string place = placeOf(inherited.get());
    ownsPath_ = realPlace(place) != realPlace(path_) && !isSameFile(place, path_);
    if (!ownsPath_ && !itemExists(path_))
      return failure("posix", ENOENT, "The socket at " + path_ + " is gone; its unit has to be started anew");
    if (ownsPath_) {
      if (auto free = checkNobodyListens(); !free) return tl::unexpected(free.error());
      if (auto linked = linkTo(place, path_); !linked) return tl::unexpected(linked.error());
    }
    return inherited;
  }

  asio::awaitable<void> accept() {
    while (!stopping_) {
      auto [error, socket] = co_await acceptor_.async_accept(asio::as_tuple(asio::use_awaitable));
      if (stopping_) co_return;
      if (error) {
        logLine(LogLevel::warning, "Cannot accept a control connection: " + error.message());
        pause_.expires_after(kPauseAfterFailedAccept);
        co_await pause_.async_wait(asio::as_tuple(asio::use_awaitable));
        continue;
      }
      if (!isPeerOfSameUser(socket.native_handle())) {
        logLine(LogLevel::warning, "Refused a control connection of another user");
        continue;
      }
      auto client = std::make_shared<Client>(std::move(socket));
      clients_.insert(client);
      asio::co_spawn(io_, read(client), asio::detached);
    }
  }

  asio::awaitable<void> read(ClientPtr client) {
    std::string buffer;
    error_code error;
    while (!error) {
      std::size_t length =
          co_await asio::async_read_until(client->socket, asio::dynamic_buffer(buffer, kLineLimit), '\n',
                                          asio::redirect_error(asio::use_awaitable, error));
      if (error) break;
      std::string line = buffer.substr(0, length - 1);
      buffer.erase(0, length);
      if (!line.empty()) take(client, std::move(line));
    }
    if (error == asio::error::not_found) {
      // A line without end cannot be answered, only ended.
      logLine(LogLevel::warning, "A control message is too long; its connection is closed");
      close(client);
    }
    client->ended = true;
    settle(client);
  }

  /// Closes a connection that neither side needs any more.
  void settle(const ClientPtr& client) {
    bool over = client->ended || dismissed_;
    if (over && client->calls == 0 && client->outgoing.empty()) close(client);
  }

  void take(const ClientPtr& client, std::string line) {
    if (stopping_) return;
    if (client->calls >= limits_.calls) {
      logLine(LogLevel::warning, "A control client has too many calls under way; its connection is closed");
      close(client);
      return;
    }
    ++client->calls;
    asio::post(quick_, [this, client, line = std::move(line)] {
      auto call = ControlProtocol::read(line);
      call.client = client->presence;
      if (call.lane == ControlProtocol::Lane::quick) return run(client, call);
      asio::post(poolOf(call.lane), [this, client, call = std::move(call)] { run(client, call); });
    });
  }

  asio::thread_pool& poolOf(ControlProtocol::Lane lane) {
    switch (lane) {
      case ControlProtocol::Lane::quick:
        return quick_;
      case ControlProtocol::Lane::copy:
        return copy_;
      case ControlProtocol::Lane::look:
        return look_;
      case ControlProtocol::Lane::work:
        break;
    }
    return work_;
  }

  void run(const ClientPtr& client, const ControlProtocol::Call& call) {
    auto outcome = protocol_.run(call);
    asio::post(io_, [this, client, outcome = std::move(outcome)] { finish(client, outcome); });
  }

  void finish(const ClientPtr& client, const ControlProtocol::Outcome& outcome) {
    --client->calls;
    if (outcome.reply) send(client, *outcome.reply);
    if (outcome.registered) {
      client->registered = true;
      send(client, ControlProtocol::launchedNotification());
    }
    if (outcome.terminate) {
      terminating_ = client;
      if (client->outgoing.empty()) tellEnd(client);
    }
    settle(client);
  }

  void send(const ClientPtr& client, std::string message) {
    if (!client->socket.is_open()) return;
    message += '\n';
    client->waiting += message.size();
    if (client->waiting > limits_.waitingBytes) {
      logLine(LogLevel::warning, "A control client does not read; its connection is closed");
      close(client);
      return;
    }
    client->outgoing.push_back(std::move(message));
    if (client->outgoing.size() == 1) writeNext(client);
  }

  void writeNext(const ClientPtr& client) {
    asio::async_write(client->socket, asio::buffer(client->outgoing.front()),
                      [this, client](error_code error, std::size_t) {
                        if (error) return close(client);
                        client->waiting -= client->outgoing.front().size();
                        client->outgoing.pop_front();
                        if (!client->outgoing.empty()) return writeNext(client);
                        tellEnd(client);
                        settle(client);
                      });
  }

  /// Reports the end that this client asked for, once.
  void tellEnd(const ClientPtr& client) {
    if (terminating_ != client) return;
    terminating_.reset();
    onTerminate_();
  }

  void close(const ClientPtr& client) {
    error_code ignored;
    client->socket.close(ignored);
    clients_.erase(client);
    if (!client->presence->gone.exchange(true)) protocol_.clientLeft();
    tellEnd(client);
    if (dismissed_ && clients_.empty()) pause_.cancel();
  }

  void dismissClients() {
    dismissed_ = true;
    pause_.expires_after(kFarewell);
    pause_.async_wait([this](error_code) {
      for (const auto& client : std::set<ClientPtr>(clients_)) close(client);
    });
    for (const auto& client : std::set<ClientPtr>(clients_)) settle(client);
    if (clients_.empty()) pause_.cancel();
  }

  ControlProtocol& protocol_;
  const std::function<void()> onTerminate_;
  const ControlLimits limits_;
  std::string path_;
  bool ownsPath_ = true;
  std::pair<dev_t, ino_t> made_;
  asio::io_context io_;
  asio::executor_work_guard<asio::io_context::executor_type> running_{io_.get_executor()};
  Unix::acceptor acceptor_;
  asio::steady_timer pause_;
  asio::thread_pool quick_{kQuickWorkers};
  asio::thread_pool work_{kWorkers};
  asio::thread_pool copy_{kCopyWorkers};
  asio::thread_pool look_{kLookWorkers};
  std::thread thread_;
  bool stopping_ = false;
  bool dismissed_ = false;
  std::set<ClientPtr> clients_;
  ClientPtr terminating_;
};

ControlServer::ControlServer(ControlProtocol& protocol, std::function<void()> onTerminate,
                             ControlLimits limits)
    : protocol_(protocol), onTerminate_(std::move(onTerminate)), limits_(limits) {}

ControlServer::~ControlServer() {
  stop();
}

Result<void> ControlServer::start(FileDescriptor inherited) {
  auto running = std::make_shared<Running>(protocol_, onTerminate_, limits_);
  // Before the first client can ask for anything.
  protocol_.sendEventsTo([weak = std::weak_ptr(running)](std::string notification) {
    if (auto current = weak.lock()) current->broadcast(std::move(notification));
  });
  if (auto started = running->start(std::move(inherited)); !started) return started;
  running_ = std::move(running);
  return {};
}

void ControlServer::stop() {
  if (!running_) return;
  running_->stop();
  running_.reset();
}

}  // namespace vornex::server
