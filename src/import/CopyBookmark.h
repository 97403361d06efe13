#pragma once

#include <vornex/Types.h>

#include <string>
#include <tl/expected.hpp>

namespace vornex {

/// The bookmark by which the copy service reaches a source; error 10011 with the reason when the source may
/// not be read. Blocks; thread-safe.
tl::expected<Data, TQErrorPtr> bookmarkForCopy(const std::string& source);

}  // namespace vornex
