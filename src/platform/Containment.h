#pragma once

#include <chrono>
#include <cstdint>

#include "foundation/Error.h"

namespace vornex {

/// What a process that reads files of unknown origin may take.
struct ProcessLimits {
  /// Address space in bytes; 0: a share of the machine's memory. Not applied under sanitizers, which reserve
  /// more than any limit.
  std::uint64_t memory = 0;
  /// Bytes of one file written.
  std::uint64_t fileSize = std::uint64_t{4} << 30;
  /// Processor time; see `allowProcessorTime`. 0: no limit.
  std::chrono::seconds processorTime{0};
};

/// Confines this process and all that it starts, for good: the limits, no core files, no new privileges, and
/// no sockets but local ones. Where the kernel cannot bar sockets that is left out. Domain "posix". Call it
/// before threads are started.
[[nodiscard]] Result<void> containProcess(const ProcessLimits& limits);

/// Ends this process by a signal when it takes more processor time than this from now on. A later call sets a
/// new limit.
void allowProcessorTime(std::chrono::seconds time);

}  // namespace vornex
