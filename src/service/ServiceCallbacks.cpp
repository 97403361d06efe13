#include "service/ServiceCallbacks.h"

#include <fmt/format.h>
#include <vornex/Log.h>
#include <vornex/NotificationCenter.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQLibraryManager.h>
#include <vornex/TQLiveFolder.h>
#include <vornex/TQUserManager.h>
#include <vornex/VornexSDK.h>

#include "service/TQVornexService.h"

namespace vornex {

static void post(const char* name, std::any object, Dictionary userInfo) {
  NotificationCenter::defaultCenter().postOnMainQueue({name, std::move(object), std::move(userInfo)});
}

void fetchLocalPassword(std::function<void()> done) {
  auto service = TQVornexService();
  if (!service) return done();
  service->getLocalAccountPassword(
      [done = std::move(done)](const OptionalString& password, const TQErrorPtr&) {
        if (password) {
          TQUserManager::sharedManager().setLocalPassword(password);
          TQLibraryManager::sharedManager().updateLocalPassword();
          TQLibraryManager::sharedManager().startWorkflows();
        } else {
          logLine(LogLevel::error, "vornexServiceLaunched error");
        }
        done();
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
  logLine(LogLevel::info, fmt::format("vornexManualScanForLiveFolder :{} = {}", liveFolderID, dbName));
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
