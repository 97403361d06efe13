#pragma once

#include <vornex/Value.h>

#include <string_view>

#include "foundation/Error.h"

namespace vornex {

/// Whether the bytes begin like a binary property list.
bool isBinaryPropertyList(std::string_view bytes);

/// Reads a binary property list (format "bplist00", as described in CFBinaryPList.c of Apple's open-source
/// CoreFoundation). Malformed, cyclic, too deep (512 levels) or inflated lists (small files whose shared
/// objects unfold to an immense tree) are errors of domain "plist". Object identifiers (UIDs) become
/// {"CF$UID": index}.
[[nodiscard]] Result<Value> parseBinaryPropertyList(std::string_view bytes);

/// Writes any value but null, and nesting up to 512 levels. {"CF$UID": index} becomes an object identifier.
/// Equal texts are stored once.
[[nodiscard]] Result<std::string> writeBinaryPropertyList(const Value& value);

}  // namespace vornex
