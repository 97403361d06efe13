#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace vornex::server {

/// What the web server bears. Whatever goes beyond is answered with a clear error.
struct Limits {
  std::size_t headerBytes = 32 * 1024;
  std::uint64_t bodyBytes = 64 * 1024 * 1024;
  /// Items of one create, update or delete request.
  std::size_t batchItems = 10'000;
  /// Assets of one search page.
  std::int64_t pageSize = 10'000;
  std::size_t connections = 512;
  /// Requests of one kind (searches, changes, files, everything else) that are worked on or wait for a
  /// worker.
  std::size_t requestsInFlight = 128;
  /// Threads that work on searches; the other kinds have half as many each.
  std::size_t workers = 8;

  /// How long an open connection may wait for its next request.
  std::chrono::milliseconds idle{60'000};
  /// From the first byte of a request to the end of its header.
  std::chrono::milliseconds header{15'000};
  std::chrono::milliseconds body{60'000};
  /// From the end of a request to its answer.
  std::chrono::milliseconds handling{25'000};
  /// How long a client may take to accept the next piece of an answer.
  std::chrono::milliseconds stall{30'000};
  /// How long a stop waits for running requests.
  std::chrono::milliseconds drain{10'000};
};

}  // namespace vornex::server
