#pragma once

#include <cstdint>
#include <string_view>

namespace vornex::server {

/// What a Range header asks of a file.
struct ByteRange {
  enum class Kind {
    /// No range, several, or one in a form that is not understood: the file is sent whole.
    whole,
    part,
    /// Nothing of the file lies in it.
    unsatisfiable,
  };
  Kind kind = Kind::whole;
  std::uint64_t offset = 0;
  std::uint64_t length = 0;
};

ByteRange parseByteRange(std::string_view header, std::uint64_t fileSize);

/// Whether an If-None-Match or If-Range header names the tag.
bool namesETag(std::string_view header, std::string_view etag);

}  // namespace vornex::server
