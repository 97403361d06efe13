#pragma once

#include <vornex/Types.h>
#include <vornex/Value.h>

namespace vornex::cli {

/// What the "library" records of the output say.
Dictionary libraryFacts(const LibraryPtr& library);

}  // namespace vornex::cli
