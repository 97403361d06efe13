#include "service/ServiceCallbacks.h"

#include <fmt/format.h>
#include <vornex/Log.h>
#include <vornex/NotificationCenter.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQLibraryManager.h>
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

void ServiceCallbacks::vornexManualScanForLiveFolder(const std::string& liveFolderID, const OptionalString&,
                                                     const std::string& dbName) {
  logLine(LogLevel::info, fmt::format("vornexManualScanForLiveFolder :{} = {}", liveFolderID, dbName));
  bool known = TQLibraryManager::sharedManager().libraryForDBName(dbName) != nullptr;
  logLine(LogLevel::warning, known ? "liveFolder is nil" : "library is nil");
}

void ServiceCallbacks::vornexScanStatusForLiveFolder(
    const std::string& dbName, const std::function<void(Dictionary status)>& resultHandler) {
  if (!TQLibraryManager::sharedManager().libraryForDBName(dbName))
    logLine(LogLevel::warning, "vornexScanStatusForLiveFolderWithDBName library is nil");
  resultHandler({});
}

}  // namespace vornex
