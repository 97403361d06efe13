#pragma once

#include <vornex/TQVornexUtil.h>

#include <cerrno>
#include <system_error>

#include "foundation/Error.h"

namespace vornex {

/// The error as the host sees it: domain, code and message are kept.
inline TQErrorPtr hostError(const Error& error) {
  return TQVornexUtil::errorWithCode(error.code, error.message, error.domain);
}

/// A failure of the file system: domain "posix", and a message that names what was attempted.
inline TQErrorPtr posixError(int errorNumber, const std::string& what) {
  return hostError(posixFailure(errorNumber, what).value());
}

/// An error of the SDK's own domain with its localised message.
inline TQErrorPtr localizedError(std::int64_t code, const std::string& key) {
  return TQVornexUtil::errorWithCode(code, LocalizedString(key));
}

}  // namespace vornex
