#include <fmt/format.h>
#include <pthread.h>
#include <unistd.h>
#include <vornex/Log.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>

#include "core/StorageLayout.h"
#include "server/Service.h"
#include "server/ServiceLog.h"
#include "server/control/ControlProtocol.h"
#include "server/control/ControlServer.h"
#include "server/control/InheritedSocket.h"
#include "server/http/HttpServer.h"
#include "server/http/Router.h"

namespace vornex::server {
namespace {

struct Options {
  std::string root;
  std::optional<std::uint16_t> port;
  std::string address = "127.0.0.1";
  std::string logLevel = "info";
  Limits limits;
};

void addLimit(CLI::App& app, const char* name, std::chrono::milliseconds& limit, const char* description) {
  app.add_option_function<std::int64_t>(
         name, [&limit](std::int64_t seconds) { limit = std::chrono::seconds(seconds); }, description)
      ->check(CLI::Range(1, 86400))
      ->group("Limits");
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
  app.add_option("--max-connections", limits.connections, "Connections at a time")
      ->group("Limits")
      ->capture_default_str();
  app.add_option("--max-requests", limits.requestsInFlight, "Requests in work at a time")
      ->group("Limits")
      ->capture_default_str();
  app.add_option("--max-header", limits.headerBytes, "Bytes of a request's header")
      ->group("Limits")
      ->capture_default_str();
  app.add_option("--max-body", limits.bodyBytes, "Bytes of a request's body")
      ->group("Limits")
      ->capture_default_str();
  app.add_option("--max-items", limits.batchItems, "Items of a request")
      ->group("Limits")
      ->capture_default_str();
  app.add_option("--max-page", limits.pageSize, "Assets of a search page")
      ->group("Limits")
      ->capture_default_str();
  app.add_option("--workers", limits.workers, "Threads that work on requests")
      ->check(CLI::Range(1, 256))
      ->group("Limits")
      ->capture_default_str();
  addLimit(app, "--request-time", limits.handling, "Seconds for the work on a request (25)");
  addLimit(app, "--idle-time", limits.idle, "Seconds a connection may be idle (60)");
}

/// A line for people: the log may be a file that nobody reads.
int fail(const Error& error) {
  std::fprintf(stderr, "vornexd: %s\n", error.message.c_str());
  return 1;
}

Result<void> serveAtOnce(HttpServer& webServer, LibraryRegistry& libraries, std::uint16_t port) {
  if (auto launched = webServer.launch(port); !launched) return tl::unexpected(launched.error());
  auto report = libraries.load();
  if (!report) return tl::unexpected(report.error());
  logLine(LogLevel::info,
          fmt::format("{} libraries are open, {} have failed", report->open, report->failures.size()));
  return {};
}

/// The signals that end the process; blocked in every thread and waited for by the main one.
sigset_t endingSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGINT);
  return signals;
}

void waitForEnd(const sigset_t& signals) {
  int received = 0;
  while (sigwait(&signals, &received) != 0) {
  }
  logLine(LogLevel::info, "The service ends");
  // A second signal ends the process at once.
  pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

int run(const Options& options) {
  sigset_t signals = endingSignals();
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  std::signal(SIGPIPE, SIG_IGN);

  auto inherited = takeInheritedSocket();
  if (!inherited) return fail(inherited.error());
  auto level = logLevelNamed(options.logLevel);
  if (!level) return fail(level.error());
  auto service = Service::open(openSQLiteAssetStore);
  if (!service) return fail(service.error());
  if (auto logging = startServiceLog(*level); !logging) return fail(logging.error());
  logLine(LogLevel::info, fmt::format("vornexd {} serves {}", serverVersion(), layout::rootFolder()));

  Router router(**service, options.limits);
  HttpServer webServer(router, options.address, options.limits);
  ControlProtocol protocol(**service, webServer);
  ControlServer control(protocol, [] { ::kill(::getpid(), SIGTERM); });
  if (auto started = control.start(std::move(*inherited)); !started) return fail(started.error());
  if (options.port) {
    if (auto serving = serveAtOnce(webServer, (*service)->libraries(), *options.port); !serving) {
      return fail(serving.error());
    }
  }
  waitForEnd(signals);
  webServer.stop();
  control.stop();
  (*service)->libraries().closeAll();
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
