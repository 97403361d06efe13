#include <fmt/format.h>
#include <vornex/Log.h>
#include <vornex/TQWorkflowItem.h>

#include "core/Coercion.h"

namespace vornex {
namespace {

/// False without a "jobid".
bool read(const Dictionary& dictionary, TQWorkflowItem& item) {
  auto text = [&](const char* key) { return coerce::string(dictionary.find(key)); };
  item.workflowID = text("workflowid");
  item.workflowName = text("workflowname");
  item.instanceID = text("instanceid");
  item.jobID = text("jobid");
  item.action = text("action");
  item.progress = coerce::real(dictionary.find("progress"));
  item.errorMessage = text("error");
  item.inputPath = text("input");
  item.outputPath = text("output");
  if (!item.jobID) logLine(LogLevel::error, "workflowItemWithDictionary : a job without jobid");
  return item.jobID.has_value();
}

template <typename Item>
std::shared_ptr<Item> makeItem(OptionalString workflowID, OptionalString name, OptionalString instanceID,
                               OptionalString jobID, OptionalString action, std::int64_t status,
                               double progress) {
  auto item = std::make_shared<Item>();
  item->workflowID = std::move(workflowID);
  item->workflowName = std::move(name);
  item->instanceID = std::move(instanceID);
  item->jobID = std::move(jobID);
  item->action = std::move(action);
  item->jobStatus = status;
  item->progress = progress;
  return item;
}

}  // namespace

WorkflowItemPtr TQWorkflowItem::workflowItemWithID(OptionalString workflowID, OptionalString name,
                                                   OptionalString instanceID, OptionalString jobID,
                                                   OptionalString action, std::int64_t jobStatus,
                                                   double progress) {
  return makeItem<TQWorkflowItem>(std::move(workflowID), std::move(name), std::move(instanceID),
                                  std::move(jobID), std::move(action), jobStatus, progress);
}

WorkflowItemPtr TQWorkflowItem::workflowItemWithDictionary(const Dictionary& dictionary) {
  auto item = std::make_shared<TQWorkflowItem>();
  if (!read(dictionary, *item)) return nullptr;
  item->jobStatus = coerce::integer(dictionary.find("status"));
  return item;
}

Dictionary TQWorkflowItem::workflowItemDictionary() const {
  return {{"workflowid", workflowID.value_or("")},
          {"workflowname", workflowName.value_or("")},
          {"instanceid", instanceID.value_or("")},
          {"jobid", jobID.value_or("")},
          {"action", action.value_or("")},
          {"status", jobStatus},
          {"progress", progress},
          {"error", errorMessage.value_or("")},
          {"input", inputPath.value_or("")},
          {"output", outputPath.value_or("")}};
}

WorkflowAssetItemPtr TQWorkflowAssetItem::workflowItemWithID(OptionalString workflowID, OptionalString name,
                                                             OptionalString instanceID, OptionalString jobID,
                                                             OptionalString action, double progress,
                                                             std::int64_t status, OptionalString dbName,
                                                             OptionalString assetID, OptionalString ouptput,
                                                             std::optional<Dictionary> data) {
  auto item = makeItem<TQWorkflowAssetItem>(std::move(workflowID), std::move(name), std::move(instanceID),
                                            std::move(jobID), std::move(action), status, progress);
  item->dbName = std::move(dbName);
  item->assetID = std::move(assetID);
  item->output = std::move(ouptput);
  item->infoDictionary = std::move(data);
  return item;
}

WorkflowAssetItemPtr TQWorkflowAssetItem::workflowAssetItemWithDictionary(const Dictionary& dictionary) {
  auto item = std::make_shared<TQWorkflowAssetItem>();
  if (!read(dictionary, *item)) return nullptr;
  item->jobStatus = 1;
  item->assetID = coerce::string(dictionary.find("assetid"));
  item->dbName = coerce::string(dictionary.find("dbname"));
  item->output = coerce::string(dictionary.find("output"));
  const Value* data = dictionary.find("data");
  if (data && data->ifDictionary()) item->infoDictionary = *data->ifDictionary();
  item->queueCount = coerce::integer(dictionary.find("queuecount"));
  return item;
}

OptionalString TQWorkflowAssetItem::infoDescription() const {
  if (!infoDictionary || infoDictionary->empty()) return std::nullopt;
  auto text = [&](const char* key) { return coerce::string(infoDictionary->find(key)); };
  if (jobType == 1)
    return fmt::format("{}://{}@{}:{}", text("protocol").value_or("(null)"),
                       text("username").value_or("(null)"), text("server").value_or("(null)"),
                       coerce::integer(infoDictionary->find("port")));
  if (jobType == 4) return text("selectedFormatName");
  return std::nullopt;
}

}  // namespace vornex
