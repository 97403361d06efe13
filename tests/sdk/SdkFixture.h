#pragma once

#include <gtest/gtest.h>
#include <vornex/Log.h>
#include <vornex/Types.h>

#include <chrono>
#include <cstdlib>
#include <future>
#include <mutex>
#include <string>
#include <vector>

#include "foundation/Files.h"
#include "support/TemporaryFolder.h"

namespace vornex::testing {

/// The end of an operation, for tests that wait for it.
class Outcome {
 public:
  bool ok = false;
  TQErrorPtr error;

  Completion completion() {
    return [promise = promise_](bool succeeded, TQErrorPtr failure) {
      promise->set_value({succeeded, std::move(failure)});
    };
  }

  /// Whether the operation ended in time.
  bool await(std::chrono::seconds limit = std::chrono::seconds(30)) {
    if (future_.wait_for(limit) != std::future_status::ready) return false;
    std::tie(ok, error) = future_.get();
    return true;
  }

  std::int64_t code() const { return error ? error->code() : 0; }

 private:
  using Pair = std::pair<bool, TQErrorPtr>;
  std::shared_ptr<std::promise<Pair>> promise_ = std::make_shared<std::promise<Pair>>();
  std::future<Pair> future_ = promise_->get_future();
};

/// A root folder of its own, and the log lines of the test.
class SdkTest : public ::testing::Test {
 protected:
  SdkTest() {
    ::setenv("VORNEX_ROOT", (folder / "root").c_str(), 1);
    setLogSink([this](LogLevel, const std::string& line) {
      std::lock_guard lock(mutex_);
      lines_.push_back(line);
    });
  }
  ~SdkTest() override { setLogSink(nullptr); }

  bool logged(const std::string& text) {
    std::lock_guard lock(mutex_);
    for (const std::string& line : lines_)
      if (line.find(text) != std::string::npos) return true;
    return false;
  }

  TemporaryFolder folder;

 private:
  std::mutex mutex_;
  std::vector<std::string> lines_;
};

}  // namespace vornex::testing
