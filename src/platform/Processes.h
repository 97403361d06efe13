#pragma once

#include <sys/types.h>
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

/// Starts a program and returns. `input` becomes its standard input (-1: none, it reads nothing) and `output`
/// its standard output and error (-1: discarded); it inherits nothing else and leads a process group of its
/// own. The caller reaps it. Domain "posix". Thread-safe.
[[nodiscard]] Result<pid_t> startProcess(const std::string& program,
                                         const std::vector<std::string>& arguments, int input = -1,
                                         int output = -1);

/// Runs a program and waits for its end. A program given without a slash is looked for in $PATH. It reads
/// nothing, inherits no descriptors, and at the time limit it is killed with the children of its process
/// group; children it leaves behind at its end are killed too. A program that cannot be started is an error
/// of domain "posix". Blocks; thread-safe.
[[nodiscard]] Result<ProcessResult> runProcess(const std::string& program,
                                               const std::vector<std::string>& arguments,
                                               const ProcessOptions& options = {});

/// runProcess for programs that read files of unknown origin: contained as Containment.h says, with two
/// minutes of processor time. ENOENT when the program or the one that contains it is missing.
[[nodiscard]] Result<ProcessResult> runContained(const std::string& program,
                                                 const std::vector<std::string>& arguments,
                                                 const ProcessOptions& options = {});

/// A program of this system: beside the running program or the library, or where an installation puts it.
OptionalString findOwnProgram(const std::string& name);

/// The path of the executable of that name in $PATH; a name with a slash is checked as it is. Thread-safe.
OptionalString findProgram(const std::string& name);

}  // namespace vornex
