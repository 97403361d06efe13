#pragma once

#include <functional>
#include <string>

namespace vornex {

enum class LogLevel { debug, info, warning, error };

/// Receives every log line. Called on the thread that logs, one call at a time. It must not log or replace
/// the sink itself, nor wait for a thread that may do so.
using LogSink = std::function<void(LogLevel level, const std::string& line)>;

/// Replaces the destination of log lines, which at first is standard error from `warning` upwards.
/// An empty sink restores that. Thread-safe.
void setLogSink(LogSink sink);

/// Writes one line. Never throws. Thread-safe.
void logLine(LogLevel level, const std::string& line);

}  // namespace vornex
