#include <fmt/format.h>
#include <vornex/TQAsset.h>
#include <vornex/TQLibrary.h>

#include "cli/Await.h"
#include "cli/Commands.h"
#include "cli/Format.h"
#include "cli/Host.h"
#include "cli/Output.h"
#include "cli/Search.h"

namespace vornex::cli {
namespace {

constexpr auto kPatience = std::chrono::minutes(5);

using Tags = std::vector<std::string>;

struct FoundAssets {
  LibraryPtr library;
  std::vector<AssetPtr> assets;
};

Result<FoundAssets> find(Host& host, const OptionalString& wanted, const std::vector<std::string>& ids) {
  auto library = host.library(wanted);
  if (!library) return tl::unexpected(library.error());
  auto assets = assetsWithIDs(*library, ids);
  if (!assets) return tl::unexpected(assets.error());
  return FoundAssets{std::move(*library), std::move(*assets)};
}

/// Asks the server for the change. The assets follow what it confirms.
Result<void> change(const LibraryPtr& library, const std::vector<AssetPtr>& assets, const char* key,
                    const Value& value) {
  auto ended = await<bool, TQErrorPtr>(kPatience, [&](Completion done) {
    library->updateAssets(assets, {{key, value}}, std::move(done));
  });
  if (!ended) return failure("vornex", 0, "the service does not answer");
  if (const auto& [ok, error] = *ended; !ok) return tl::unexpected(fromSDK(error));
  for (const AssetPtr& asset : assets) {
    const Value* now = asset->metaDataDictionary ? asset->metaDataDictionary->find(key) : nullptr;
    if (!now || !(*now == value))
      return failure("vornex", 0, fmt::format("the asset {} could not be changed", asset->id.value_or("")));
  }
  return {};
}

void print(const std::vector<AssetPtr>& assets, const Output& output) {
  for (const AssetPtr& asset : assets)
    output.record("asset", {{"id", asset->id},
                            {"name", asset->name()},
                            {"tags", Array(asset->tags().begin(), asset->tags().end())},
                            {"flagged", asset->flagged()},
                            {"rating", asset->rating()},
                            {"color", TQAsset::colorString(asset->colorType())}});
  output.text(fmt::format("Changed {}.", counted(assets.size(), "asset")));
}

Result<void> changeAll(Host& host, const OptionalString& library, const std::vector<std::string>& ids,
                       const char* key, const Value& value, const Output& output) {
  auto found = find(host, library, ids);
  if (!found) return tl::unexpected(found.error());
  auto changed = change(found->library, found->assets, key, value);
  if (changed) print(found->assets, output);
  return changed;
}

bool contains(const Tags& tags, const std::string& tag) {
  return std::find(tags.begin(), tags.end(), tag) != tags.end();
}

Tags changedTags(const Tags& present, const AssetTagCommand& command) {
  Tags tags;
  for (const Tags& source : {command.set.value_or(present), command.add})
    for (const std::string& tag : source)
      if (!isBlank(tag) && !contains(tags, tag) && !contains(command.remove, tag)) tags.push_back(tag);
  return tags;
}

std::int64_t colorNumber(const std::string& name) {
  std::int64_t number = 0;
  while (TQAsset::colorString(number) != name) ++number;
  return number;
}

}  // namespace

Result<void> run(const AssetTagCommand& command, Host& host, const Output& output) {
  auto found = find(host, command.library, command.ids);
  if (!found) return tl::unexpected(found.error());
  // Those that are to have the same tags change in one request.
  std::map<Tags, std::vector<AssetPtr>> assetsByTags;
  for (const AssetPtr& asset : found->assets)
    assetsByTags[changedTags(asset->tags(), command)].push_back(asset);
  for (const auto& [tags, assets] : assetsByTags) {
    auto changed = change(found->library, assets, "tags", Array(tags.begin(), tags.end()));
    if (!changed) return changed;
  }
  print(found->assets, output);
  return {};
}

Result<void> run(const AssetLabelCommand& command, Host& host, const Output& output) {
  return changeAll(host, command.library, command.ids, "colorlabel", colorNumber(command.color), output);
}

Result<void> run(const AssetRateCommand& command, Host& host, const Output& output) {
  return changeAll(host, command.library, command.ids, "rating", command.rating, output);
}

Result<void> run(const AssetFlagCommand& command, Host& host, const Output& output) {
  return changeAll(host, command.library, command.ids, "flagged", !command.off, output);
}

}  // namespace vornex::cli
