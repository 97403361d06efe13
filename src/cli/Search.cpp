#include "cli/Search.h"

#include <fmt/format.h>
#include <vornex/TQSearchManager.h>

#include "cli/Await.h"
#include "cli/Format.h"

namespace vornex::cli {
namespace {

// The server gives up earlier by itself.
constexpr auto kPatience = std::chrono::minutes(5);

struct ParsedText {
  TQSearchManager::Terms terms;
  std::int64_t operatorType = kSearchInvalid;
};

Result<ParsedText> parse(const std::string& text) {
  Result<ParsedText> result;
  TQSearchManager::sharedManager().parseSearchString(
      text,
      [&](std::optional<TQSearchManager::Terms> terms, std::int64_t operatorType, const TQErrorPtr& error) {
        if (error) {
          result = tl::unexpected(fromSDK(error));
        } else {
          result = ParsedText{std::move(terms).value_or(TQSearchManager::Terms()), operatorType};
        }
      });
  return result;
}

void configure(const SearchQuestion& question) {
  auto& manager = TQSearchManager::sharedManager();
  for (const AssetType type :
       {kAssetTypeVideo, kAssetTypeAudio, kAssetTypeImage, kAssetTypeDocument, kAssetTypeExtra}) {
    const auto& types = question.types;
    const bool asked = std::find(types.begin(), types.end(), typeName(type)) != types.end();
    manager.setSearchAssetTypeKey(typeName(type), types.empty() || asked);
  }
  manager.setSortField(question.sort);
  manager.setAscending(!question.descending);
}

}  // namespace

Result<TQSearchResponse> search(const LibraryPtr& library, const SearchQuestion& question) {
  auto parsed = parse(question.text);
  if (!parsed) return tl::unexpected(parsed.error());
  configure(question);
  auto answer = await<TQSearchResponse>(kPatience, [&](auto done) {
    TQSearchManager::sharedManager().searchAssetWithLibraryTrash(
        library, question.trash, parsed->terms, parsed->operatorType, question.page, question.limit, 0, done);
  });
  if (!answer) return failure("vornex", 0, "the service does not answer");
  auto& response = std::get<0>(*answer);
  if (response.error) return tl::unexpected(fromSDK(response.error));
  return std::move(response);
}

Result<std::vector<AssetPtr>> assetsWithIDs(const LibraryPtr& library, const std::vector<std::string>& ids) {
  std::vector<AssetPtr> assets;
  std::vector<std::string> missing;
  for (const std::string& id : ids) {
    TQErrorPtr error;
    AssetPtr asset = TQSearchManager::sharedManager().searchAssetWithLibrary(library, id, &error);
    if (asset)
      assets.push_back(std::move(asset));
    else if (!error || error->code() == static_cast<std::int64_t>(StatusCode::itemNotFound))
      missing.push_back('"' + id + '"');
    else
      return tl::unexpected(fromSDK(error));
  }
  if (missing.empty()) return assets;
  return failure("vornex", 0, fmt::format("there is no asset {}", fmt::join(missing, ", ")));
}

Result<void> forEachAsset(const LibraryPtr& library,
                          const std::function<void(const AssetPtr& asset)>& callback) {
  constexpr std::int64_t kPageSize = 1000;
  for (bool trash : {false, true}) {
    for (std::int64_t page = 0, total = 1; page * kPageSize < total; ++page) {
      auto found = search(library, {.page = page, .limit = kPageSize, .sort = "importdate", .trash = trash});
      if (!found) return tl::unexpected(found.error());
      for (const AssetPtr& asset : found->result) callback(asset);
      total = found->totalCount;
    }
  }
  return {};
}

Result<AssetCounts> countAssets(const LibraryPtr& library) {
  AssetCounts counts;
  for (const AssetType type :
       {kAssetTypeVideo, kAssetTypeAudio, kAssetTypeImage, kAssetTypeDocument, kAssetTypeExtra}) {
    auto found = search(library, {.types = {typeName(type)}, .limit = 1});
    if (!found) return tl::unexpected(found.error());
    counts.byType.emplace_back(typeName(type), found->totalCount);
    counts.total += found->totalCount;
  }
  return counts;
}

}  // namespace vornex::cli
