#pragma once

#include <string>
#include <system_error>
#include <vector>

namespace vornex {

/// The names of the lock files in a package folder, any computer's, in order of name. Thread-safe.
std::vector<std::string> lockFileNames(const std::string& packageFolder, std::error_code& error);

}  // namespace vornex
