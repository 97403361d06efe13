#pragma once

#include <vornex/Value.h>

#include "foundation/Error.h"
#include "foundation/FileDescriptor.h"

namespace vornex {

/// The executable of the local service: `$VORNEX_WASD`; else "vornexd" beside the running program or beside
/// this library, in the "bin" or "libexec/vornex" next to the library's folder, or in $PATH. Absent when
/// there is none. Thread-safe.
OptionalString serviceExecutable();

/// A service process that was started; it does not end with this object or with this process.
///
/// Thread-safety: none; one owner.
class ServiceProcess {
 public:
  /// A descriptor of the process; none when it has ended already.
  explicit ServiceProcess(FileDescriptor process) : process_(std::move(process)) {}

  bool hasEnded() const;
  /// Asks it to end, as SIGTERM does.
  void end() const;

 private:
  FileDescriptor process_;
};

/// Whether a process that serves, or has served, this root folder still lives. Thread-safe.
bool isServiceAlive();

/// Starts the executable detached: in a session of its own, no child of this process, without open files, its
/// output appended to the service's log, serving this process's root folder. Returns when the program runs;
/// it may not answer yet. Domain "posix" when it cannot be started. Blocks briefly; thread-safe.
[[nodiscard]] Result<ServiceProcess> startService(const std::string& executable);

}  // namespace vornex
