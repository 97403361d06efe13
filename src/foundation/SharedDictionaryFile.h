#pragma once

#include <vornex/Value.h>

#include <functional>
#include <string>

#include "foundation/Error.h"

namespace vornex {

/// Changes a property-list file that other processes change as well. Under the file's lock it is read,
/// `change` works on what it holds now, and the outcome is written atomically; `mode` is the permission of a
/// new file.
///
/// A missing file reads as an empty dictionary, and its folder must exist. One that is no property list is
/// moved aside to the same name with ".damaged" behind it, and reads as empty. One that cannot be read is an
/// error and stays. Domain "posix", or "plist" for a value without a property-list form. Blocks; thread-safe.
[[nodiscard]] Result<void> changeDictionaryFile(const std::string& path,
                                                const std::function<void(Dictionary&)>& change,
                                                unsigned mode = 0644);

}  // namespace vornex
