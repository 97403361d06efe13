#pragma once

#include "server/index/AssetIndex.h"
#include "server/store/AssetStore.h"
#include "server/store/Sqlite.h"

namespace vornex::server {

/// After this time a search is given up with `timedOut`.
inline constexpr std::chrono::seconds kSearchTimeLimit{20};

/// Answers the search from the index and reads what it must from the database, page and total as of one
/// moment.
[[nodiscard]] Result<SearchPage> searchAssets(Database& database, const AssetIndex& index,
                                              const SearchRequest& request);

}  // namespace vornex::server
