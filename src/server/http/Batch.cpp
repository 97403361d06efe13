#include "server/http/Batch.h"

#include <fmt/format.h>

#include "foundation/Json.h"
#include "server/http/Handlers.h"
#include "server/store/DocumentReader.h"

namespace vornex::server {

Result<Array> batchItems(const Context& context, const Request& request) {
  auto body = bodyDictionary(request);
  if (!body) return tl::unexpected(body.error());
  Value* items = body->find("items");
  Array* array = items ? items->ifArray() : nullptr;
  if (!array) return serverFailure(StatusCode::invalidRequest, "The body has no \"items\".");
  if (array->size() > context.limits.batchItems) {
    return serverFailure(StatusCode::limitExceeded,
                         fmt::format("A request takes at most {} items.", context.limits.batchItems));
  }
  for (const Value& item : *array) {
    if (!item.ifDictionary()) return serverFailure(StatusCode::invalidRequest, "An item is no JSON object.");
  }
  return std::move(*array);
}

Result<std::vector<Result<Value>>> readableItems(const Context& context, const Request& request) {
  auto texts = objectsInArray(request.body, "items");
  if (!texts || texts->size() > context.limits.batchItems) {
    return batchItems(context, request).map([](const Array& items) {
      return std::vector<Result<Value>>(items.begin(), items.end());
    });
  }
  std::vector<Result<Value>> items;
  for (std::string_view text : *texts) {
    items.push_back(parseJson(text).map_error(
        [](const Error& error) { return serverFailure(StatusCode::invalidRequest, error.message).value(); }));
  }
  return items;
}

}  // namespace vornex::server
