#include <fmt/format.h>
#include <vornex/TQError.h>
#include <vornex/TQVornexUtil.h>

#include "core/Coercion.h"
#include "core/SdkError.h"

namespace vornex {

std::string TQError::message() const {
  return coerce::string(userInfo_.find(kLocalizedDescriptionKey)).value_or("");
}

std::string TQError::description() const {
  std::string text = fmt::format("{} {}: {}", domain_.value_or("(no domain)"), code_, message());
  OptionalString reason = coerce::string(userInfo_.find(kLocalizedFailureReasonKey));
  return reason ? text + " (" + *reason + ")" : text;
}

TQErrorPtr makeSdkError(const Error& error) {
  return std::make_shared<const TQError>(error.domain, error.code,
                                         Dictionary{{kLocalizedDescriptionKey, error.message}});
}

TQErrorPtr localizedError(std::int64_t code, const std::string& key) {
  return TQVornexUtil::errorWithCode(code, LocalizedString(key));
}

TQErrorPtr withReason(const TQErrorPtr& error, const std::string& reason) {
  if (reason.empty()) return error;
  Dictionary userInfo = error->userInfo();
  userInfo.set(kLocalizedFailureReasonKey, reason);
  return std::make_shared<const TQError>(error->domain(), error->code(), std::move(userInfo));
}

}  // namespace vornex
