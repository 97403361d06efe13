#pragma once

#include <sys/time.h>

#include <string>

#include "foundation/Error.h"
#include "foundation/FileDescriptor.h"

namespace vornex {

// Stream sockets in the file system. Their paths may be of any length, unlike the addresses that the system
// takes. All fail with domain "posix"; all are safe on any thread.

/// Connects to whoever listens at the path. ECONNREFUSED or ENOENT when nobody does, EACCES when another
/// user's process does. Connecting, and each later send, may block up to the limit.
[[nodiscard]] Result<FileDescriptor> connectToUnixSocket(const std::string& path, timeval limit);

/// Whether somebody listens at the path, of whatever user. Wakes a service that is started on demand.
bool isListenedOn(const std::string& path);

/// Listens at the path, in the place of whatever is there; only this user may connect.
[[nodiscard]] Result<FileDescriptor> listenOnUnixSocket(const std::string& path);

/// Whether the process at the other end of the connection is this user's.
bool isPeerOfSameUser(int socket);

}  // namespace vornex
