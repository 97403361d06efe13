#include "foundation/RunTask.h"

#include <fmt/format.h>
#include <vornex/Log.h>

namespace vornex {

void runTask(Task task, const char* queue) noexcept {
  try {
    task();
  } catch (const std::exception& exception) {
    logLine(LogLevel::error, fmt::format("a task of the {} threw: {}", queue, exception.what()));
  } catch (...) {
    logLine(LogLevel::error, fmt::format("a task of the {} threw", queue));
  }
}

}  // namespace vornex
