#pragma once

#include <vornex/TQError.h>

#include <string>

namespace vornex {

/// An error of the SDK's own domain with its localised message, and the reason where there is one.
TQErrorPtr libraryError(std::int64_t code, const std::string& key, const std::string& reason = {});

/// Keeps the right to the folder; null, or error 10011 or 10012. Thread-safe.
TQErrorPtr bookmarkFolder(const std::string& folder);

}  // namespace vornex
