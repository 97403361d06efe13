#pragma once

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <string>
#include <thread>

#include "foundation/Files.h"

namespace vornex::testing {

/// A mounted folder that stops answering, by hung_mount.py, as long as it lives. Only root may mount.
class HungMount {
 public:
  HungMount(const std::string& folder, const std::string& log) {
    std::filesystem::create_directory(folder);
    server_ = ::popen(
        ("python3 " VORNEX_TEST_SUPPORT "/hung_mount.py " + folder + " >" + log + " 2>/dev/null").c_str(),
        "w");
    for (int i = 0; i < 500 && !isMounted_; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
      isMounted_ = !readFile(log).value_or("").empty();
    }
  }
  ~HungMount() { end(); }
  HungMount(const HungMount&) = delete;
  HungMount& operator=(const HungMount&) = delete;

  bool isMounted() const { return isMounted_; }
  /// From now on nothing is answered.
  void fallSilent() {
    std::fputs("silence\n", server_);
    std::fflush(server_);
  }
  /// Lets go whoever waits.
  void end() {
    if (server_) ::pclose(server_);
    server_ = nullptr;
  }

 private:
  FILE* server_ = nullptr;
  bool isMounted_ = false;
};

}  // namespace vornex::testing
