#pragma once

namespace vornex {

/// The permission of a file that holds passwords: readable by this user only.
inline constexpr unsigned kCredentialFileMode = 0600;

}  // namespace vornex
