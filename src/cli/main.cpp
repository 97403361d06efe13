#include <fmt/format.h>
#include <vornex/Log.h>
#include <vornex/Queue.h>

#include <cstdio>
#include <cstdlib>
#include <thread>

#include "cli/Arguments.h"
#include "cli/Commands.h"
#include "cli/DisplayText.h"
#include "cli/Host.h"
#include "cli/Output.h"

namespace vornex::cli {
namespace {

enum ExitCode { kDone = 0, kFailed = 1 };

int complain(const std::string& message) {
  writeLine(stderr, "vornex: " + printable(message));
  return kFailed;
}

Result<void> runCommand(const Arguments& arguments) {
  Host host(arguments.port);
  const Output output(arguments.json);
  return std::visit([&](const auto& command) { return run(command, host, output); }, arguments.command);
}

int execute(const Arguments& arguments) {
  if (arguments.root) setenv("VORNEX_ROOT", arguments.root->c_str(), 1);
  // A command says itself what failed; the log tells the rest to those who ask for it.
  if (!arguments.verbose) setLogSink([](LogLevel, const std::string&) {});
  // Whoever reads the records sees each as soon as it is there.
  if (arguments.json) std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
  Result<void> result;
  std::thread worker([&] {
    result = runCommand(arguments);
    MainQueue::shared().stop();
  });
  MainQueue::shared().run();
  worker.join();
  const bool arrived = flushOutput();
  if (!result) return complain(result.error().message);
  return arrived ? kDone : complain("the output could not be written");
}

}  // namespace
}  // namespace vornex::cli

int main(int count, char** values) {
  const auto parsed = vornex::cli::parseArguments(count, values);
  if (const auto* end = std::get_if<vornex::cli::EarlyEnd>(&parsed)) {
    std::fputs(end->text.c_str(), end->exitCode == 0 ? stdout : stderr);
    return end->exitCode;
  }
  // The SDK's workers live until the process ends: exit handlers would take from under them what they work
  // with.
  std::_Exit(vornex::cli::execute(std::get<vornex::cli::Arguments>(parsed)));
}
