#include <vornex/TQLibraryManager.h>
#include <vornex/TQSearchManager.h>

#include <future>

#include "library/ManagerState.h"

namespace vornex {

TQWorkflowEngineInterface& TQLibraryManager::workflowEngineInterface() {
  return state_->workflowEngineInterface;
}

std::string TQLibraryManager::actionStringWithJobType(std::int64_t jobType) {
  switch (jobType) {
    case 0:
      return "copy";
    case 1:
      return "upload";
    case 3:
      return "lowres transcoding";
    case 4:
      return "highres transcoding";
    default:
      return "unknown";
  }
}

WorkflowAssetItemPtr TQLibraryManager::currentWorkflowItemWithType(std::int64_t jobType) {
  if (jobType == -1) return nullptr;
  auto answer = std::make_shared<std::promise<std::optional<Dictionary>>>();
  auto answered = answer->get_future();
  workflowEngineInterface().searchWorkflowWithJobType(
      jobType, [answer](std::optional<Dictionary> job) { answer->set_value(std::move(job)); });
  const Dictionary job = answered.get().value_or(Dictionary());
  if (job.empty()) {
    auto placeholder = std::make_shared<TQWorkflowAssetItem>();
    placeholder->action = actionStringWithJobType(jobType);
    return placeholder;
  }
  WorkflowAssetItemPtr item = TQWorkflowAssetItem::workflowAssetItemWithDictionary(job);
  if (!item) return nullptr;
  item->jobType = jobType;
  const LibraryPtr library = libraryForDBName(item->dbName);
  if (library && item->assetID)
    item->asset = TQSearchManager::sharedManager().searchAssetWithLibrary(library, item->assetID, nullptr);
  return item;
}

}  // namespace vornex
