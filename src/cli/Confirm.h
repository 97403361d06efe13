#pragma once

#include <string>

#include "foundation/Error.h"

namespace vornex::cli {

/// Asks on standard error before something is destroyed. Succeeds for an answer that begins with "y", and
/// without asking when `yes`; fails for every other answer, and when nobody sits at standard input.
[[nodiscard]] Result<void> confirm(const std::string& question, bool yes);

}  // namespace vornex::cli
