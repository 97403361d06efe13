#pragma once

#include <vornex/TQError.h>

#include "service/TQVornexClient.h"

namespace vornex {

/// Turns what the service reports into notifications on the main queue and into the state of the SDK.
///
/// Thread-safety: safe on any thread.
class ServiceCallbacks : public TQVornexClient {
 public:
  void vornexServiceLaunched() override;
  void vornexLibraryDidLoad() override {}
  void vornexLibraryDidChangeState(const std::string& dbName, std::int64_t state) override;
  void vornexLibraryUpdatedWithLibraries(const Value& libraries) override;
  void vornexLibraryCreatedWithLibraries(const Value& libraries) override;
  void vornexLibraryDeletedWithLibraries(const Value& libraries) override;
  void vornexManualScanForLiveFolder(const std::string& liveFolderID, const OptionalString& fileName,
                                     const std::string& dbName) override;
  void vornexScanStatusForLiveFolder(const std::string& dbName,
                                     const std::function<void(Dictionary status)>& resultHandler) override;
};

/// Asks the service for the local password, gives it to the users and libraries that need it, and starts the
/// workflows, unless that has been done on this connection. Calls `done` when that has happened, or cannot
/// happen (which is logged), on a worker thread or this one. A launch that the service reports always asks.
void fetchLocalPassword(const std::function<void()>& done);

}  // namespace vornex
