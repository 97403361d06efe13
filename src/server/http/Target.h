#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/Error.h"

namespace vornex::server {

/// The address part of a request, decoded.
struct Target {
  /// The path's components without percent-encoding; empty ones are left out.
  std::vector<std::string> segments;
  /// The query's fields, decoded; of equal names the last one counts.
  std::map<std::string, std::string> query;
  /// The query as sent, with its question mark.
  std::string rawQuery;
};

/// Fails for text that is not an absolute path, for invalid UTF-8, and for components that hold a slash or a
/// NUL once they are decoded.
[[nodiscard]] Result<Target> parseTarget(std::string_view text);

/// The path's components, decoded, under the same rules.
[[nodiscard]] Result<std::vector<std::string>> parsePath(std::string_view text);

}  // namespace vornex::server
