#pragma once

#include <vornex/Value.h>

#include <vector>

#include "foundation/Error.h"
#include "server/http/Replies.h"
#include "server/http/Router.h"

namespace vornex::server {

/// The body's "items", which must be objects and no more than a request may have.
[[nodiscard]] Result<Array> batchItems(const Context& context, const Request& request);

/// The same, read one by one: an item that no document can hold, such as a text that is not valid UTF-8, is a
/// failure at its place.
[[nodiscard]] Result<std::vector<Result<Value>>> readableItems(const Context& context,
                                                               const Request& request);

/// One reply item for each item; when every item failed, the first failure.
template <typename T, typename Describe>
Response batchReply(const std::vector<Result<T>>& results, Describe describe) {
  Array items;
  bool anySucceeded = results.empty();
  for (const Result<T>& result : results) {
    anySucceeded = anySucceeded || result;
    items.push_back(result ? describe(*result) : statusDictionary(result.error()));
  }
  if (!anySucceeded) return errorReply(results.front().error());
  return jsonReply(Dictionary{{"items", std::move(items)}});
}

}  // namespace vornex::server
