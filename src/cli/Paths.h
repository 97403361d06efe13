#pragma once

#include <string>

namespace vornex::cli {

/// The path from the root, without "." and "..", and without a slash at the end. Links are not followed.
std::string absolutePath(const std::string& path);

}  // namespace vornex::cli
