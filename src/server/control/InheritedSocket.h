#pragma once

#include "foundation/Error.h"
#include "foundation/FileDescriptor.h"

namespace vornex::server {

/// The listening Unix socket that a service manager passes to this process (LISTEN_FDS); none when it was
/// started by other means. Takes the variables out of the environment. Fails with domain "posix" for anything
/// but one such socket. Belongs to the start of the process, before any other thread.
[[nodiscard]] Result<FileDescriptor> takeInheritedSocket();

}  // namespace vornex::server
