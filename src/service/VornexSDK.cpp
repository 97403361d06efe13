#include <vornex/Queue.h>
#include <vornex/TQBookmarkUtil.h>
#include <vornex/TQLibraryManager.h>
#include <vornex/TQUserManager.h>
#include <vornex/VornexSDK.h>

#include "core/Coercion.h"
#include "core/DateNumber.h"
#include "core/StatusCode.h"
#include "service/ServiceCallbacks.h"
#include "service/TQVornexService.h"

namespace vornex {
namespace {

constexpr int kStartAttempts = 3;

TQSession sessionOf(const Value& entry) {
  auto text = [&](const char* key) { return coerce::string(entry.find(key)); };
  return {text("userid"),     text("username"),
          text("host"),       text("deviceuuid"),
          text("clienttype"), dateFromDateNumber(coerce::integer(entry.find("logindate")))};
}

void loadLibraries(const std::shared_ptr<ServiceProxy>& service, const Completion& completion) {
  service->loadLibrary([completion](const TQErrorPtr& error) {
    if (isFailure(error)) return completion(false, error);
    // Requests may follow the completion at once. The password usually came with the report of the launch.
    if (!TQUserManager::sharedManager().localPassword())
      return fetchLocalPassword([completion] { completion(true, nullptr); });
    TQLibraryManager::sharedManager().updateLocalPassword();
    completion(true, nullptr);
  });
}

bool isLost(const TQErrorPtr& error) {
  return error && error->code() == static_cast<std::int64_t>(StatusCode::cannotConnectToHost);
}

// Blocks while the service starts. A service that was about to end when it was found is started anew.
void launch(const std::shared_ptr<ServiceProxy>& service, std::int64_t port, int attempts,
            const Completion& completion) {
  if (TQErrorPtr error = service->start()) return completion(false, error);
  service->launchWebServerWithPort(port, [=](std::int64_t portInUse, const TQErrorPtr& error) {
    if (isLost(error) && attempts > 1) return launch(service, port, attempts - 1, completion);
    if (isFailure(error)) return completion(false, error);
    if (portInUse > 0) VornexSDK::sharedInstance().WASPort = portInUse;
    loadLibraries(service, completion);
  });
}

}  // namespace

VornexSDK& VornexSDK::sharedInstance() {
  static auto* instance = new VornexSDK;
  return *instance;
}

void VornexSDK::initializeWAS() {
  TQBookmarkUtil::sharedInstance().loadBookmarks();
  TQVornexInitialize(std::make_shared<ServiceCallbacks>());
}

void VornexSDK::startWASServiceWithPort(std::int64_t port, Completion completion) {
  if (port != 0) WASPort = port;
  auto service = TQVornexService();
  if (!service) return;
  GlobalQueue::shared().async([service, port, completion = std::move(completion)] {
    launch(service, port, kStartAttempts, completion);
  });
}

void VornexSDK::stopWASService(std::function<void()> completion) {
  auto service = TQVornexService();
  if (!service) return completion();
  service->stopWebServer([service, completion = std::move(completion)](const TQErrorPtr&) {
    service->shutdownDatabase([completion](const TQErrorPtr&) { completion(); });
  });
}

void VornexSDK::terminateWAS(std::function<void()> completion) {
  TQLibraryManager::sharedManager().deleteLockFiles();
  stopWASService([completion = std::move(completion)] { TQVornexTerminate(completion); });
}

void VornexSDK::serviceState(std::function<void(bool running, std::int64_t port)> completion) {
  auto service = TQVornexService();
  if (!service) return completion(false, 0);
  service->getWebServerState(
      [completion = std::move(completion)](std::int64_t state, std::int64_t port, const TQErrorPtr&) {
        completion(state == 1, state == 1 ? port : 0);
      });
}

void VornexSDK::isRunning(std::function<void(bool running)> completion) {
  serviceState([completion = std::move(completion)](bool running, std::int64_t) {
    if (completion) completion(running);
  });
}

void VornexSDK::getUserSessions(
    std::function<void(std::vector<TQSession> sessions, TQErrorPtr error)> completion) {
  auto service = TQVornexService();
  if (!service) return;
  service->getUserSessions([completion = std::move(completion)](const Array& entries, TQErrorPtr error) {
    std::vector<TQSession> sessions;
    for (const Value& entry : entries) sessions.push_back(sessionOf(entry));
    completion(std::move(sessions), std::move(error));
  });
}

}  // namespace vornex
