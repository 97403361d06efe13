#pragma once

#include <chrono>

#include "server/store/AssetStore.h"
#include "server/store/Sqlite.h"

namespace vornex::server {

/// After this time a search is given up with `timedOut`.
inline constexpr std::chrono::seconds kSearchTimeLimit{20};

/// Adds the SQL functions that searches call. Needed once for each connection.
[[nodiscard]] Result<void> addSearchFunctions(Database& database);

/// Runs the search on the connection, page and total as of one moment.
[[nodiscard]] Result<SearchPage> searchAssets(Database& database, const SearchRequest& request);

}  // namespace vornex::server
