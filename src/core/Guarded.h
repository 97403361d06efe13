#pragma once

#include <vornex/Log.h>

#include <new>
#include <optional>
#include <stdexcept>
#include <string>

namespace vornex {

/// Runs a conversion that must not raise: whatever it throws, want of memory excepted, is logged as the label
/// followed by the reason, and the result is empty.
template <typename Convert>
auto guarded(const char* label, Convert convert) -> decltype(convert()) {
  try {
    return convert();
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception& exception) {
    logLine(LogLevel::error, std::string(label) + exception.what());
  }
  return decltype(convert())();
}

/// Inside a guarded conversion: the value, or the end of the conversion with "no <name>" as the reason.
template <typename T>
const T& required(const std::optional<T>& value, const char* name) {
  if (!value) throw std::invalid_argument(std::string("no ") + name);
  return *value;
}

}  // namespace vornex
