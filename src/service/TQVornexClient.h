#pragma once

#include <vornex/Value.h>

#include <cstdint>
#include <functional>
#include <string>

namespace vornex {

/// What the local service calls. The calls come one after another, in the order the service made them, on
/// worker threads; they may block and may call the service.
class TQVornexClient {
 public:
  virtual ~TQVornexClient() = default;

  /// The service answers: the local password can be asked for.
  virtual void vornexServiceLaunched() = 0;
  virtual void vornexLibraryDidLoad() = 0;
  /// 0 closed, 1 open, 2 failed.
  virtual void vornexLibraryDidChangeState(const std::string& dbName, std::int64_t state) = 0;
  virtual void vornexLibraryUpdatedWithLibraries(const Value& libraries) = 0;
  virtual void vornexLibraryCreatedWithLibraries(const Value& libraries) = 0;
  virtual void vornexLibraryDeletedWithLibraries(const Value& libraries) = 0;
  virtual void vornexManualScanForLiveFolder(const std::string& liveFolderID, const OptionalString& fileName,
                                             const std::string& dbName) = 0;
  /// Calls the handler once, before it returns, with the status by live-folder ID.
  virtual void vornexScanStatusForLiveFolder(const std::string& dbName,
                                             const std::function<void(Dictionary status)>& resultHandler) = 0;
};

}  // namespace vornex
