#pragma once

#include <vornex/Value.h>

#include <string>
#include <string_view>
#include <vector>

#include "foundation/Error.h"

namespace vornex::server {

/// Of a JSON object, the entries under the given keys (sorted). Everything else is passed over without being
/// built, and reading ends when all keys are found. Domain "json" for text that is no object.
[[nodiscard]] Result<Dictionary> readEntries(std::string_view json, const std::vector<std::string>& keys);

}  // namespace vornex::server
