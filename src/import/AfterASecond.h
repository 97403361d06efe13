#pragma once

#include <vornex/Queue.h>

namespace vornex {

/// Runs the task on a worker thread a second from now, after those that were given before it. However many
/// wait, they take one thread. A task that throws is logged. Returns at once; thread-safe.
void afterASecond(Task task);

}  // namespace vornex
