#pragma once

#include <vornex/Value.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/Error.h"

namespace vornex::server {

/// Of a JSON object, the entries under the given keys (sorted). Everything else is passed over without being
/// built, and reading ends when all keys are found. Domain "json" for text that is no object.
[[nodiscard]] Result<Dictionary> readEntries(std::string_view json, const std::vector<std::string>& keys);

/// A document as somebody sends it.
struct SentDocument {
  /// All of it as compact JSON, without an "_id" and without the brace it begins with.
  std::string rest;
  /// What it has under the asked keys, in their order; null for what it has not.
  std::vector<Value> values;
};

/// Reads a JSON object that was sent, in one pass. Of equal keys the last one counts. Texts that are not
/// valid UTF-8, as half a surrogate pair is not, and numbers beyond all doubles are errors. Domain "json".
[[nodiscard]] Result<SentDocument> readSentDocument(std::string_view json,
                                                    const std::vector<std::string>& keys);

/// A stored document as it may leave the store: former versions stored halves of surrogate pairs, which
/// become U+FFFD.
std::string withValidText(std::string document);

/// The texts of the objects in the array under a top-level key of a JSON object. Absent when the text is
/// anything else: malformed, not UTF-8, nested deeper than 512 levels, without the array or with it twice, or
/// when another value is in it.
std::optional<std::vector<std::string_view>> objectsInArray(std::string_view json, std::string_view key);

}  // namespace vornex::server
