#pragma once

#include <vornex/TQVornexUtil.h>

#include <future>
#include <memory>
#include <utility>

#include "core/StatusCode.h"
#include "service/TQVornexService.h"

namespace vornex {

/// Whether the service was not there, or went away before it answered.
inline bool isServiceLost(const TQErrorPtr& error) {
  return error && error->code() == static_cast<std::int64_t>(StatusCode::cannotConnectToHost);
}

/// Calls an operation of the service and blocks until it has answered; null for success, code 31 without a
/// service. For workers only: a thread that brings answers would wait for itself.
template <typename... Parameters, typename... Arguments>
TQErrorPtr askService(void (ServiceProxy::*operation)(Parameters...), Arguments&&... arguments) {
  auto service = TQVornexService();
  if (!service)
    return TQVornexUtil::errorWithCode(static_cast<std::int64_t>(StatusCode::cannotConnectToHost),
                                       "the service does not run", kServerErrorDomain);
  auto answer = std::make_shared<std::promise<TQErrorPtr>>();
  auto answered = answer->get_future();
  (service.get()->*operation)(std::forward<Arguments>(arguments)...,
                              [answer](TQErrorPtr error) { answer->set_value(std::move(error)); });
  TQErrorPtr error = answered.get();
  return isFailure(error) ? error : nullptr;
}

}  // namespace vornex
