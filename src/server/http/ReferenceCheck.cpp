#include "server/http/ReferenceCheck.h"

#include <fmt/format.h>

#include "core/Coercion.h"
#include "foundation/Json.h"
#include "server/ServerError.h"

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

/// Whatever could be taken for the type 0 counts.
bool isReference(const Dictionary& asset) {
  const Value* type = asset.find("importtype");
  if (!type || type->isNull()) return false;
  return !type->ifInteger() || *type->ifInteger() == 0;
}

bool changes(const Dictionary& item, const Dictionary& stored, const char* key) {
  const Value* wanted = item.find(key);
  const Value* current = stored.find(key);
  return wanted && (!current || *wanted != *current);
}

/// What the store has under the item's identifier; empty when there is nothing.
Result<Dictionary> storedAsset(AssetStore& store, const Dictionary& item) {
  OptionalString id = coerce::string(item.find("_id"));
  if (!id) return Dictionary();
  auto document = store.document(*id);
  if (!document) return tl::unexpected(document.error());
  if (!*document) return Dictionary();
  auto parsed = parseJson(**document);
  if (!parsed) return tl::unexpected(parsed.error());
  return parsed->ifDictionary() ? *parsed->ifDictionary() : Dictionary();
}

}  // namespace

Result<void> checkMayReference(AssetStore& store, const Dictionary& item) {
  if (!item.find("importtype") && !item.find("masterpath")) return {};
  auto stored = storedAsset(store, item);
  if (!stored) return tl::unexpected(stored.error());
  bool makesReference = isReference(item) && changes(item, *stored, "importtype");
  bool movesReference = isReference(*stored) && changes(item, *stored, "masterpath");
  if (!makesReference && !movesReference) return {};
  return serverFailure(StatusCode::noAuthority, "Only the owner may refer to files outside the library.");
}

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
