#include <vornex/Log.h>
#include <vornex/TQAsset.h>
#include <vornex/TQFCPXEvent.h>
#include <vornex/TQFCPXLibrary.h>
#include <vornex/TQFCPXMulticam.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQLiveFolder.h>
#include <vornex/TQProject.h>
#include <vornex/TQSearchManager.h>
#include <vornex/TQVornexUtil.h>

#include <stdexcept>

#include "core/Coercion.h"

namespace vornex {

namespace {

constexpr const char* kNotADictionary = "the answer is not a dictionary";

std::int64_t integerOr(const Value* value, std::int64_t fallback) {
  return value ? coerce::integer(value) : fallback;
}

/// Everything of a page but its assets. What an answer does not tell keeps its default.
TQSearchResponse readPage(const Value& response, std::int64_t tag) {
  TQSearchResponse page;
  page.pageIndex = integerOr(response.find("page"), 0);
  page.pageLimit = integerOr(response.find("limit"), 0);
  page.totalCount = integerOr(response.find("total"), 0);
  page.tag = tag;
  page.elapsedTime = coerce::real(response.find("elapsed"));
  page.projectHashValue = coerce::string(response.find("projecthash"));
  page.liveFolderHashValue = coerce::string(response.find("livefolderhash"));
  page.fcpxLibraryHashValue = coerce::string(response.find("fcpxlibraryhash"));
  return page;
}

ProjectPtr projectNamedBy(const Value& item, const TQLibrary& library) {
  OptionalString id = coerce::string(item.find("project"));
  return id ? library.projectWithID(*id) : nullptr;
}

ProjectPtr groupNamedBy(const Value& item, TQProject& project) {
  OptionalString id = coerce::string(item.find("group"));
  return id && !id->empty() ? project.groupWithID(*id) : nullptr;
}

void linkProject(TQAsset& asset, const Value& item, const LibraryPtr& library) {
  asset.project = projectNamedBy(item, *library);
  if (asset.project)
    asset.group = groupNamedBy(item, *asset.project);
  else
    asset.linkToUndefinedOwner(library);
}

void linkLiveFolder(TQAsset& asset, const Value& item, const LibraryPtr& library) {
  OptionalString id = coerce::string(item.find("livefolder"));
  OptionalString subID = coerce::string(item.find("livesubfolder"));
  asset.isLiveFolder = true;
  asset.liveFolder = id ? library->liveFolderWithID(*id) : nullptr;
  if (!asset.liveFolder)
    asset.linkToUndefinedOwner(library);
  else if (subID)
    asset.liveSubFolder = asset.liveFolder->subFolderWithID(*subID);
}

/// Looks for the asset's multicam clip, and takes over what the item tells about it.
void linkMulticam(TQAsset& asset, const Value& item) {
  OptionalString id = coerce::string(item.find("fcpx_multicam_uid"));
  if (!asset.fcpxEvent || !id || id->empty()) return;
  asset.fcpxMulticam = asset.fcpxEvent->fcpxMulticamWithID(*id);
  const Value* type = item.find("fcpx_multicam_type");
  if (asset.fcpxMulticam && type) asset.fcpxMulticam->multicamType = coerce::integer(type);
}

void linkFCPXLibrary(TQAsset& asset, const Value& item, const LibraryPtr& library) {
  OptionalString id = coerce::string(item.find("fcpx_library"));
  OptionalString eventID = coerce::string(item.find("fcpx_event"));
  asset.isFCPXLibrary = true;
  asset.fcpxLibrary = id ? library->fcpxLibraryWithID(*id) : nullptr;
  if (!asset.fcpxLibrary) return asset.linkToUndefinedOwner(library);
  if (eventID) asset.fcpxEvent = asset.fcpxLibrary->fcpxEventWithID(*eventID);
  linkMulticam(asset, item);
}

/// An asset that belongs elsewhere may lie in a project besides.
void linkOptionalProject(TQAsset& asset, const Value& item, const TQLibrary& library) {
  ProjectPtr project = projectNamedBy(item, library);
  if (!project) return;
  asset.project = project;
  if (ProjectPtr group = groupNamedBy(item, *project)) asset.group = group;
}

/// Throws for an item that is no asset.
AssetPtr makeAsset(const Value& item, const LibraryPtr& library) {
  const Dictionary* dictionary = item.ifDictionary();
  AssetPtr asset = dictionary ? TQAsset::assetWithDictionary(*dictionary) : nullptr;
  if (!asset) throw std::invalid_argument("an item has no identifier or name");
  bool isLiveFolder = coerce::boolean(item.find("islivefolder"));
  bool isFCPXLibrary = coerce::boolean(item.find("isfcpxlibrary"));
  if (!isLiveFolder && !isFCPXLibrary) {
    linkProject(*asset, item, library);
  } else if (isLiveFolder != isFCPXLibrary) {
    isLiveFolder ? linkLiveFolder(*asset, item, library) : linkFCPXLibrary(*asset, item, library);
    linkOptionalProject(*asset, item, *library);
  }
  return asset;
}

}  // namespace

std::vector<AssetPtr> TQSearchManager::extractAssetInfo(const Value& response,
                                                        const LibraryPtr& library) const {
  std::vector<AssetPtr> assets;
  const Value* value = response.find("items");
  const Array* items = value ? value->ifArray() : nullptr;
  if (!items || !library) return assets;
  try {
    assets.reserve(items->size());
    for (const Value& item : *items) assets.push_back(makeAsset(item, library));
  } catch (const std::exception& exception) {
    logLine(LogLevel::error, std::string("extractAssetInfo : ") + exception.what());
  }
  return assets;
}

void TQSearchManager::assetResultWithResponse(const Value& response, const LibraryPtr& library,
                                              const TQErrorPtr& error, std::int64_t currentTag,
                                              const SearchCompletion& completion) const {
  TQSearchResponse page = readPage(response, integerOr(response.find("tag"), currentTag));
  if (error) {
    page.pageIndex = page.pageLimit = page.totalCount = 0;
    page.elapsedTime = -1;
    page.error = error;
    TQVornexUtil::sendNotificationWithError(error);
    return completion(std::move(page));
  }
  if (!response.ifDictionary())
    logLine(LogLevel::error, std::string("assetResultWithResponse exception:") + kNotADictionary);
  page.result = extractAssetInfo(response, library);
  completion(std::move(page));
}

TQSearchResponse TQSearchManager::syncSearchResponseWithLibrary(const LibraryPtr& library,
                                                                const Value& response,
                                                                std::int64_t tag) const {
  if (!response.ifDictionary()) {
    logLine(LogLevel::error, std::string("searchSyncResponse exception :") + kNotADictionary);
    return TQSearchResponse::searchResponseWithError(TQVornexUtil::errorWithCode(10017, kNotADictionary),
                                                     tag);
  }
  TQSearchResponse page = readPage(response, tag);
  page.version = coerce::string(response.find("version"));
  page.result = extractAssetInfo(response, library);
  return page;
}

}  // namespace vornex
