#include <fmt/format.h>
#include <vornex/TQError.h>

#include "core/Coercion.h"
#include "core/SdkError.h"

namespace vornex {

std::string TQError::message() const {
  return coerce::string(userInfo_.find(kLocalizedDescriptionKey)).value_or("");
}

std::string TQError::description() const {
  return fmt::format("{} {}: {}", domain_.value_or("(no domain)"), code_, message());
}

TQErrorPtr makeSdkError(const Error& error) {
  return std::make_shared<const TQError>(error.domain, error.code,
                                         Dictionary{{kLocalizedDescriptionKey, error.message}});
}

}  // namespace vornex
