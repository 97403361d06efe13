#include "cli/Paths.h"

#include <filesystem>
#include <system_error>

namespace vornex::cli {

std::string absolutePath(const std::string& path) {
  std::error_code error;
  const auto absolute = std::filesystem::absolute(path, error).lexically_normal();
  // Only a missing working folder fails; the operation on the path will say so.
  if (error) return path;
  return absolute.has_filename() ? absolute.native() : absolute.parent_path().native();
}

}  // namespace vornex::cli
