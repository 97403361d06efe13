#include <fmt/format.h>
#include <unistd.h>
#include <vornex/TQVornexUtil.h>

#include <cerrno>

#include "cli/Commands.h"
#include "cli/Host.h"
#include "cli/Output.h"
#include "service/ServiceLauncher.h"

namespace vornex::cli {
namespace {

void printState(const std::optional<std::int64_t>& port, const Output& output) {
  const std::string root = TQVornexUtil::rootFolder();
  output.record("service",
                {{"running", port.has_value()}, {"port", port ? Value(*port) : Value()}, {"root", root}});
  output.text(port ? fmt::format("The service listens on 127.0.0.1:{}; its data is in {}.", *port, root)
                   : fmt::format("The service of {} does not run.", root));
}

Result<void> becomeService(std::int64_t port) {
  const OptionalString executable = serviceExecutable();
  if (!executable) return failure("vornex", 0, "vornexd is not installed");
  const std::string portText = std::to_string(port);
  execl(executable->c_str(), executable->c_str(), "--port", portText.c_str(), nullptr);
  return posixFailure(errno, "starting " + *executable);
}

}  // namespace

Result<void> run(const ServeCommand& command, Host& host, const Output& output) {
  if (command.foreground) return becomeService(host.wantedPort());
  auto port = host.startService();
  if (!port) return tl::unexpected(port.error());
  printState(*port, output);
  return {};
}

Result<void> run(const StopCommand&, Host& host, const Output& output) {
  auto ran = host.stopService();
  if (!ran) return tl::unexpected(ran.error());
  output.record("service", {{"running", false}, {"ended", *ran}});
  output.text(*ran ? "The service has ended." : "The service did not run.");
  return {};
}

Result<void> run(const StatusCommand&, Host& host, const Output& output) {
  printState(host.servicePort(), output);
  return {};
}

}  // namespace vornex::cli
