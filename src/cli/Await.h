#pragma once

#include <vornex/TQError.h>

#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <tuple>

#include "core/StatusCode.h"
#include "foundation/Error.h"

namespace vornex::cli {

/// The error of the SDK as one of this program; "unknown error" for a failure that brought none.
inline Error fromSDK(const TQErrorPtr& error) {
  if (!error) return {"vornex", 0, "unknown error"};
  std::string message = error->message();
  if (message.empty()) return {error->domain().value_or(""), error->code(), error->description()};
  const Value* reason = error->userInfo().find(kLocalizedFailureReasonKey);
  if (reason && reason->ifString()) message += " (" + *reason->ifString() + ")";
  return {error->domain().value_or(""), error->code(), std::move(message)};
}

/// Whether the service went away, or was never there.
inline bool isServiceLost(const Error& error) {
  return error.code == static_cast<std::int64_t>(StatusCode::cannotConnectToHost);
}

/// Starts an asynchronous operation of the SDK and blocks until it calls back; gives the callback's
/// arguments, or absent when it was not called back in time. Never to be called on the thread that the
/// callback comes on.
template <typename... Arguments, typename Start>
std::optional<std::tuple<Arguments...>> await(std::chrono::milliseconds patience, Start start) {
  // The callback may come after the patience has ended: the promise belongs to it as well.
  auto promise = std::make_shared<std::promise<std::tuple<Arguments...>>>();
  auto answer = promise->get_future();
  start([promise](Arguments... arguments) { promise->set_value({std::move(arguments)...}); });
  if (answer.wait_for(patience) != std::future_status::ready) return std::nullopt;
  return answer.get();
}

}  // namespace vornex::cli
