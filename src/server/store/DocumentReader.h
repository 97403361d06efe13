#pragma once

#include <vornex/Value.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/Error.h"

namespace vornex::server {

/// A document as somebody sends it.
struct SentDocument {
  /// All of it as JSON on one line, without an "_id" and without the brace it begins with: it begins with the
  /// first key, or with the closing brace.
  std::string rest;
  /// What it has under the asked keys, in their order; null for what it has not.
  std::vector<Value> values;
};

/// Reads JSON objects one after the other, and what they have under some keys. Of equal keys the last one
/// counts. Errors have domain "json".
///
/// Thread-safety: one thread at a time.
class DocumentReader {
 public:
  /// The keys are sorted and outlive the reader.
  explicit DocumentReader(const std::vector<std::string>& keys);
  ~DocumentReader();

  /// Checks all of an object that was sent. Texts that are not valid UTF-8, as half a surrogate pair is not,
  /// numbers beyond all doubles and more than 510 levels are errors.
  [[nodiscard]] Result<SentDocument> sent(std::string_view json);

  /// The entries of a stored object under the keys. The rest is hardly looked at.
  [[nodiscard]] Result<Dictionary> entries(std::string_view json);

 private:
  class Pass;

  std::optional<SentDocument> sentSoundly(std::string_view json);

  const std::vector<std::string>& keys_;
  std::unique_ptr<Pass> pass_;
};

/// A stored document as it may leave the store: former versions stored halves of surrogate pairs, which
/// become U+FFFD.
std::string withValidText(std::string document);

/// The texts of the objects in the array under a top-level key of a JSON object; what they have between their
/// braces is not looked at. Absent when the text is anything else: malformed, not UTF-8, without the array or
/// with it twice, or when another value is in it.
std::optional<std::vector<std::string_view>> objectsInArray(std::string_view json, std::string_view key);

}  // namespace vornex::server
