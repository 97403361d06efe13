#pragma once

#include <vornex/Value.h>

#include <algorithm>
#include <array>
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
    /// One case-folded text a document, its words, and the folders in it.
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
/// The place of the field with that key among them; absent when there is none.
std::optional<std::size_t> fieldWithKey(std::string_view key);
inline constexpr std::uint32_t kIndexVersion = 3;

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
  std::strong_ordering operator<=>(const NumberKey& other) const {
    if (whole != other.whole) return whole <=> other.whole;
    return rest == other.rest ? std::strong_ordering::equal : compareRests(other);
  }
  Value value() const { return rest == 0 ? Value(whole) : Value(rest); }

 private:
  std::strong_ordering compareRests(const NumberKey& other) const;
};

/// Of numbers, and booleans as 1 and 0.
std::optional<NumberKey> numberKey(const Value& value);

std::int64_t textDigest(std::string_view text);

/// What a byte of a folded text is: one of a word (letters, digits and everything beyond ASCII), a sign, or
/// what commonly stands between the words of names and paths.
enum class ByteKind : std::uint8_t { gap, letter, sign };

constexpr ByteKind byteKind(char c) {
  auto byte = static_cast<unsigned char>(c);
  if ((c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || byte >= 0x80)
    return ByteKind::letter;
  bool isGap = byte <= ' ' || byte == 0x7f || c == '_' || c == '-' || c == '.' || c == '/';
  return isGap ? ByteKind::gap : ByteKind::sign;
}

inline constexpr auto kByteKinds = [] {
  std::array<ByteKind, 256> kinds{};
  for (std::size_t i = 0; i < kinds.size(); ++i) kinds[i] = byteKind(static_cast<char>(i));
  return kinds;
}();

/// Whether the text is one word: letters alone, or signs alone.
inline bool isOneWord(std::string_view text) {
  if (text.empty() || byteKind(text.front()) == ByteKind::gap) return false;
  return std::all_of(text.begin(), text.end(), [&](char c) { return byteKind(c) == byteKind(text.front()); });
}

/// The words of a text, one after the other. Signs in a row are a word too, so that what is looked for
/// because of its signs is found by them.
template <typename Visit>
void forEachWord(std::string_view text, Visit visit) {
  auto kindAt = [&](std::size_t at) { return kByteKinds[static_cast<unsigned char>(text[at])]; };
  for (std::size_t at = 0; at < text.size();) {
    std::size_t begin = at;
    ByteKind kind = kindAt(at);
    while (at < text.size() && kindAt(at) == kind) ++at;
    if (kind != ByteKind::gap) visit(text.substr(begin, at - begin));
  }
}

/// The folders in a text, each with the slash before and the one after it.
template <typename Visit>
void forEachFolder(std::string_view text, Visit visit) {
  std::size_t begin = text.find('/');
  while (begin < text.size()) {
    std::size_t end = text.find('/', begin + 1);
    if (end == std::string_view::npos) return;
    if (end > begin + 1) visit(text.substr(begin, end + 1 - begin));
    begin = end;
  }
}

/// Whether the text is a folder with its two slashes.
inline bool isOneFolder(std::string_view text) {
  return text.size() > 2 && text.front() == '/' && text.find('/', 1) == text.size() - 1;
}

}  // namespace vornex::server
