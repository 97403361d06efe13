#pragma once

#include <vornex/TQSearchResponse.h>
#include <vornex/Types.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "foundation/Error.h"

namespace vornex::cli {

/// What a search asks for, as typed.
struct SearchQuestion {
  std::string text = {};
  /// None: all types.
  std::vector<std::string> types = {};
  std::int64_t page = 0;
  std::int64_t limit = 100;
  OptionalString sort = {};
  bool descending = false;
  bool trash = false;
};

/// One page of matching assets. Blocks; not for the main thread. Changes the shared search settings.
[[nodiscard]] Result<TQSearchResponse> search(const LibraryPtr& library, const SearchQuestion& question);

/// The assets with the identifiers, in their order. An error names those that the library does not have.
/// Blocks; not for the main thread.
[[nodiscard]] Result<std::vector<AssetPtr>> assetsWithIDs(const LibraryPtr& library,
                                                          const std::vector<std::string>& ids);

/// Calls back with every asset, those in the trash last.
[[nodiscard]] Result<void> forEachAsset(const LibraryPtr& library,
                                        const std::function<void(const AssetPtr& asset)>& callback);

struct AssetCounts {
  std::int64_t total = 0;
  /// Name of the type and how many there are, in the types' own order.
  std::vector<std::pair<std::string, std::int64_t>> byType;
};

/// How many assets a library holds outside the trash.
[[nodiscard]] Result<AssetCounts> countAssets(const LibraryPtr& library);

}  // namespace vornex::cli
