#pragma once

#include <vornex/Value.h>

#include <chrono>
#include <string>
#include <vector>

#include "foundation/Error.h"

namespace vornex {

struct ProcessOptions {
  std::chrono::milliseconds timeLimit{60'000};
  /// Of standard output and standard error together, in the order written; what exceeds it is discarded.
  /// 0 discards all output.
  std::size_t outputLimit = 0;
};

/// How a program ended.
struct ProcessResult {
  int exitStatus = 0;     ///< meaningful when no signal ended it
  int signal = 0;         ///< the signal that ended it, else 0
  bool timedOut = false;  ///< it was killed at the time limit
  std::string output;

  bool succeeded() const { return signal == 0 && exitStatus == 0; }
};

/// Runs a program and waits for its end. A program given without a slash is looked for in $PATH. It reads
/// nothing, inherits no descriptors, and at the time limit it is killed with the children of its process
/// group; children it leaves behind at its end are killed too. A program that cannot be started is an error
/// of domain "posix". Blocks; thread-safe.
[[nodiscard]] Result<ProcessResult> runProcess(const std::string& program,
                                               const std::vector<std::string>& arguments,
                                               const ProcessOptions& options = {});

/// The path of the executable of that name in $PATH; a name with a slash is checked as it is. Thread-safe.
OptionalString findProgram(const std::string& name);

}  // namespace vornex
