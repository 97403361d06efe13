#include <vornex/Log.h>

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

}  // namespace

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
