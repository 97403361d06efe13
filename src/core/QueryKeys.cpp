#include "core/QueryKeys.h"

#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include <algorithm>

namespace vornex {

std::size_t keyCharacterLength(std::string_view text) {
  constexpr std::uint32_t kOfKeys = U_GC_L_MASK | U_GC_M_MASK | U_GC_N_MASK;
  if (text.empty()) return 0;
  // A character takes four bytes at most.
  auto size = static_cast<std::int32_t>(std::min<std::size_t>(text.size(), 4));
  std::int32_t length = 0;
  UChar32 c = 0;
  U8_NEXT(text.data(), length, size, c);
  bool mayHold = c == '_' || (c >= 0 && (U_GET_GC_MASK(c) & kOfKeys) != 0);
  return mayHold ? static_cast<std::size_t>(length) : 0;
}

bool isQueryKey(std::string_view text) {
  if (text.empty()) return false;
  while (std::size_t length = keyCharacterLength(text)) text.remove_prefix(length);
  return text.empty();
}

}  // namespace vornex
