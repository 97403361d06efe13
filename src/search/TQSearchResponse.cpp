#include <vornex/TQSearchResponse.h>

namespace vornex {

TQSearchResponse TQSearchResponse::searchResponseWithResult(
    std::vector<AssetPtr> result, std::int64_t pageIndex, std::int64_t pageLimit, std::int64_t totalCount,
    std::int64_t tag, double elapsedTime, OptionalString projectHashValue, OptionalString liveFolderHashValue,
    OptionalString fcpxLibraryHashValue, OptionalString version, TQErrorPtr error) {
  return {std::move(result),
          pageIndex,
          pageLimit,
          totalCount,
          tag,
          elapsedTime,
          std::move(projectHashValue),
          std::move(liveFolderHashValue),
          std::move(fcpxLibraryHashValue),
          std::move(version),
          std::move(error)};
}

TQSearchResponse TQSearchResponse::searchResponseWithError(TQErrorPtr error, std::int64_t tag) {
  TQSearchResponse response;
  response.tag = tag;
  response.error = std::move(error);
  return response;
}

}  // namespace vornex
