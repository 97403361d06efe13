#pragma once

#include <string>

namespace vornex {

/// Whether an asset's record says something of its own under the key: what a file brings along must not stand
/// in its place. Thread-safe.
bool isRecordKey(const std::string& key);

}  // namespace vornex
