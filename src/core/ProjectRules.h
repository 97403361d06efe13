#pragma once

#include <cstdint>

namespace vornex {

/// A project is level 0. Deeper trees do not fit the nesting that readers of property lists and JSON accept.
inline constexpr std::int64_t kDeepestLevel = 254;

}  // namespace vornex
