#include "server/http/Batch.h"

#include <fmt/format.h>

#include "server/http/Handlers.h"

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

}  // namespace vornex::server
