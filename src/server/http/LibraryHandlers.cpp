#include <charconv>

#include "core/Coercion.h"
#include "core/StorageLayout.h"
#include "server/http/Handlers.h"
#include "server/http/Replies.h"
#include "server/store/PackageTree.h"

namespace vornex::server {
namespace {

bool flag(const Library& library, const char* key) {
  const Value* value = library.record->find(key);
  return value && coerce::boolean(value);
}

Result<void> checkRight(const User& user, const Library& library, Right right) {
  if (user.isOwner()) return {};
  if (!flag(library, "shared")) {
    return serverFailure(StatusCode::libraryNotShared,
                         fmt::format("The library {} is not shared.", library.dbName));
  }
  bool allowed = user.libraries.contains(library.dbName);
  if (right == Right::addAssets) allowed = allowed && flag(library, "uploadable");
  if (right == Right::changeAssets) allowed = allowed && flag(library, "editable");
  if (allowed) return {};
  return serverFailure(StatusCode::noAuthority, fmt::format("The user {} has no right to this in library {}.",
                                                            user.id, library.dbName));
}

/// The record with the hashes that the trees have now.
Dictionary currentRecord(const Library& library) {
  Dictionary record = *library.record;
  record.set("projecthash", library.trees->projects.hash());
  record.set("livefolderhash", library.trees->liveFolderHash.current());
  record.set("fcpxlibraryhash", library.trees->fcpxLibraryHash.current());
  return record;
}

Result<std::int64_t> typeAskedFor(const Call& call) {
  auto field = call.target.query.find("type");
  if (field == call.target.query.end()) return kLibraryTypeLocal;
  const std::string& text = field->second;
  std::int64_t type = 0;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), type);
  if (error != std::errc() || end != text.data() + text.size()) {
    return serverFailure(StatusCode::invalidRequest, "The library type is no number.");
  }
  return type;
}

}  // namespace

bool mayRead(const User& user, const Library& library) {
  return checkRight(user, library, Right::read).has_value();
}

Result<Library> libraryFor(const Context& context, const Call& call, Right right) {
  auto library = context.service.libraries().find(call.dbName);
  if (!library) {
    return serverFailure(StatusCode::databaseNotFound, fmt::format("There is no library {}.", call.dbName));
  }
  if (auto allowed = checkRight(call.user, *library, right); !allowed) return tl::unexpected(allowed.error());
  return std::move(*library);
}

Result<Library> openLibraryFor(const Context& context, const Call& call, Right right) {
  auto library = libraryFor(context, call, right);
  if (!library || library->state == LibraryState::open) return library;
  if (library->state == LibraryState::failed) {
    return serverFailure(StatusCode::databaseFailed,
                         fmt::format("The database of library {} cannot be used.", call.dbName));
  }
  return serverFailure(StatusCode::databaseNotFound,
                       fmt::format("The database of library {} is closed.", call.dbName));
}

Response listLibraries(const Context& context, const Call& call, const Request&) {
  auto type = typeAskedFor(call);
  if (!type) return errorReply(type.error());
  Array items;
  for (const Library& library : context.service.libraries().all()) {
    bool wanted = coerce::integer(library.record->find("type")) == *type;
    if (wanted && mayRead(call.user, library)) items.push_back(currentRecord(library));
  }
  return jsonReply(Dictionary{{"items", std::move(items)}, {"custommeta", Dictionary{}}});
}

Response getLibrary(const Context& context, const Call& call, const Request&) {
  auto library = libraryFor(context, call, Right::read);
  if (!library) return errorReply(library.error());
  return jsonReply(Dictionary{{"items", Array{currentRecord(*library)}}});
}

Response getFCPXLibraries(const Context& context, const Call& call, const Request&) {
  auto library = libraryFor(context, call, Right::read);
  if (!library) return errorReply(library.error());
  const std::string& folder = library->packageFolder;
  auto tree = readPackageTree(folder, layout::fcpxLibraryPlist(folder), kFCPXFileForm);
  return tree ? jsonReply(*tree) : errorReply(tree.error());
}

}  // namespace vornex::server
