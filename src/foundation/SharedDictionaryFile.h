#pragma once

#include <vornex/Value.h>

#include <functional>
#include <optional>
#include <string>

#include "foundation/Error.h"

namespace vornex {

/// What the file is to hold, made from what it holds now.
using DictionaryChange = std::function<Dictionary(std::optional<Dictionary> present)>;

/// Changes a property-list file that other processes change as well. Under the file's lock it is read,
/// `change` is called once, and the outcome is written atomically; `mode` is the permission of a new file.
///
/// Nothing is present when the file is missing (its folder must exist), and when it is no dictionary: it is
/// moved aside then, to the same name with ".damaged", or ".damaged-2" and so on, behind it. One that cannot
/// be read is an error and stays. Domain "posix", or "plist" for a value without a property-list form.
/// Blocks; thread-safe.
[[nodiscard]] Result<void> changeDictionaryFile(const std::string& path, const DictionaryChange& change,
                                                unsigned mode = 0644);

}  // namespace vornex
