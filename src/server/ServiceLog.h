#pragma once

#include <vornex/Log.h>

#include <string>

#include "foundation/Error.h"

namespace vornex::server {

/// "debug", "info", "warning" or "error".
[[nodiscard]] Result<LogLevel> logLevelNamed(const std::string& name);

/// Sends the process's log lines of the level and above to standard error and to the service's log file, of
/// which three older generations of 5 MB are kept.
[[nodiscard]] Result<void> startServiceLog(LogLevel level);

}  // namespace vornex::server
