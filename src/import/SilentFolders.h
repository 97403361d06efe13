#pragma once

#include <set>
#include <string>

#include "foundation/Files.h"
#include "foundation/Patience.h"

namespace vornex {

/// The folders of one batch in which a file has not answered: each further look there would take a thread.
///
/// Thread-safety: none; one owner.
class SilentFolders {
 public:
  void note(const std::string& source) { folders_.insert(deletingLastPathComponent(source)); }

  /// Whether the file is not even looked at: enough looks hang, one of them in its folder.
  bool mustNotLook(const std::string& source) const {
    constexpr int kEnough = 16;
    return hangingWork() >= kEnough && folders_.contains(deletingLastPathComponent(source));
  }

 private:
  std::set<std::string> folders_;
};

}  // namespace vornex
