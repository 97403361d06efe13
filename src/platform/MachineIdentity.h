#pragma once

#include <vornex/Value.h>

namespace vornex {

/// The identifier of this machine as an upper-case 8-4-4-4-12 UUID: from /etc/machine-id, else from the
/// firmware's product UUID. It stays the same across restarts. Absent when the machine has neither. Reads
/// files on each call; thread-safe.
OptionalString machineIdentifier();

}  // namespace vornex
