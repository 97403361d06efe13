#pragma once

#include <vornex/Log.h>
#include <vornex/Value.h>

#include <exception>
#include <stdexcept>
#include <string>

/// What the conversions between records and dictionaries share.
namespace vornex::conversion {

/// What `make` gives, or an empty result (and a log line that ends in the reason) when it throws.
template <typename Make>
auto caught(const std::string& logPrefix, Make make) -> decltype(make()) {
  try {
    return make();
  } catch (const std::exception& exception) {
    logLine(LogLevel::error, logPrefix + exception.what());
  }
  return decltype(make())();
}

/// The text, which must be present. Throws std::invalid_argument.
inline const std::string& required(const OptionalString& text, const char* key) {
  if (!text) throw std::invalid_argument(std::string("no ") + key);
  return *text;
}

}  // namespace vornex::conversion
