#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace vornex::testing {

/// A fresh folder below the given one, removed with everything in it. Files in the system's temporary folder
/// may have no user attributes.
class TemporaryFolder {
 public:
  explicit TemporaryFolder(const std::filesystem::path& above = std::filesystem::temp_directory_path()) {
    std::string pattern = (above / "vornex-test-XXXXXX").string();
    if (!::mkdtemp(pattern.data())) throw std::runtime_error("no temporary folder");
    path_ = pattern;
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const std::string& path() const { return path_; }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

}  // namespace vornex::testing
