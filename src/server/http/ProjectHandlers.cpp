#include "core/Coercion.h"
#include "server/http/Handlers.h"
#include "server/http/Replies.h"

namespace vornex::server {
namespace {

constexpr std::int64_t kTypeProject = 0;
constexpr std::int64_t kTypeGroup = 1;

/// One change of a library's tree: the library, and the only one of the body's "items".
struct TreeRequest {
  Library library;
  Value item;

  Result<std::string> text(const char* key) const {
    if (OptionalString text = coerce::string(item.find(key))) return *text;
    return serverFailure(StatusCode::invalidRequest, fmt::format("\"{}\" is no text.", key));
  }
  Result<std::int64_t> integer(const char* key) const {
    const Value* value = item.find(key);
    if (value && value->ifInteger()) return *value->ifInteger();
    return serverFailure(StatusCode::invalidRequest, fmt::format("\"{}\" is no integer.", key));
  }
  /// What the client believes the tree's hash to be.
  Result<ProjectTree::Expected> expected() const {
    if (!item.find("hash")) return ProjectTree::Expected();
    return text("hash").map([](std::string hash) { return ProjectTree::Expected(std::move(hash)); });
  }
  ProjectTree& tree() const { return library.trees->projects; }
};

Result<TreeRequest> treeRequest(const Context& context, const Call& call, const Request& request) {
  auto library = libraryFor(context, call, Right::changeAssets);
  if (!library) return tl::unexpected(library.error());
  auto body = bodyDictionary(request);
  if (!body) return tl::unexpected(body.error());
  Array items = coerce::array(body->find("items"));
  if (items.size() != 1 || !items.front().ifDictionary())
    return serverFailure(StatusCode::invalidRequest, "The body's \"items\" must hold one object.");
  return TreeRequest{std::move(*library), std::move(items.front())};
}

Result<ProjectTree::Change> create(const TreeRequest& request) {
  auto name = request.text("name");
  if (!name) return tl::unexpected(name.error());
  auto parentID = request.text("parentid");
  if (!parentID) return tl::unexpected(parentID.error());
  auto type = request.integer("type");
  if (!type) return tl::unexpected(type.error());
  if (*type != (parentID->empty() ? kTypeProject : kTypeGroup))
    return serverFailure(StatusCode::invalidRequest, "A project has no parent, and a group has one.");
  return request.expected().and_then([&](const ProjectTree::Expected& expected) {
    return request.tree().create(*name, *parentID, request.library.dbName, expected);
  });
}

Result<ProjectTree::Change> update(const TreeRequest& request) {
  auto id = request.text("id");
  if (!id) return tl::unexpected(id.error());
  auto name = request.text("name");
  if (!name) return tl::unexpected(name.error());
  return request.expected().and_then(
      [&](const ProjectTree::Expected& expected) { return request.tree().rename(*id, *name, expected); });
}

Result<ProjectTree::Change> move(const TreeRequest& request) {
  auto id = request.text("id");
  if (!id) return tl::unexpected(id.error());
  auto parentID = request.text("parentid");
  if (!parentID) return tl::unexpected(parentID.error());
  auto toIndex = request.integer("toindex");
  if (!toIndex) return tl::unexpected(toIndex.error());
  return request.expected().and_then([&](const ProjectTree::Expected& expected) {
    return request.tree().move(*id, *parentID, *toIndex, expected);
  });
}

Response answerChange(const Context& context, const Call& call, const Request& request,
                      Result<ProjectTree::Change> (*change)(const TreeRequest&)) {
  auto changed = treeRequest(context, call, request).and_then(change);
  if (!changed) return errorReply(changed.error());
  return jsonReply(Dictionary{{"id", changed->id}, {"hash", changed->hash}});
}

}  // namespace

Response getProjects(const Context& context, const Call& call, const Request&) {
  auto library = libraryFor(context, call, Right::read);
  if (!library) return errorReply(library.error());
  auto json = library->trees->projects.json();
  return json ? jsonTextReply(**json) : errorReply(json.error());
}

Response createProject(const Context& context, const Call& call, const Request& request) {
  return answerChange(context, call, request, create);
}

Response updateProject(const Context& context, const Call& call, const Request& request) {
  return answerChange(context, call, request, update);
}

Response moveProject(const Context& context, const Call& call, const Request& request) {
  return answerChange(context, call, request, move);
}

}  // namespace vornex::server
