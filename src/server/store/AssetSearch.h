#pragma once

#include "server/index/AssetIndex.h"
#include "server/query/TimeLimit.h"
#include "server/store/AssetStore.h"
#include "server/store/Sqlite.h"

namespace vornex::server {

/// Answers the search from the index and reads what it must from the database, page and total as of one
/// moment. Gives up with `timedOut` at the deadline.
[[nodiscard]] Result<SearchPage> searchAssets(Database& database, const AssetIndex& index,
                                              const SearchRequest& request,
                                              TimeLimit::Clock::time_point deadline);

}  // namespace vornex::server
