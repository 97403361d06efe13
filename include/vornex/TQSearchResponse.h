#pragma once

#include <vornex/Types.h>

#include <vector>

namespace vornex {

/// One page of a search's results.
///
/// Thread-safety: a plain value.
struct TQSearchResponse {
  static TQSearchResponse searchResponseWithResult(std::vector<AssetPtr> result, std::int64_t pageIndex,
                                                   std::int64_t pageLimit, std::int64_t totalCount,
                                                   std::int64_t tag, double elapsedTime,
                                                   OptionalString projectHashValue,
                                                   OptionalString liveFolderHashValue,
                                                   OptionalString fcpxLibraryHashValue,
                                                   OptionalString version, TQErrorPtr error);
  /// A page without assets: zeros, the tag, and nothing known.
  static TQSearchResponse searchResponseWithError(TQErrorPtr error, std::int64_t tag);

  std::vector<AssetPtr> result;
  /// As the server used them.
  std::int64_t pageIndex = 0;
  std::int64_t pageLimit = 0;
  /// How many assets match in all.
  std::int64_t totalCount = 0;
  /// The caller's number for the request.
  std::int64_t tag = 0;
  /// Seconds that the server took; -1 when unknown.
  double elapsedTime = -1;
  /// The library's trees as the server has them now: a value that differs from the library's own says that
  /// the tree is to be loaded again. Absent when not told.
  OptionalString projectHashValue;
  OptionalString liveFolderHashValue;
  OptionalString fcpxLibraryHashValue;
  /// The server's version; only blocking searches tell it.
  OptionalString version;
  /// Null when the search succeeded.
  TQErrorPtr error;
};

}  // namespace vornex
