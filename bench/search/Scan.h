#pragma once

#include <string>

#include "Queries.h"

namespace vornex::bench {

/// What the searches for texts cost a scan in memory, in milliseconds: the lower-case text of all documents
/// in one piece, in the order of the pages, one thread, no service. Prints one row for each query class.
void measureScans(const std::string& documents, const std::vector<Query>& queries);

}  // namespace vornex::bench
