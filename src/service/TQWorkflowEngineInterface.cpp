#include <vornex/Log.h>
#include <vornex/Queue.h>
#include <vornex/TQBookmarkUtil.h>
#include <vornex/TQConnection.h>
#include <vornex/TQUser.h>
#include <vornex/TQVornexUtil.h>
#include <vornex/TQWorkflowEngineInterface.h>

#include "core/Coercion.h"
#include "foundation/Files.h"
#include "foundation/PropertyList.h"
#include "foundation/SharedDictionaryFile.h"

namespace vornex {

static constexpr const char* kJobs = "jobs";

static std::optional<Dictionary> firstJob(std::int64_t jobType) {
  const std::string path = TQVornexUtil::workflowPlist();
  if (!itemExists(path)) return std::nullopt;
  auto file = readDictionaryFile(path);
  if (!file) {
    logLine(LogLevel::error, "searchWorkflowWithJobType: " + file.error().message);
    return std::nullopt;
  }
  for (const Value& job : coerce::array(file->find(kJobs)))
    if (job.ifDictionary() && coerce::integer(job.find("jobtype")) == jobType) return *job.ifDictionary();
  return std::nullopt;
}

void TQWorkflowEngineInterface::startWorkFlowWithPort(std::int64_t port, OptionalString localPassword) {
  connection_ = TQConnection::connectionWithAddress(
      "127.0.0.1", port,
      TQUser::userWithID(kTQLocalUserID, kTQLocalUserID, kUserTypeLocalOwner, std::move(localPassword)));
}

void TQWorkflowEngineInterface::startAllBookmarks() {
  TQBookmarkUtil::startAllBookmarks();
}

void TQWorkflowEngineInterface::searchWorkflowWithJobType(
    std::int64_t jobType, std::function<void(std::optional<Dictionary> job)> completion) {
  GlobalQueue::shared().async(
      [jobType, completion = std::move(completion)] { completion(firstJob(jobType)); });
}

void TQWorkflowEngineInterface::setAssetEngine(AssetEngine engine) {
  assetEngine_ = engine ? std::make_shared<const AssetEngine>(std::move(engine)) : nullptr;
}

void TQWorkflowEngineInterface::addJobWithAssets(std::vector<Dictionary> assets, OptionalString packageFolder,
                                                 OptionalString projectID, OptionalString dbName) {
  std::shared_ptr<const AssetEngine> engine = assetEngine_;
  if (engine) (*engine)(std::move(assets), std::move(packageFolder), std::move(projectID), std::move(dbName));
}

void TQWorkflowEngineInterface::cancelWorkflowWithDBName(const std::string& dbName) {
  const std::string path = TQVornexUtil::workflowPlist();
  if (!itemExists(path)) return;
  auto changed = changeDictionaryFile(path, [&](std::optional<Dictionary> present) {
    Dictionary file = std::move(present).value_or(Dictionary());
    Array jobs = coerce::array(file.find(kJobs));
    std::erase_if(jobs, [&](const Value& job) { return coerce::string(job.find("dbname")) == dbName; });
    file.set(kJobs, std::move(jobs));
    return file;
  });
  if (!changed) logLine(LogLevel::error, "cancelWorkflowWithDBName: " + changed.error().message);
}

}  // namespace vornex
