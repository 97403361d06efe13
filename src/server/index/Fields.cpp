#include "server/index/Fields.h"

#include <xxhash.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <map>

namespace vornex::server {

std::span<const IndexedField> indexedFields() {
  using Kind = IndexedField::Kind;
  static constexpr std::array kFields = {
      IndexedField{"name", Kind::text, true},
      IndexedField{"importfrompath", Kind::text, true},
      IndexedField{"tags", Kind::exact},
      IndexedField{"fileext", Kind::exact, true},
      IndexedField{"type", Kind::exact, true},
      IndexedField{"rating", Kind::exact, true},
      IndexedField{"filesize", Kind::exact, true},
      IndexedField{"createdate", Kind::exact, true},
      IndexedField{"modifydate", Kind::exact, true},
      IndexedField{"importdate", Kind::exact, true},
      IndexedField{"updatedate", Kind::exact, true},
      IndexedField{"project", Kind::exact},
      IndexedField{"group", Kind::exact},
      IndexedField{"trash", Kind::exact},
      IndexedField{"flagged", Kind::exact},
      IndexedField{"wantreview", Kind::exact},
      IndexedField{"haslocation", Kind::exact},
      IndexedField{"colorlabel", Kind::exact},
      IndexedField{"importtype", Kind::exact},
      IndexedField{"islivefolder", Kind::exact},
      IndexedField{"livefolder", Kind::exact},
      IndexedField{"livesubfolder", Kind::exact},
      IndexedField{"isfcpxlibrary", Kind::exact},
      IndexedField{"fcpx_library", Kind::exact},
      IndexedField{"fcpx_event", Kind::exact},
      IndexedField{"fcpx_multicam_uid", Kind::exact},
      IndexedField{"JobStatus", Kind::exact},
      IndexedField{"masterpath", Kind::path},
      IndexedField{"thumbnailpath", Kind::digest},
      IndexedField{"previewpath", Kind::digest},
  };
  return kFields;
}

std::optional<std::size_t> fieldWithKey(std::string_view key) {
  static const std::map<std::string_view, std::size_t> kFields = [] {
    std::map<std::string_view, std::size_t> fields;
    for (std::size_t i = 0; i < indexedFields().size(); ++i) fields[indexedFields()[i].key] = i;
    return fields;
  }();
  auto found = kFields.find(key);
  return found == kFields.end() ? std::nullopt : std::optional(found->second);
}

const std::vector<std::string>& indexedKeys() {
  static const std::vector<std::string> kKeys = [] {
    std::vector<std::string> keys;
    for (const IndexedField& field : indexedFields()) keys.emplace_back(field.key);
    std::sort(keys.begin(), keys.end());
    return keys;
  }();
  return kKeys;
}

std::size_t placeOfIndexedKey(std::string_view key) {
  const std::vector<std::string>& keys = indexedKeys();
  return static_cast<std::size_t>(std::lower_bound(keys.begin(), keys.end(), key) - keys.begin());
}

static constexpr double kIntegerLimit = 9223372036854775808.0;

// Among numbers with the same `whole`: what lies below all integers, the integer, what lies above it.
static int place(double rest) {
  if (rest == 0) return 0;
  return rest < -kIntegerLimit ? -1 : 1;
}

std::strong_ordering NumberKey::compareRests(const NumberKey& other) const {
  if (place(rest) != place(other.rest)) return place(rest) <=> place(other.rest);
  return rest < other.rest ? std::strong_ordering::less : std::strong_ordering::greater;
}

std::optional<NumberKey> numberKey(const Value& value) {
  if (const bool* boolean = value.ifBool()) return NumberKey{*boolean};
  if (const std::int64_t* integer = value.ifInteger()) return NumberKey{*integer};
  double number = 0;
  if (const std::uint64_t* integer = value.ifUnsigned())
    number = static_cast<double>(*integer);
  else if (const double* real = value.ifReal())
    number = *real;
  else
    return std::nullopt;
  if (number >= kIntegerLimit) return NumberKey{std::numeric_limits<std::int64_t>::max(), number};
  if (number < -kIntegerLimit) return NumberKey{std::numeric_limits<std::int64_t>::min(), number};
  double whole = std::floor(number);
  return NumberKey{static_cast<std::int64_t>(whole), number == whole ? 0 : number};
}

std::int64_t textDigest(std::string_view text) {
  return static_cast<std::int64_t>(XXH3_64bits(text.data(), text.size()));
}

}  // namespace vornex::server
