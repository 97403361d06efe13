#pragma once

#include <vornex/Types.h>

namespace vornex {

/// One job of the workflow engine, as an asset sees it. Absent strings are written as "" and read back so.
///
/// Thread-safety: none of its own.
class TQWorkflowItem {
 public:
  virtual ~TQWorkflowItem() = default;

  static std::shared_ptr<TQWorkflowItem> workflowItemWithID(OptionalString workflowID, OptionalString name,
                                                            OptionalString instanceID, OptionalString jobID,
                                                            OptionalString action, std::int64_t jobStatus,
                                                            double progress);
  /// Null, and logged, without a "jobid". A missing "status" or "progress" reads as -1.
  static std::shared_ptr<TQWorkflowItem> workflowItemWithDictionary(const Dictionary& dictionary);
  Dictionary workflowItemDictionary() const;

  OptionalString workflowID;
  OptionalString workflowName;
  OptionalString instanceID;
  OptionalString jobID;
  OptionalString action;
  /// 2 marks the preview job that is preferred among several.
  std::int64_t jobStatus = 0;
  double progress = 0;
  OptionalString errorMessage;
  OptionalString inputPath;
  OptionalString outputPath;
};

/// One of all the jobs of this machine.
class TQWorkflowAssetItem : public TQWorkflowItem {
 public:
  static std::shared_ptr<TQWorkflowAssetItem> workflowItemWithID(
      OptionalString workflowID, OptionalString name, OptionalString instanceID, OptionalString jobID,
      OptionalString action, double progress, std::int64_t status, OptionalString dbName,
      OptionalString assetID, OptionalString ouptput, std::optional<Dictionary> data);
  /// As the base reads, but the status, which is always 1.
  static std::shared_ptr<TQWorkflowAssetItem> workflowAssetItemWithDictionary(const Dictionary& dictionary);

  /// What the job's data says to a person: where an upload goes, or the format of a transcoding; absent for
  /// other jobs.
  OptionalString infoDescription() const;

  /// 0 copy, 1 upload, 3 low-resolution and 4 high-resolution transcoding; set by whoever asked for it.
  std::int64_t jobType = 0;
  OptionalString dbName;
  OptionalString assetID;
  /// Found by whoever asked for the job; may be null.
  AssetPtr asset;
  OptionalString output;
  std::optional<Dictionary> infoDictionary;
  /// Jobs that wait.
  std::int64_t queueCount = 0;
};

using WorkflowItemPtr = std::shared_ptr<TQWorkflowItem>;
using WorkflowAssetItemPtr = std::shared_ptr<TQWorkflowAssetItem>;

}  // namespace vornex
