#pragma once

namespace vornex {

// Keys of a record whose file is a copy outside the package: what it was copied from.

/// As "importfrompath".
inline constexpr const char* kSourcePath = "sourcepath";
/// In bytes.
inline constexpr const char* kSourceSize = "sourcesize";
/// When it was modified, as "modifydate".
inline constexpr const char* kSourceDate = "sourcedate";

}  // namespace vornex
