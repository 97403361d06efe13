#include <fmt/format.h>
#include <pthread.h>
#include <unistd.h>
#include <vornex/Log.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <semaphore>
#include <string>
#include <thread>

#include "core/StorageLayout.h"
#include "platform/UnixSocket.h"
#include "server/ServerError.h"
#include "server/Service.h"
#include "server/ServiceLog.h"
#include "server/control/ControlProtocol.h"
#include "server/control/ControlServer.h"
#include "server/control/InheritedSocket.h"
#include "server/http/HttpServer.h"
#include "server/http/Router.h"

namespace vornex::server {
namespace {

/// Exit code of a process whose root folder is served without it.
constexpr int kAlreadyServed = 3;
constexpr auto kLongestEnd = std::chrono::seconds(60);

struct Options {
  std::string root;
  std::optional<std::uint16_t> port;
  std::string address = "127.0.0.1";
  std::string logLevel = "info";
  std::size_t sessions = Sessions::kDefaultLimit;
  Limits limits;
};

void addLimit(CLI::App& app, const char* name, std::chrono::milliseconds& limit, const char* description) {
  app.add_option_function<std::int64_t>(
         name, [&limit](std::int64_t seconds) { limit = std::chrono::seconds(seconds); }, description)
      ->check(CLI::Range(1, 86400))
      ->group("Limits");
}

template <typename Number>
void addLimit(CLI::App& app, const char* name, Number& limit, std::int64_t least, std::int64_t most,
              const char* description) {
  app.add_option(name, limit, description)
      ->check(CLI::Range(least, most))
      ->group("Limits")
      ->capture_default_str();
}

void declare(CLI::App& app, Options& options) {
  app.add_option("--root", options.root, "Root folder (default: $VORNEX_ROOT, else the user's data folder)");
  app.add_option("--port", options.port,
                 "Serve on this port at once (0: any); else a client says when and where");
  app.add_option("--address", options.address, "Numeric address to serve on")->capture_default_str();
  app.add_option("--log-level", options.logLevel, "Lines to log")
      ->check(CLI::IsMember({"debug", "info", "warning", "error"}))
      ->capture_default_str();
  app.add_flag_function(
      "--foreground", [](std::int64_t) {}, "Stay in the foreground, which is what it always does");
  app.set_version_flag("--version", std::string("vornexd ") + serverVersion());

  Limits& limits = options.limits;
  addLimit(app, "--max-connections", limits.connections, 1, 100'000, "Connections at a time");
  addLimit(app, "--max-requests", limits.requestsInFlight, 1, 100'000, "Requests in work at a time");
  addLimit(app, "--max-sessions", options.sessions, 1, 100'000, "Users' devices that are logged in");
  addLimit(app, "--max-header", limits.headerBytes, 1024, 1 << 20, "Bytes of a request's header");
  addLimit(app, "--max-body", limits.bodyBytes, 1024, std::int64_t{1} << 32, "Bytes of a request's body");
  addLimit(app, "--max-items", limits.batchItems, 1, 1'000'000, "Items of a request");
  // Some of the SDK's searches ask for a thousand.
  addLimit(app, "--max-page", limits.pageSize, 1'000, 1'000'000, "Assets of a search page");
  addLimit(app, "--workers", limits.workers, 1, 256, "Threads that work on searches; half as many on others");
  addLimit(app, "--request-time", limits.handling, "Seconds for the work on a request (25)");
  addLimit(app, "--idle-time", limits.idle, "Seconds a connection may be idle (60)");
}

/// A line for people: the log may be a file that nobody reads.
int fail(const Error& error) {
  std::fprintf(stderr, "vornexd: %s\n", error.message.c_str());
  return statusCodeOf(error) == StatusCode::itemExists ? kAlreadyServed : 1;
}

/// Another service listens, or a service manager that starts one.
int failServed() {
  return fail({kServerErrorDomain, static_cast<std::int64_t>(StatusCode::itemExists),
               fmt::format("Another program already serves {}: it listens at {}.", layout::rootFolder(),
                           layout::controlSocket())});
}

Result<void> serveAtOnce(HttpServer& webServer, LibraryRegistry& libraries, std::uint16_t port) {
  if (auto launched = webServer.launch(port); !launched) return tl::unexpected(launched.error());
  auto report = libraries.load();
  if (!report) return tl::unexpected(report.error());
  logLine(LogLevel::info,
          fmt::format("{} libraries are open, {} have failed", report->open, report->failures.size()));
  return {};
}

/// What the process waits for: a signal, or a client that ends the service.
///
/// Thread-safety: safe on any thread.
class End {
 public:
  /// Signals are blocked in every thread from here on, and taken by one of their own. Never destroyed: that
  /// thread works while the process ends.
  static End& shared() {
    static End* end = new End;
    return *end;
  }

  void come() { comes_.release(); }
  void await() { comes_.acquire(); }

 private:
  End() {
    sigset_t signals;
    sigemptyset(&signals);
    for (int signal : {SIGTERM, SIGINT, SIGHUP}) sigaddset(&signals, signal);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::thread([this, signals] { takeSignals(signals); }).detach();
  }

  /// The second signal ends the process at once.
  void takeSignals(const sigset_t& signals) {
    for (int count = 0, received = 0;;) {
      if (sigwait(&signals, &received) != 0) continue;
      if (++count == 2) ::_exit(128 + received);
      come();
    }
  }

  std::counting_semaphore<> comes_{0};
};

/// A worker that is in the middle of something long cannot be interrupted, but the process can end without
/// it: what has been acknowledged is safe.
void endInTime() {
  std::thread([] {
    std::this_thread::sleep_for(kLongestEnd);
    logLine(LogLevel::warning, "The service ends without waiting any longer");
    ::_exit(1);
  }).detach();
}

int run(const Options& options) {
  auto inherited = takeInheritedSocket();
  if (!inherited) return fail(inherited.error());
  End& end = End::shared();
  std::signal(SIGPIPE, SIG_IGN);
  auto level = logLevelNamed(options.logLevel);
  if (!level) return fail(level.error());
  if (!*inherited && isListenedOn(layout::controlSocket())) return failServed();
  auto service = Service::open(openSQLiteAssetStore, options.sessions);
  if (!service) return fail(service.error());
  if (auto logging = startServiceLog(*level); !logging) return fail(logging.error());
  logLine(LogLevel::info, fmt::format("vornexd {} serves {}", serverVersion(), layout::rootFolder()));

  Router router(**service, options.limits);
  HttpServer webServer(router, options.address, options.limits);
  ControlProtocol protocol(**service, webServer);
  ControlServer control(protocol, [&end] { end.come(); });
  if (auto started = control.start(std::move(*inherited)); !started) return fail(started.error());
  if (options.port) {
    if (auto serving = serveAtOnce(webServer, (*service)->libraries(), *options.port); !serving) {
      return fail(serving.error());
    }
  }
  end.await();
  logLine(LogLevel::info, "The service ends");
  endInTime();
  webServer.stop();
  control.stop();
  (*service)->libraries().end();
  setLogSink({});
  return 0;
}

}  // namespace
}  // namespace vornex::server

int main(int argc, char** argv) {
  vornex::server::Options options;
  CLI::App app("Serves the local libraries of a root folder over HTTP, and is steered over a Unix socket.",
               "vornexd");
  vornex::server::declare(app, options);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : 2;
  }
  if (!options.root.empty()) ::setenv("VORNEX_ROOT", options.root.c_str(), 1);
  return vornex::server::run(options);
}
