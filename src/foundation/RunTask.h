#pragma once

#include <vornex/Queue.h>

namespace vornex {

/// Runs the task and destroys it; an exception is logged under the queue's name.
void runTask(Task task, const char* queue) noexcept;

}  // namespace vornex
