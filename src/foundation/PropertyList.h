#pragma once

#include <vornex/Value.h>

#include <string>
#include <string_view>

#include "foundation/Error.h"

namespace vornex {

enum class PropertyListFormat { xml, binary };

/// Reads an XML or binary property list. Domain "plist" for malformed bytes and nesting deeper than 512
/// levels.
[[nodiscard]] Result<Value> parsePropertyList(std::string_view bytes);

/// Null values have no property-list form: an entry or element that is null is an error of domain "plist".
/// Values that XML cannot carry (control characters, integers beyond 63 bits, dates outside 1933 to 2069)
/// make the result binary whatever the format asked for; every reader tells the two apart by their first
/// bytes.
[[nodiscard]] Result<std::string> writePropertyList(const Value& value,
                                                    PropertyListFormat format = PropertyListFormat::xml);

[[nodiscard]] Result<Value> readPropertyListFile(const std::string& path);
/// The dictionary at the top of the file; domain "plist" when the top is anything else.
[[nodiscard]] Result<Dictionary> readDictionaryFile(const std::string& path);
/// Atomic: see writeFileAtomically.
[[nodiscard]] Result<void> writePropertyListFile(const std::string& path, const Value& value);

}  // namespace vornex
