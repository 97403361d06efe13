#include <vornex/Queue.h>
#include <vornex/TQBookmarkUtil.h>
#include <vornex/TQLibraryManager.h>
#include <vornex/TQUserManager.h>
#include <vornex/TQWorkflowEngineInterface.h>
#include <vornex/VornexSDK.h>

#include <chrono>
#include <thread>

#include "core/Coercion.h"
#include "core/DateNumber.h"
#include "core/SdkError.h"
#include "core/StatusCode.h"
#include "service/ServiceCallbacks.h"
#include "service/TQVornexService.h"

namespace vornex {
namespace {

constexpr auto kRetryLimit = std::chrono::seconds(20);
constexpr auto kRetryPause = std::chrono::milliseconds(100);

TQSession sessionOf(const Value& entry) {
  auto text = [&](const char* key) { return coerce::string(entry.find(key)); };
  return {text("userid"),     text("username"),
          text("host"),       text("deviceuuid"),
          text("clienttype"), dateFromDateNumber(coerce::integer(entry.find("logindate")))};
}

/// One start of the service. A service that was about to end when it was found, or ends meanwhile, is started
/// anew while there is time.
///
/// Thread-safety: none; its steps follow one another.
struct Start : std::enable_shared_from_this<Start> {
  std::shared_ptr<ServiceProxy> service;
  std::int64_t port;
  Completion completion;
  std::chrono::steady_clock::time_point lastRetry = std::chrono::steady_clock::now() + kRetryLimit;

  Start(std::shared_ptr<ServiceProxy> taken, std::int64_t wanted, Completion then)
      : service(std::move(taken)), port(wanted), completion(std::move(then)) {}

  // Blocks while the service starts.
  void launch() {
    if (TQErrorPtr error = service->start()) return completion(false, error);
    service->launchWebServerWithPort(
        port, [self = shared_from_this()](std::int64_t portInUse, const TQErrorPtr& error) {
          if (isFailure(error)) return self->fail(error);
          if (portInUse > 0) VornexSDK::sharedInstance().WASPort = portInUse;
          self->loadLibraries();
        });
  }

  void loadLibraries() {
    service->loadLibrary([self = shared_from_this()](const TQErrorPtr& error) {
      if (isFailure(error)) return self->fail(error);
      // Requests may follow the completion at once.
      fetchLocalPassword([self] {
        TQLibraryManager& manager = TQLibraryManager::sharedManager();
        manager.updateLocalPassword();
        // The password may have come before the port was known.
        manager.workflowEngineInterface().startWorkFlowWithPort(
            VornexSDK::sharedInstance().WASPort, TQUserManager::sharedManager().localPasswordMD5());
        self->completion(true, nullptr);
      });
    });
  }

  void fail(const TQErrorPtr& error) {
    bool isLost =
        isServiceLost(error) || error->code() == static_cast<std::int64_t>(StatusCode::serviceStopping);
    if (!isLost || std::chrono::steady_clock::now() > lastRetry) return completion(false, error);
    std::this_thread::sleep_for(kRetryPause);
    launch();
  }
};

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
  auto start = std::make_shared<Start>(service, port, std::move(completion));
  GlobalQueue::shared().async([start] { start->launch(); });
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
