#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vornex::server {

struct Credentials {
  std::string userID;
  std::string password;
};

/// Reads the Authorization header's "Basic" form. The password ends the text after its last colon, so that
/// user IDs may hold colons; absent when the header has another form.
std::optional<Credentials> parseBasicCredentials(std::string_view header);

}  // namespace vornex::server
