#pragma once

#include <vornex/Value.h>

#include <cstdint>
#include <memory>
#include <string>

namespace vornex {

class TQError;

/// An error, shared and immutable. Null means success.
using TQErrorPtr = std::shared_ptr<const TQError>;

/// The key of the human-readable message in an error's userInfo.
inline constexpr const char* kLocalizedDescriptionKey = "NSLocalizedDescription";

/// The key of what caused the error, in the words of whoever failed; only where an operation says so.
inline constexpr const char* kLocalizedFailureReasonKey = "NSLocalizedFailureReason";

/// The domain of every error that the SDK raises itself.
inline constexpr const char* kVornexErrorDomain = "VORNEX SDK";

/// A failure: a domain, a code and details. Callers compare domain and code, never messages.
///
/// Thread-safety: immutable; every operation is safe on any thread.
class TQError {
 public:
  /// An absent domain (a server that names none) is kept as absent.
  TQError(OptionalString domain, std::int64_t code, Dictionary userInfo)
      : domain_(std::move(domain)), code_(code), userInfo_(std::move(userInfo)) {}

  const OptionalString& domain() const { return domain_; }
  std::int64_t code() const { return code_; }
  const Dictionary& userInfo() const { return userInfo_; }

  /// The localised description in userInfo, or the empty string.
  std::string message() const;

  /// "domain code: message", with the cause in brackets where there is one; for logs and terminals.
  std::string description() const;

 private:
  OptionalString domain_;
  std::int64_t code_;
  Dictionary userInfo_;
};

}  // namespace vornex
