#include <fmt/format.h>
#include <vornex/TQSession.h>

#include "foundation/DateText.h"

namespace vornex {

std::string TQSession::description() const {
  auto text = [](const OptionalString& value) { return value.value_or("(null)"); };
  return fmt::format("session userID:{}, userName:{}, deviceUUID:{}, host:{}, clientType:{}, loginDate:{}",
                     text(userID), text(userName), text(deviceUUID), text(host), text(clientType),
                     loginDate ? dateText(*loginDate) : "(null)");
}

}  // namespace vornex
