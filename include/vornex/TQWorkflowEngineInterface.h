#pragma once

#include <vornex/AtomicPtr.h>
#include <vornex/Types.h>

#include <functional>
#include <vector>

namespace vornex {

/// The workflow engine as this process sees it: the jobs of the machine, which lie in "workflow.plist" of the
/// preference folder under "jobs", each a dictionary with its type under "jobtype". There is no program yet
/// that works on them: jobs stay as they are until they are cancelled, and new assets go to the engine that
/// the host has set, if any.
///
/// Thread-safety: safe on any thread, and beside other processes.
class TQWorkflowEngineInterface {
 public:
  /// Tells the engine where the local service serves, and the MD5 text of the local account's password, with
  /// which it logs in there. Called again whenever either changes.
  void startWorkFlowWithPort(std::int64_t port, OptionalString localPassword);
  /// The connection to the local service; null before startWorkFlowWithPort.
  ConnectionPtr connection() const { return connection_; }

  /// Wakes the bookmarked folders and their volumes, which jobs read and write.
  void startAllBookmarks();

  /// Calls back, on a worker thread, with the first job of the type; absent when there is none or the jobs
  /// cannot be read, which is logged.
  void searchWorkflowWithJobType(std::int64_t jobType,
                                 std::function<void(std::optional<Dictionary> job)> completion);

  /// Takes assets, as dictionaries, that a project of a library has got. Called on worker threads.
  using AssetEngine = std::function<void(std::vector<Dictionary> assets, OptionalString packageFolder,
                                         OptionalString projectID, OptionalString dbName)>;
  /// Empty for none. A call that is under way may still end after this returns.
  void setAssetEngine(AssetEngine engine);
  /// Hands assets to the engine; without one nothing happens.
  void addJobWithAssets(std::vector<Dictionary> assets, OptionalString packageFolder,
                        OptionalString projectID, OptionalString dbName);

  /// Removes the jobs of the library. Blocks. What cannot be written is logged.
  void cancelWorkflowWithDBName(const std::string& dbName);

 private:
  AtomicPtr<TQConnection> connection_;
  AtomicPtr<const AssetEngine> assetEngine_;
};

}  // namespace vornex
