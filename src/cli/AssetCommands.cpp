#include <fmt/format.h>
#include <vornex/TQAsset.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQProject.h>
#include <vornex/TQSearchManager.h>

#include "cli/Await.h"
#include "cli/Commands.h"
#include "cli/Format.h"
#include "cli/Host.h"
#include "cli/Output.h"
#include "cli/Search.h"
#include "cli/Table.h"
#include "foundation/Files.h"
#include "foundation/Json.h"

namespace vornex::cli {
namespace {

/// Absent for an asset in no project, or in one that the library does not know.
OptionalString placeOf(const LibraryPtr& library, const TQAsset& asset) {
  if (!asset.project || !library->projectWithID(asset.project->id.value_or(""))) return std::nullopt;
  return projectPath(asset.group ? asset.group : asset.project);
}

/// The absolute path of a file in the package; absent when there is none.
OptionalString packageFile(const LibraryPtr& library, const OptionalString& relativePath) {
  if (!relativePath || relativePath->empty() || !library->packageFolder) return std::nullopt;
  std::string path = appendPathComponent(*library->packageFolder, *relativePath);
  return fileExists(path) ? OptionalString(std::move(path)) : std::nullopt;
}

Dictionary facts(const LibraryPtr& library, const TQAsset& asset) {
  Array tags;
  for (const std::string& tag : asset.tags()) tags.emplace_back(tag);
  return {{"id", asset.id},
          {"name", asset.name()},
          {"extension", asset.fileExtension},
          {"type", typeName(asset.type)},
          {"size", asset.fileSize},
          {"created", isoDate(asset.createDate)},
          {"modified", isoDate(asset.modifyDate)},
          {"imported", isoDate(asset.importDate)},
          {"library", library->name},
          {"project", placeOf(library, asset)},
          {"tags", tags},
          {"reference", asset.importType == 0},
          {"source", asset.importFromPath},
          {"file", asset.managedMasterPath()},
          {"thumbnail", packageFile(library, asset.thumbnailPath)}};
}

/// What is known of its pictures and sound; empty when nothing is.
Dictionary mediaFacts(const TQAsset& asset) {
  const Value* facts = asset.metaDataDictionary ? asset.metaDataDictionary->find("mediainfo") : nullptr;
  const Dictionary* known = facts ? facts->ifDictionary() : nullptr;
  return known ? *known : Dictionary();
}

std::string fileName(const TQAsset& asset) {
  const std::string extension = asset.fileExtension.value_or("");
  return asset.name().value_or("") + (extension.empty() ? "" : "." + extension);
}

std::string cellText(const Value& value) {
  if (const std::string* text = value.ifString()) return *text;
  return writeJson(value);
}

}  // namespace

Result<void> run(const SearchCommand& command, Host& host, const Output& output) {
  auto library = host.library(command.library);
  if (!library) return tl::unexpected(library.error());
  auto found = search(*library, {.text = command.text,
                                 .types = command.types,
                                 .page = command.page,
                                 .limit = command.limit,
                                 .sort = command.sort,
                                 .descending = command.descending,
                                 .trash = command.trash});
  if (!found) return tl::unexpected(found.error());

  Table table({{"NAME", Table::Kind::text},
               {"TYPE", Table::Kind::fixed, 2},
               {"SIZE", Table::Kind::number, 1},
               {"DATE", Table::Kind::fixed, 3},
               {"PROJECT", Table::Kind::text, 4},
               {"ID"},
               {"THUMBNAIL", Table::Kind::path, 5}});
  for (const AssetPtr& asset : found->result) {
    output.record("asset", facts(*library, *asset));
    table.addRow({fileName(*asset), typeName(asset->type), formatBytes(asset->fileSize),
                  formatDate(asset->modifyDate), placeOf(*library, *asset).value_or("-"),
                  asset->id.value_or(""), packageFile(*library, asset->thumbnailPath).value_or("-")});
  }
  output.record("page", {{"page", found->pageIndex},
                         {"limit", found->pageLimit},
                         {"count", static_cast<std::int64_t>(found->result.size())},
                         {"total", found->totalCount},
                         {"elapsed", found->elapsedTime}});
  if (!table.empty()) output.table(table);
  const std::int64_t pages = (found->totalCount + command.limit - 1) / command.limit;
  const std::string count = counted(static_cast<std::uint64_t>(found->totalCount), "asset");
  output.text(pages > 1 ? fmt::format("{} found; page {} of 0 to {}", count, command.page, pages - 1)
                        : fmt::format("{} found", count));
  return {};
}

Result<void> run(const AssetShowCommand& command, Host& host, const Output& output) {
  auto library = host.library(command.library);
  if (!library) return tl::unexpected(library.error());
  auto found = assetsWithIDs(*library, {command.id});
  if (!found) return tl::unexpected(found.error());
  const AssetPtr asset = found->front();
  Dictionary record = facts(*library, *asset);
  record.set("flagged", asset->flagged());
  record.set("rating", asset->rating());
  record.set("color", TQAsset::colorString(asset->colorType()));
  if (asset->hasLocation) {
    record.set("latitude", asset->latitude);
    record.set("longitude", asset->longitude);
  }
  record.set("preview", packageFile(*library, asset->previewPath));
  Table table({{"FIELD"}, {"VALUE", Table::Kind::text}});
  for (const auto& [key, value] : record) table.addRow({key, value.isNull() ? "-" : cellText(value)});
  for (const auto& [key, value] : mediaFacts(*asset)) table.addRow({key, cellText(value)});

  record.set("metadata", asset->metaDataDictionary ? Value(*asset->metaDataDictionary) : Value());
  output.record("asset", record);
  output.table(table);
  return {};
}

}  // namespace vornex::cli
