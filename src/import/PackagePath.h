#pragma once

#include <vornex/Value.h>

#include <string>

namespace vornex {

/// The text after the first occurrence of the package folder in the path, with its leading slash; absent when
/// the package folder does not occur.
OptionalString packageRelativePath(const std::string& path, const std::string& packageFolder);

/// Where the import journals of a library lie.
std::string importJournalFolder(const std::string& packageFolder);

}  // namespace vornex
