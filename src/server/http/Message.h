#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "foundation/FileDescriptor.h"

namespace vornex::server {

/// A request as the protocol layer needs it, free of sockets. Absent headers are empty.
struct Request {
  std::string method;
  /// Path and query as sent.
  std::string target;
  std::string authorization;
  /// X-Vornex-Device and X-Vornex-Client.
  std::string device;
  std::string clientType;
  std::string range;
  std::string ifRange;
  std::string ifNoneMatch;
  std::string contentType;
  /// What browsers say of the page that sends the request.
  std::string origin;
  std::string fetchSite;
  /// The address the request comes from, and "address:port" it came to.
  std::string host;
  std::string server;
  /// Whether a body comes; it may still be on its way.
  bool hasBody = false;
  std::string body;
};

/// A stretch of a file as the body of a response.
struct FileBody {
  FileDescriptor file;
  std::uint64_t offset = 0;
  std::uint64_t length = 0;
};

struct Response {
  unsigned status = 200;
  std::vector<std::pair<std::string, std::string>> headers;
  std::string body;
  /// Replaces the body.
  std::optional<FileBody> file;
};

}  // namespace vornex::server
