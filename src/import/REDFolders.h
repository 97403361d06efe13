#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace vornex {

/// Where one batch puts the folders of RED clips that it copies: from the folder of the source to the one
/// chosen for its copy.
///
/// Thread-safety: safe on any thread.
class REDFolders {
 public:
  void choose(const std::string& source, const std::string& target) {
    std::lock_guard lock(mutex_);
    chosen_[source] = target;
  }
  std::optional<std::string> chosenFor(const std::string& source) const {
    std::lock_guard lock(mutex_);
    auto found = chosen_.find(source);
    return found == chosen_.end() ? std::nullopt : std::make_optional(found->second);
  }
  std::map<std::string, std::string> all() const {
    std::lock_guard lock(mutex_);
    return chosen_;
  }

 private:
  mutable std::mutex mutex_;
  std::map<std::string, std::string> chosen_;
};

}  // namespace vornex
