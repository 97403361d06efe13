#include "service/ServiceCallbacks.h"

#include <fmt/format.h>
#include <vornex/Log.h>
#include <vornex/NotificationCenter.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQLibraryManager.h>
#include <vornex/TQLiveFolder.h>
#include <vornex/TQUserManager.h>
#include <vornex/VornexSDK.h>

#include <mutex>
#include <vector>

#include "service/TQVornexService.h"

namespace vornex {

static void post(const char* name, std::any object, Dictionary userInfo) {
  NotificationCenter::defaultCenter().postOnMainQueue({name, std::move(object), std::move(userInfo)});
}

/// One request for the password, and those who wait for its end.
struct PasswordFetch {
  std::uint64_t connection = 0;
  bool ended = false;
  std::vector<std::function<void()>> waiting;
};

struct LatestFetch {
  std::mutex mutex;
  std::shared_ptr<PasswordFetch> fetch;

  static LatestFetch& shared() {
    // Never destroyed: workers may ask while the process ends.
    static auto* latest = new LatestFetch;
    return *latest;
  }
};

static void takeLocalPassword(const OptionalString& password) {
  if (!password) return logLine(LogLevel::warning, "vornexServiceLaunched error");
  TQUserManager::sharedManager().setLocalPassword(password);
  TQLibraryManager::sharedManager().updateLocalPassword();
  TQLibraryManager::sharedManager().startWorkflows();
}

static void endFetch(PasswordFetch& fetch, bool succeeded) {
  std::vector<std::function<void()>> waiting;
  {
    std::lock_guard lock(LatestFetch::shared().mutex);
    fetch.ended = true;
    // The next one asks again.
    if (!succeeded) fetch.connection = 0;
    waiting.swap(fetch.waiting);
  }
  for (const auto& done : waiting) done();
}

void fetchLocalPassword(std::function<void()> done) {
  auto service = TQVornexService();
  if (!service) return done();
  LatestFetch& latest = LatestFetch::shared();
  std::uint64_t connection = service->connectionNumber();
  std::shared_ptr<PasswordFetch> fetch;
  {
    std::lock_guard lock(latest.mutex);
    bool isAsked = latest.fetch && connection != 0 && latest.fetch->connection == connection;
    if (isAsked && !latest.fetch->ended) return latest.fetch->waiting.push_back(std::move(done));
    if (!isAsked)
      latest.fetch = fetch = std::make_shared<PasswordFetch>(PasswordFetch{connection, false, {}});
    if (fetch) fetch->waiting.push_back(done);
  }
  if (!fetch) return done();
  service->getLocalAccountPassword([fetch](const OptionalString& password, const TQErrorPtr&) {
    takeLocalPassword(password);
    endFetch(*fetch, password.has_value());
  });
}

void ServiceCallbacks::vornexServiceLaunched() {
  fetchLocalPassword([] {});
}

void ServiceCallbacks::vornexLibraryDidChangeState(const std::string& dbName, std::int64_t state) {
  post(kTQLibraryDBDidChangeStatusNotification, {}, {{"dbname", dbName}, {"status", state}});
}

void ServiceCallbacks::vornexLibraryUpdatedWithLibraries(const Value& libraries) {
  post(kTQLibraryUpdateNotification, libraries, {});
}

void ServiceCallbacks::vornexLibraryCreatedWithLibraries(const Value& libraries) {
  post(kTQLibraryCreateNotification, libraries, {});
}

void ServiceCallbacks::vornexLibraryDeletedWithLibraries(const Value& libraries) {
  post(kTQLibraryDidDeleteNotification, libraries, {});
}

void ServiceCallbacks::vornexManualScanForLiveFolder(const std::string& liveFolderID,
                                                     const OptionalString& fileName,
                                                     const std::string& dbName) {
  logLine(LogLevel::warning, fmt::format("vornexManualScanForLiveFolder :{} = {}", liveFolderID, dbName));
  LibraryPtr library = TQLibraryManager::sharedManager().libraryForDBName(dbName);
  if (!library) return logLine(LogLevel::warning, "library is nil");
  LiveFolderPtr liveFolder = library->liveFolderWithID(liveFolderID);
  if (!liveFolder) return logLine(LogLevel::warning, "liveFolder is nil");
  post(kTQLiveFolderManualScanNotification, liveFolder,
       fileName ? Dictionary{{"scanfilename", *fileName}} : Dictionary());
}

/// A folder without an identifier cannot be asked for.
static void noteScanStatus(const TQLiveFolder& folder, Dictionary& status) {
  if (folder.ID) status.set(*folder.ID, folder.scanStatus);
  for (const LiveFolderPtr& subFolder : folder.subFolders) noteScanStatus(*subFolder, status);
}

void ServiceCallbacks::vornexScanStatusForLiveFolder(
    const std::string& dbName, const std::function<void(Dictionary status)>& resultHandler) {
  Dictionary status;
  if (LibraryPtr library = TQLibraryManager::sharedManager().libraryForDBName(dbName)) {
    for (const LiveFolderPtr& root : library->liveFolders) noteScanStatus(*root, status);
  } else {
    logLine(LogLevel::warning, "vornexScanStatusForLiveFolderWithDBName library is nil");
  }
  resultHandler(std::move(status));
}

}  // namespace vornex
