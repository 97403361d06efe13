#pragma once

#include <vornex/KeyedArchive.h>

namespace vornex::archive {

inline constexpr std::int64_t kVersion = 100000;
inline constexpr const char* kArchiver = "NSKeyedArchiver";
inline constexpr const char* kNil = "$null";
inline constexpr int kMaximumDepth = 512;

/// An empty object of the registered class; null for an unknown name.
std::shared_ptr<Archivable> makeObject(const std::string& className);

}  // namespace vornex::archive
