#include "server/ServiceLog.h"

#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <vector>

#include "core/StorageLayout.h"
#include "foundation/Files.h"
#include "server/ServerError.h"

namespace vornex::server {
namespace {

constexpr std::size_t kFileSize = 5 * 1024 * 1024;
constexpr std::size_t kGenerations = 3;

spdlog::level::level_enum spdlogLevel(LogLevel level) {
  switch (level) {
    case LogLevel::debug:
      return spdlog::level::debug;
    case LogLevel::info:
      return spdlog::level::info;
    case LogLevel::warning:
      return spdlog::level::warn;
    case LogLevel::error:
      return spdlog::level::err;
  }
  return spdlog::level::err;
}

/// Whoever started the service may have pointed its standard error at the log file already.
bool isStandardError(const std::string& path) {
  struct stat file {};
  struct stat standardError {};
  return ::stat(path.c_str(), &file) == 0 && ::fstat(STDERR_FILENO, &standardError) == 0 &&
         file.st_dev == standardError.st_dev && file.st_ino == standardError.st_ino;
}

/// What other libraries, and a crash, write to standard error goes to the newest generation of the log.
spdlog::file_event_handlers followedByStandardError() {
  spdlog::file_event_handlers handlers;
  handlers.after_open = [](const spdlog::filename_t&, std::FILE* file) {
    ::dup2(::fileno(file), STDOUT_FILENO);
    ::dup2(::fileno(file), STDERR_FILENO);
  };
  return handlers;
}

/// A line stays one line, whatever a client put into it.
std::string withoutControls(std::string line) {
  std::replace_if(
      line.begin(), line.end(), [](unsigned char c) { return c < 0x20 || c == 0x7F; }, ' ');
  return line;
}

}  // namespace

Result<LogLevel> logLevelNamed(const std::string& name) {
  if (name == "debug") return LogLevel::debug;
  if (name == "info") return LogLevel::info;
  if (name == "warning") return LogLevel::warning;
  if (name == "error") return LogLevel::error;
  return serverFailure(StatusCode::invalidRequest, "There is no log level \"" + name + "\".");
}

Result<void> startServiceLog(LogLevel level) {
  if (auto made = createDirectories(layout::serviceFolder(), 0700); !made) return made;
  try {
    bool isLogAlready = isStandardError(layout::serviceLogFile());
    auto file = std::make_shared<spdlog::sinks::rotating_file_sink_mt>(
        layout::serviceLogFile(), kFileSize, kGenerations, false,
        isLogAlready ? followedByStandardError() : spdlog::file_event_handlers{});
    std::vector<spdlog::sink_ptr> sinks{file};
    if (!isLogAlready) {
      sinks.push_back(std::make_shared<spdlog::sinks::stderr_sink_mt>());
    }
    auto logger = std::make_shared<spdlog::logger>("vornexd", sinks.begin(), sinks.end());
    logger->set_pattern("%Y-%m-%d %H:%M:%S.%e %l %v");
    logger->set_level(spdlogLevel(level));
    logger->flush_on(spdlog::level::info);
    setLogSink([logger](LogLevel lineLevel, const std::string& line) {
      logger->log(spdlogLevel(lineLevel), "{}", withoutControls(line));
    });
  } catch (const spdlog::spdlog_ex& exception) {
    return failure("log", 0, exception.what());
  }
  return {};
}

}  // namespace vornex::server
