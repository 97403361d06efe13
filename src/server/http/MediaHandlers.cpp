#include <fmt/format.h>
#include <unistd.h>
#include <vornex/Log.h>

#include "core/Coercion.h"
#include "foundation/Json.h"
#include "server/http/Batch.h"
#include "server/http/ByteRange.h"
#include "server/http/ContentType.h"
#include "server/http/Handlers.h"
#include "server/http/MediaFiles.h"
#include "server/http/ReferenceCheck.h"
#include "server/http/Replies.h"

namespace vornex::server {
namespace {

/// File names may hold a question mark that the client did not encode.
Result<MediaEntry> findRequested(const Library& library, MediaKind kind, const Call& call) {
  auto entry = findMedia(library.packageFolder, kind, call.path);
  if (entry || call.target.rawQuery.empty()) return entry;
  auto rest = parsePath(call.target.rawQuery);
  if (!rest || rest->empty()) return entry;
  std::vector<std::string> path = call.path;
  path.back() += rest->front();
  path.insert(path.end(), rest->begin() + 1, rest->end());
  return findMedia(library.packageFolder, kind, path);
}

/// A link in the master folder stands for a file elsewhere, which only a referencing asset may open.
Result<OpenMedia> openRequested(const Library& library, MediaKind kind, const MediaEntry& entry) {
  if (!entry.isLink) return openMedia(entry, false);
  if (kind != MediaKind::master || !library.store)
    return serverFailure(StatusCode::itemNotFound, "There is no such file.");
  auto referenced = isReferencedMaster(*library.store, entry.recordPath);
  if (!referenced) return tl::unexpected(referenced.error());
  return openMedia(entry, *referenced);
}

Response fileReply(const Request& request, OpenMedia media, const std::string& name) {
  Response response;
  response.headers = {{"ETag", media.etag},
                      {"Last-Modified", httpDate(media.modified)},
                      {"Cache-Control", "private, no-cache"},
                      {"Accept-Ranges", "bytes"}};
  if (!request.ifNoneMatch.empty() && namesETag(request.ifNoneMatch, media.etag)) {
    response.status = 304;
    return response;
  }
  bool rangeCounts = request.ifRange.empty() || request.ifRange == media.etag;
  ByteRange range = parseByteRange(rangeCounts ? request.range : "", media.size);
  if (range.kind == ByteRange::Kind::unsatisfiable) {
    Response refusal = errorReply(416, StatusCode::invalidRequest, "The file has no such range.");
    refusal.headers.emplace_back("Content-Range", fmt::format("bytes */{}", media.size));
    return refusal;
  }
  if (range.kind == ByteRange::Kind::part) {
    response.status = 206;
    response.headers.emplace_back("Content-Range", fmt::format("bytes {}-{}/{}", range.offset,
                                                               range.offset + range.length - 1, media.size));
  }
  response.headers.emplace_back("Content-Type", contentType(name));
  response.file = FileBody{std::move(media.file), range.offset, range.length};
  return response;
}

Response getMedia(const Context& context, const Call& call, const Request& request, MediaKind kind) {
  auto library = libraryFor(context, call, Right::read);
  if (!library) return errorReply(library.error());
  auto entry = findRequested(*library, kind, call);
  if (!entry) return errorReply(entry.error());
  auto media = openRequested(*library, kind, *entry);
  if (!media) return errorReply(media.error());
  return fileReply(request, std::move(*media), entry->name);
}

/// Where clients find the files of a kind: the key of the asset that names the file, and the word of the URL.
struct Place {
  MediaKind kind;
  const char* key;
  const char* word;
};

Result<Dictionary> storedAsset(AssetStore& store, const std::string& id) {
  auto document = store.document(id);
  if (!document) return tl::unexpected(document.error());
  if (!*document) return serverFailure(StatusCode::itemNotFound, fmt::format("There is no asset {}.", id));
  auto asset = parseJson(**document);
  if (!asset) return tl::unexpected(asset.error());
  return asset->ifDictionary() ? *asset->ifDictionary() : Dictionary();
}

/// {"_id", "url"} of a file that can be had; the URL as text, without a scheme. What the asset says counts,
/// not what the client believes.
Result<Dictionary> locate(const Library& library, const Place& place, const std::string& server,
                          const Value& item) {
  OptionalString id = coerce::string(item.find("_id"));
  if (!id) return serverFailure(StatusCode::invalidRequest, "An item has no \"_id\".");
  auto asset = storedAsset(*library.store, *id);
  if (!asset) return tl::unexpected(asset.error());
  OptionalString path = coerce::string(asset->find(place.key));
  if (!path || path->empty()) return serverFailure(StatusCode::itemNotFound, "The asset has no such file.");
  auto entry = findRecorded(library.packageFolder, place.kind, *path);
  if (!entry) return tl::unexpected(entry.error());
  auto media = openRequested(library, place.kind, *entry);
  if (!media) return tl::unexpected(media.error());
  std::string url =
      fmt::format("{}/vornex/libraries/{}/{}/{}", server, library.dbName, place.word, entry->mediaPath);
  return Dictionary{{"_id", *id}, {"url", std::move(url)}};
}

Response locateEach(const Context& context, const Call& call, const Request& request, const Place& place) {
  auto library = openLibraryFor(context, call, Right::read);
  if (!library) return errorReply(library.error());
  auto items = batchItems(context, request);
  if (!items) return errorReply(items.error());
  std::vector<Result<Dictionary>> located;
  for (const Value& item : *items) located.push_back(locate(*library, place, request.server, item));
  return batchReply(located, [](const Dictionary& item) { return item; });
}

}  // namespace

Response locateMasters(const Context& context, const Call& call, const Request& request) {
  return locateEach(context, call, request, {MediaKind::master, "masterpath", "master"});
}

Response locatePreviews(const Context& context, const Call& call, const Request& request) {
  return locateEach(context, call, request, {MediaKind::preview, "previewpath", "preview"});
}

/// Whether the files can be referred to from here; who may not refer to them is told nothing of them.
Response checkAccess(const Context& context, const Call& call, const Request& request) {
  auto library = libraryFor(context, call, Right::addAssets);
  if (!library) return errorReply(library.error());
  if (!call.user.isOwner())
    return errorReply(StatusCode::noAuthority, "Only the owner may refer to files outside the library.");
  auto items = batchItems(context, request);
  if (!items) return errorReply(items.error());
  Array failures;
  for (const Value& item : *items) {
    OptionalString path = coerce::string(item.find("path"));
    if (!path) return errorReply(StatusCode::invalidRequest, "An item has no \"path\".");
    bool isReadable = path->starts_with('/') && ::access(path->c_str(), R_OK) == 0;
    if (!isReadable) failures.push_back(Dictionary{{"path", *path}});
  }
  if (!failures.empty() && failures.size() == items->size())
    return errorReply(StatusCode::referenceUnreachable, "The server can read none of the files.");
  return jsonReply(Dictionary{{"items", std::move(*items)}, {"failures", std::move(failures)}});
}

Response getMaster(const Context& context, const Call& call, const Request& request) {
  return getMedia(context, call, request, MediaKind::master);
}

Response getThumbnail(const Context& context, const Call& call, const Request& request) {
  return getMedia(context, call, request, MediaKind::thumbnail);
}

Response getPreview(const Context& context, const Call& call, const Request& request) {
  return getMedia(context, call, request, MediaKind::preview);
}

}  // namespace vornex::server
