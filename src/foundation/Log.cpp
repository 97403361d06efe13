#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>
#include <vornex/Log.h>

#include <mutex>

namespace vornex {

namespace {

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

LogSink standardErrorSink() {
  auto logger = std::make_shared<spdlog::logger>("vornex", std::make_shared<spdlog::sinks::stderr_sink_mt>());
  logger->set_level(spdlog::level::warn);
  return [logger](LogLevel level, const std::string& line) { logger->log(spdlogLevel(level), line); };
}

struct Output {
  std::mutex mutex;
  LogSink sink = standardErrorSink();
};

Output& output() {
  // Never destroyed: threads may log while the process ends.
  static Output* shared = new Output;
  return *shared;
}

}  // namespace

void setLogSink(LogSink sink) {
  std::lock_guard lock(output().mutex);
  output().sink = sink ? std::move(sink) : standardErrorSink();
}

void logLine(LogLevel level, const std::string& line) {
  try {
    std::lock_guard lock(output().mutex);
    output().sink(level, line);
  } catch (...) {
    // A log that cannot be written must not fail the operation that logs.
  }
}

}  // namespace vornex
