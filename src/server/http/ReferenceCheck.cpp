#include "server/http/ReferenceCheck.h"

#include <fmt/format.h>

namespace vornex::server {
namespace {

/// As a constant of a query: a backslash and a double quote take a backslash.
std::string quoted(const std::string& text) {
  std::string result = "\"";
  for (char c : text) {
    if (c == '\\' || c == '"') result += '\\';
    result += c;
  }
  return result + '"';
}

Result<bool> anyMatches(AssetStore& store, std::string query) {
  SearchRequest request;
  request.limit = 1;
  request.query = std::move(query);
  auto page = store.search(request);
  if (!page) return tl::unexpected(page.error());
  return page->total > 0;
}

}  // namespace

Result<bool> isReferencedMaster(AssetStore& store, const std::string& recordPath) {
  return anyMatches(store, fmt::format("masterpath == {} AND importtype == 0", quoted(recordPath)));
}

Result<bool> isAnyMaster(AssetStore& store, const std::string& recordPath) {
  return anyMatches(store, fmt::format("masterpath == {} OR masterpath BEGINSWITH {}", quoted(recordPath),
                                       quoted(recordPath + "/")));
}

Result<bool> isAnyPicture(AssetStore& store, const std::string& recordPath) {
  return anyMatches(store, fmt::format("thumbnailpath == {0} OR previewpath == {0}", quoted(recordPath)));
}

}  // namespace vornex::server
