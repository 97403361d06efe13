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
#include <utility>
#include <vector>

#include "foundation/RunTask.h"
#include "service/TQVornexService.h"

namespace vornex {

static void post(const char* name, std::any object, Dictionary userInfo) {
  NotificationCenter::defaultCenter().postOnMainQueue({name, std::move(object), std::move(userInfo)});
}

namespace {

/// The requests for the password on one connection, and those who wait for their end.
struct PasswordFetch {
  std::uint64_t connection = 0;
  bool isUnderWay = true;
  /// A launch was reported since the request was sent.
  bool isOutdated = false;
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

void takeLocalPassword(const OptionalString& password) {
  if (!password) return logLine(LogLevel::warning, "vornexServiceLaunched error");
  TQUserManager::sharedManager().setLocalPassword(password);
  TQLibraryManager::sharedManager().updateLocalPassword();
  TQLibraryManager::sharedManager().startWorkflows();
}

/// False when the password has to be asked for again.
bool endFetch(PasswordFetch& fetch, bool succeeded) {
  std::vector<std::function<void()>> waiting;
  {
    std::lock_guard lock(LatestFetch::shared().mutex);
    if (succeeded && std::exchange(fetch.isOutdated, false)) return false;
    fetch.isUnderWay = false;
    // The next one asks again.
    if (!succeeded) fetch.connection = 0;
    waiting.swap(fetch.waiting);
  }
  for (const auto& done : waiting) runTask(done, "service callbacks");
  return true;
}

void request(const std::shared_ptr<ServiceProxy>& service, const std::shared_ptr<PasswordFetch>& fetch) {
  service->getLocalAccountPassword([service, fetch](const OptionalString& password, const TQErrorPtr&) {
    runTask([&] { takeLocalPassword(password); }, "service callbacks");
    if (!endFetch(*fetch, password.has_value())) request(service, fetch);
  });
}

enum class Ask { once, always };

void fetchPassword(Ask ask, const std::function<void()>& done) {
  auto service = TQVornexService();
  if (!service) return done();
  LatestFetch& latest = LatestFetch::shared();
  const std::uint64_t connection = service->connectionNumber();
  std::shared_ptr<PasswordFetch> fetch;
  {
    std::lock_guard lock(latest.mutex);
    const bool isAsked = latest.fetch && connection != 0 && latest.fetch->connection == connection;
    if (isAsked && latest.fetch->isUnderWay) {
      if (ask == Ask::always) latest.fetch->isOutdated = true;
      return latest.fetch->waiting.push_back(done);
    }
    if (!isAsked || ask == Ask::always)
      latest.fetch = fetch = std::make_shared<PasswordFetch>(PasswordFetch{connection, true, false, {done}});
  }
  if (!fetch) return done();
  request(service, fetch);
}

}  // namespace

void fetchLocalPassword(const std::function<void()>& done) {
  fetchPassword(Ask::once, done);
}

void ServiceCallbacks::vornexServiceLaunched() {
  fetchPassword(Ask::always, [] {});
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
  for (const LiveFolderPtr& subFolder : folder.subFolders)
    if (subFolder) noteScanStatus(*subFolder, status);
}

void ServiceCallbacks::vornexScanStatusForLiveFolder(
    const std::string& dbName, const std::function<void(Dictionary status)>& resultHandler) {
  Dictionary status;
  if (LibraryPtr library = TQLibraryManager::sharedManager().libraryForDBName(dbName)) {
    for (const LiveFolderPtr& root : library->liveFolders)
      if (root) noteScanStatus(*root, status);
  } else {
    logLine(LogLevel::warning, "vornexScanStatusForLiveFolderWithDBName library is nil");
  }
  resultHandler(std::move(status));
}

}  // namespace vornex
