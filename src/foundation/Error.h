#pragma once

#include <cstdint>
#include <string>
#include <tl/expected.hpp>

namespace vornex {

/// A failure below the SDK: the part of the system that failed ("posix", "json", "sqlite", ...), its code
/// there (errno for "posix"), and a message that says what was attempted on what.
struct Error {
  std::string domain;
  std::int64_t code = 0;
  std::string message;
};

template <typename T>
using Result = tl::expected<T, Error>;

inline tl::unexpected<Error> failure(std::string domain, std::int64_t code, std::string message) {
  return tl::unexpected<Error>(Error{std::move(domain), code, std::move(message)});
}

/// A failure from errno: "what: strerror".
[[nodiscard]] tl::unexpected<Error> posixFailure(int errorNumber, const std::string& what);

}  // namespace vornex
