#pragma once

#include <vornex/Value.h>

#include <compare>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vornex::server {

/// A key of asset documents that the index covers.
struct IndexedField {
  enum class Kind {
    /// Every distinct number and string, as it is; the strings of an array one by one.
    exact,
    /// As exact, but of strings only digests: enough to find documents that may have a value.
    digest,
    /// As digest, and the folders above a path.
    path,
    /// One case-folded text a document, and its words.
    text,
  };

  const char* key;
  Kind kind;
  /// Whether the index orders documents by it.
  bool ordered = false;
};

/// All of them; what a stored index has depends on this table, so that a change of it needs a new
/// kIndexVersion.
std::span<const IndexedField> indexedFields();
inline constexpr std::uint32_t kIndexVersion = 1;

/// The fields' keys, sorted: what of a document is needed to index it.
const std::vector<std::string>& indexedKeys();
/// The place of an indexed key among them.
std::size_t placeOfIndexedKey(std::string_view key);

/// A number in an exact order, whatever its kind: `whole` is the greatest 64-bit integer that is not greater,
/// or the least one there is; `rest` is 0 for an integer, else the number itself.
struct NumberKey {
  std::int64_t whole = 0;
  double rest = 0;

  bool operator==(const NumberKey&) const = default;
  std::strong_ordering operator<=>(const NumberKey& other) const;
  Value value() const { return rest == 0 ? Value(whole) : Value(rest); }
};

/// Of numbers, and booleans as 1 and 0.
std::optional<NumberKey> numberKey(const Value& value);

std::int64_t textDigest(std::string_view text);

/// Whether a byte of a folded text belongs to a word: letters, digits and everything beyond ASCII.
inline bool isWordByte(char c) {
  return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') ||
         static_cast<unsigned char>(c) >= 0x80;
}

template <typename Visit>
void forEachWord(std::string_view text, Visit visit) {
  for (std::size_t at = 0; at < text.size();) {
    std::size_t begin = at;
    while (at < text.size() && isWordByte(text[at])) ++at;
    if (at > begin) visit(text.substr(begin, at - begin));
    while (at < text.size() && !isWordByte(text[at])) ++at;
  }
}

}  // namespace vornex::server
