#pragma once

#include <string>

#include "foundation/Error.h"

namespace vornex::cli {

/// Asks on the terminal whether to go on, on standard error; "y" and "yes" agree, in any case. Whoever is
/// sure already (--yes) is not asked. Fails when the answer is another one, and when nobody can be asked
/// because standard input is no terminal.
[[nodiscard]] Result<void> confirm(const std::string& question, bool isSure);

}  // namespace vornex::cli
