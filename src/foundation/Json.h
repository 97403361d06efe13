#pragma once

#include <vornex/Value.h>

#include <optional>
#include <string>
#include <string_view>

#include "foundation/Error.h"

namespace vornex {

enum class JsonStyle {
  compact,
  /// Two-blank indent and `"key" : value`, as macOS prints it.
  pretty,
};

/// Reads one JSON document (RFC 8259). Integers that fit neither 64-bit kind become doubles; of equal keys
/// the last one counts. Nesting deeper than 512 levels, invalid UTF-8 and trailing text are errors of domain
/// "json".
[[nodiscard]] Result<Value> parseJson(std::string_view text);

/// The number that a text of JSON's number form stands for: too close to zero it is 0, beyond what a double
/// holds it is absent.
std::optional<Value> jsonNumber(std::string_view text);

/// Dates are written as date numbers are not: an ISO 8601 string; data as base64. NaN and infinities as null.
std::string writeJson(const Value& value, JsonStyle style = JsonStyle::compact);

}  // namespace vornex
