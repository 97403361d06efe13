#pragma once

#include <cstddef>
#include <string_view>

namespace vornex {

/// Reads numbers of either byte order; outside the text they are 0.
class ByteReader {
 public:
  ByteReader(std::string_view bytes, bool bigEndian) : bytes_(bytes), bigEndian_(bigEndian) {}

  unsigned two(std::size_t at) const { return number(at, 2); }
  unsigned four(std::size_t at) const { return number(at, 4); }

 private:
  unsigned number(std::size_t at, std::size_t count) const {
    if (at > bytes_.size() || bytes_.size() - at < count) return 0;
    unsigned value = 0;
    for (std::size_t i = 0; i < count; ++i) {
      auto byte = static_cast<unsigned char>(bytes_[at + (bigEndian_ ? i : count - 1 - i)]);
      value = value << 8 | byte;
    }
    return value;
  }

  std::string_view bytes_;
  bool bigEndian_;
};

}  // namespace vornex
