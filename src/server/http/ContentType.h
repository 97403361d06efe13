#pragma once

#include <string>

namespace vornex::server {

/// The media type of a file by its extension; "application/octet-stream" for those that are not known.
const char* contentType(const std::string& fileName);

}  // namespace vornex::server
