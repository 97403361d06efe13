#include <vornex/Log.h>

#include <algorithm>

#include "core/Coercion.h"
#include "foundation/Json.h"
#include "server/http/Batch.h"
#include "server/http/Handlers.h"
#include "server/http/MediaFiles.h"
#include "server/http/ReferenceCheck.h"
#include "server/http/Replies.h"
#include "server/store/DocumentReader.h"

namespace vornex::server {
namespace {

constexpr std::int64_t kDefaultPageSize = 100;

Dictionary identifierItem(const std::string& id) {
  return {{"_id", id}};
}

/// Items that cannot be read, or that this user may not store, keep their error; the others go to the store
/// together.
Result<std::vector<Result<std::string>>> storeItems(
    AssetStore& store, const User& user, const std::vector<Result<Value>>& items,
    Result<std::vector<Result<std::string>>> (AssetStore::*operation)(const Array&)) {
  auto checked = [&](const Value& item) {
    return user.isOwner() ? Result<void>() : checkMayReference(store, *item.ifDictionary());
  };
  std::vector<Result<std::string>> results;
  Array allowed;
  for (const Result<Value>& item : items) {
    Result<void> check = item ? checked(*item) : tl::unexpected(item.error());
    if (check) allowed.push_back(*item);
    results.push_back(check ? Result<std::string>() : tl::unexpected(check.error()));
  }
  auto stored = (store.*operation)(allowed);
  if (!stored) return stored;
  auto next = stored->begin();
  for (Result<std::string>& result : results) {
    if (result) result = std::move(*next++);
  }
  return results;
}

/// An integer of the body, the fallback when it is absent.
Result<std::int64_t> integerField(const Dictionary& body, const char* key, std::int64_t fallback,
                                  std::int64_t least) {
  const Value* value = body.find(key);
  if (!value || value->isNull()) return fallback;
  const std::int64_t* number = value->ifInteger();
  if (number && *number >= least) return *number;
  return serverFailure(StatusCode::invalidRequest,
                       fmt::format("\"{}\" is no number from {} up.", key, least));
}

Result<SearchRequest> searchRequest(const Context& context, const Dictionary& body) {
  auto page = integerField(body, "page", 0, 0);
  if (!page) return tl::unexpected(page.error());
  auto limit = integerField(body, "limit", std::min(kDefaultPageSize, context.limits.pageSize), 1);
  if (!limit) return tl::unexpected(limit.error());
  if (*limit > context.limits.pageSize) {
    return serverFailure(StatusCode::limitExceeded,
                         fmt::format("A page holds at most {} assets.", context.limits.pageSize));
  }
  SearchRequest search{*page, *limit, "", "", true};
  if (const Value* query = body.find("query"); query && !query->isNull()) {
    if (!query->ifString()) return serverFailure(StatusCode::invalidRequest, "\"query\" is no text.");
    search.query = *query->ifString();
  }
  if (const Value* sort = body.find("sort")) {
    search.sortField = coerce::string(sort->find("sortfield")).value_or("");
    const Value* ascending = sort->find("ascending");
    search.ascending = !ascending || coerce::boolean(ascending);
  }
  return search;
}

/// Documents come from the store as JSON and go out as they are.
std::string searchReply(const Library& library, const SearchRequest& search, SearchPage page,
                        std::chrono::duration<double> elapsed, const Value* tag) {
  Dictionary rest{{"page", search.page},
                  {"limit", search.limit},
                  {"total", page.total},
                  {"elapsed", elapsed.count()},
                  {"projecthash", library.trees->projects.hash()},
                  {"livefolderhash", library.trees->liveFolderHash.current()},
                  {"fcpxlibraryhash", library.trees->fcpxLibraryHash.current()},
                  {"version", serverVersion()}};
  if (tag) rest.set("tag", *tag);
  std::string json = "{\"items\":[";
  std::size_t size = 1024;
  for (const std::string& document : page.documents) size += document.size() + 1;
  json.reserve(size);
  for (std::string& document : page.documents) {
    if (json.back() != '[') json += ',';
    json += document;
    std::string().swap(document);
  }
  json += "],";
  json += std::string_view(writeJson(rest)).substr(1);
  return json;
}

/// Removes a file of a removed asset, unless another asset still names it; gives the path if it is still
/// there.
void removeFile(const Library& library, MediaKind kind, const Value* path, Array& remaining) {
  OptionalString recordPath = coerce::string(path);
  if (!recordPath || recordPath->empty()) return;
  auto needed = kind == MediaKind::master ? isAnyMaster(*library.store, *recordPath)
                                          : isAnyPicture(*library.store, *recordPath);
  auto removed = needed && !*needed ? removeMedia(library.packageFolder, kind, *recordPath) : Result<void>();
  if (!needed) removed = tl::unexpected(needed.error());
  if (!removed)
    logLine(LogLevel::warning, fmt::format("Library {}: {}", library.dbName, removed.error().message));
  if (!removed || *needed) remaining.push_back(*recordPath);
}

/// {"_id"}, with "remaining" when files of the asset could not be removed.
Dictionary removeFiles(const Library& library, const Dictionary& asset, bool withMaster) {
  Array remaining;
  removeFile(library, MediaKind::thumbnail, asset.find("thumbnailpath"), remaining);
  removeFile(library, MediaKind::preview, asset.find("previewpath"), remaining);
  if (withMaster) removeFile(library, MediaKind::master, asset.find("masterpath"), remaining);
  Dictionary item = identifierItem(coerce::string(asset.find("_id")).value_or(""));
  if (!remaining.empty()) item.set("remaining", std::move(remaining));
  return item;
}

/// The query field "deleteoriginal", YES or NO; NO when it is absent.
Result<bool> deletesOriginal(const Call& call) {
  auto field = call.target.query.find("deleteoriginal");
  if (field == call.target.query.end() || field->second == "NO") return false;
  if (field->second == "YES") return true;
  return serverFailure(StatusCode::invalidRequest, "\"deleteoriginal\" is neither YES nor NO.");
}

}  // namespace

Response createAssets(const Context& context, const Call& call, const Request& request) {
  auto library = openLibraryFor(context, call, Right::addAssets);
  if (!library) return errorReply(library.error());
  // The owner's documents go to the store as they came, if the body is what it should be.
  auto documents = call.user.isOwner() ? objectsInArray(request.body, "items") : std::nullopt;
  if (documents && documents->size() <= context.limits.batchItems) {
    auto results = library->store->create(*documents);
    return results ? batchReply(*results, identifierItem) : errorReply(results.error());
  }
  auto items = readableItems(context, request);
  if (!items) return errorReply(items.error());
  auto results = storeItems(*library->store, call.user, *items, &AssetStore::create);
  return results ? batchReply(*results, identifierItem) : errorReply(results.error());
}

Response updateAssets(const Context& context, const Call& call, const Request& request) {
  auto library = openLibraryFor(context, call, Right::changeAssets);
  if (!library) return errorReply(library.error());
  auto items = readableItems(context, request);
  if (!items) return errorReply(items.error());
  auto results = storeItems(*library->store, call.user, *items, &AssetStore::update);
  return results ? batchReply(*results, identifierItem) : errorReply(results.error());
}

Response deleteAssets(const Context& context, const Call& call, const Request& request) {
  auto library = openLibraryFor(context, call, Right::changeAssets);
  if (!library) return errorReply(library.error());
  auto withMaster = deletesOriginal(call);
  if (!withMaster) return errorReply(withMaster.error());
  auto items = batchItems(context, request);
  if (!items) return errorReply(items.error());
  std::vector<std::string> ids;
  for (const Value& item : *items) {
    OptionalString id = coerce::string(item.find("_id"));
    if (!id) return errorReply(StatusCode::invalidRequest, "An item has no \"_id\".");
    ids.push_back(*id);
  }
  auto removed = library->store->remove(ids);
  if (!removed) return errorReply(removed.error());
  return batchReply(*removed,
                    [&](const Dictionary& asset) { return removeFiles(*library, asset, *withMaster); });
}

Response searchAssets(const Context& context, const Call& call, const Request& request) {
  auto started = std::chrono::steady_clock::now();
  auto library = openLibraryFor(context, call, Right::read);
  if (!library) return errorReply(library.error());
  auto body = bodyDictionary(request);
  if (!body) return errorReply(body.error());
  auto search = searchRequest(context, *body);
  if (!search) return errorReply(search.error());
  auto page = library->store->search(*search);
  if (!page) return errorReply(page.error());
  auto elapsed = std::chrono::steady_clock::now() - started;
  return jsonTextReply(searchReply(*library, *search, std::move(*page), elapsed, body->find("tag")));
}

Response getAsset(const Context& context, const Call& call, const Request&) {
  auto library = openLibraryFor(context, call, Right::read);
  if (!library) return errorReply(library.error());
  auto document = library->store->document(call.id);
  if (!document) return errorReply(document.error());
  if (!*document) return errorReply(StatusCode::itemNotFound, fmt::format("There is no asset {}.", call.id));
  return jsonTextReply("{\"items\":[" + **document + "]}");
}

}  // namespace vornex::server
