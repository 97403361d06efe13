#include "service/TQVornexService.h"

#include <unistd.h>
#include <vornex/Log.h>
#include <vornex/Queue.h>
#include <vornex/TQVornexUtil.h>

#include <algorithm>
#include <atomic>
#include <future>
#include <optional>
#include <thread>

#include "core/Coercion.h"
#include "core/StatusCode.h"
#include "core/StorageLayout.h"
#include "service/ServiceLauncher.h"

namespace vornex {
namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

// For questions, and for work that may take as long as the disks do.
constexpr std::chrono::milliseconds kQuickLimit = 30s;
constexpr std::chrono::milliseconds kCopyLimit = 12h;
// JSON-RPC's.
constexpr std::int64_t kMethodNotFound = -32601;
// How long a service that was told to end is waited for.
constexpr std::chrono::milliseconds kFarewell = 10s;
// How often a lost service is looked for.
constexpr std::chrono::milliseconds kFirstLook = 250ms;
constexpr std::chrono::milliseconds kLongestLook = 5s;

TQErrorPtr errorFrom(const Error& error) {
  OptionalString domain;
  if (!error.domain.empty()) domain = error.domain;
  return TQVornexUtil::errorWithCode(error.code, error.message, domain);
}

TQErrorPtr failureOf(StatusCode code, const std::string& message) {
  return errorFrom({kServerErrorDomain, static_cast<std::int64_t>(code), message});
}

TQErrorPtr unreachable(const std::string& message) {
  return failureOf(StatusCode::cannotConnectToHost, message);
}

std::string textOf(const Value& params, const char* key) {
  return coerce::string(params.find(key)).value_or("");
}

Value librariesOf(const Value& params) {
  const Value* libraries = params.find("libraries");
  return libraries ? *libraries : Value();
}

// Answers one call of the service.
Result<Value> dispatch(TQVornexClient& client, const std::string& method, const Value& params) {
  Dictionary result;
  if (method == "vornexServiceLaunched") {
    client.vornexServiceLaunched();
  } else if (method == "vornexLibraryDidLoad") {
    client.vornexLibraryDidLoad();
  } else if (method == "vornexLibraryDidChangeState") {
    client.vornexLibraryDidChangeState(textOf(params, "dbname"), coerce::integer(params.find("state")));
  } else if (method == "vornexLibraryUpdated") {
    client.vornexLibraryUpdatedWithLibraries(librariesOf(params));
  } else if (method == "vornexLibraryCreated") {
    client.vornexLibraryCreatedWithLibraries(librariesOf(params));
  } else if (method == "vornexLibraryDeleted") {
    client.vornexLibraryDeletedWithLibraries(librariesOf(params));
  } else if (method == "vornexManualScanForLiveFolder") {
    client.vornexManualScanForLiveFolder(textOf(params, "livefolderid"),
                                         coerce::string(params.find("filename")), textOf(params, "dbname"));
  } else if (method == "vornexScanStatusForLiveFolder") {
    client.vornexScanStatusForLiveFolder(textOf(params, "dbname"),
                                         [&](Dictionary status) { result.set("status", std::move(status)); });
  } else {
    return failure("control", kMethodNotFound, "there is no operation " + method);
  }
  return result;
}

// Starts the service again when it has ended: it may have lost the race against one that another process
// started, or against one that is about to leave, which is waited for.
class Starter {
 public:
  // Null unless the service cannot be started any more.
  TQErrorPtr startIfNeeded() {
    if (process_ && !process_->hasEnded()) return nullptr;
    if (Clock::now() < nextStart_) return nullptr;
    if (starts_ >= kEnoughStarts && !isServiceAlive())
      return unreachable("the service ends as soon as it is started, see " + log());
    OptionalString executable = serviceExecutable();
    if (!executable) return unreachable("vornexd is not installed; $VORNEX_WASD can name it");
    auto started = startService(*executable);
    if (!started) return unreachable(started.error().message);
    process_ = std::move(*started);
    nextStart_ = Clock::now() + std::min<std::chrono::milliseconds>(++starts_ * 300ms, 1s);
    return nullptr;
  }

  // Takes back what was started.
  void undo() const {
    if (process_) process_->end();
  }

  TQErrorPtr late() const {
    if (process_ && process_->hasEnded() && isServiceAlive())
      return failureOf(StatusCode::serviceStopping, "an earlier service does not end, see " + log());
    return unreachable("the service did not start in time, see " + log());
  }

 private:
  static std::string log() { return layout::serviceLogFile(); }

  static constexpr int kEnoughStarts = 5;
  std::optional<ServiceProcess> process_;
  int starts_ = 0;
  Clock::time_point nextStart_ = Clock::time_point::min();
};

}  // namespace

// Connecting may block, so nothing is locked meanwhile; of two channels opened at once the first one stays.
ServiceProxy::ChannelPtr ServiceProxy::channel() {
  {
    std::lock_guard lock(mutex_);
    if (disconnected_) return nullptr;
    if (channel_ && channel_->isOpen()) return channel_;
  }
  auto opened = ControlChannel::open(
      layout::controlSocket(),
      [client = client_](const std::string& method, const Value& params) {
        return dispatch(*client, method, params);
      },
      [weak = weak_from_this()] {
        if (auto self = weak.lock()) self->awaitReturn();
      });
  if (!opened) {
    bool isRefused = opened.error().code == EACCES;
    std::lock_guard lock(mutex_);
    if (isRefused && !std::exchange(refusalLogged_, true)) logLine(LogLevel::error, opened.error().message);
    return nullptr;
  }
  {
    std::lock_guard lock(mutex_);
    if (disconnected_) return nullptr;
    if (channel_ && channel_->isOpen()) return channel_;
    static std::atomic<std::uint64_t> connections = 0;
    channel_ = *opened;
    number_ = ++connections;
  }
  (*opened)->call(
      "register",
      Dictionary{{"device", TQVornexUtil::systemUUID()}, {"clienttype", "Mac"}, {"pid", ::getpid()}},
      kQuickLimit, [self = weak_from_this(), weak = std::weak_ptr(*opened)](const Result<Value>& result) {
        auto service = self.lock();
        ChannelPtr channel = weak.lock();
        const bool isRefused = !result && channel && channel->isOpen();
        const bool isRepeated = service && service->registrationRefused_.exchange(isRefused) && isRefused;
        if (result) return;
        if (!isRepeated) logLine(LogLevel::error, "Can't register: " + result.error().message);
        // It would look good and never be called back; a lost connection is made again.
        if (channel) channel->close();
      });
  return *opened;
}

// Other processes may start the service again. It is only looked for while its process lives, since a service
// manager would take every connection for a wish to start it.
void ServiceProxy::awaitReturn() {
  {
    std::lock_guard lock(mutex_);
    if (disconnected_ || std::exchange(awaitsReturn_, true)) return;
  }
  std::thread([weak = weak_from_this()] {
    auto service = weak.lock();
    auto pause = service && service->registrationRefused_ ? kLongestLook : kFirstLook;
    service.reset();
    for (;; pause = std::min(pause * 2, kLongestLook)) {
      std::this_thread::sleep_for(pause);
      auto self = weak.lock();
      if (!self || self->isReturnOver()) return;
      if (isServiceAlive()) self->connect();
    }
  }).detach();
}

bool ServiceProxy::isReturnOver() {
  std::lock_guard lock(mutex_);
  bool over = disconnected_ || terminated_ || (channel_ && channel_->isOpen());
  if (over) awaitsReturn_ = false;
  return over;
}

std::uint64_t ServiceProxy::connectionNumber() const {
  std::lock_guard lock(mutex_);
  return channel_ && channel_->isOpen() ? number_ : 0;
}

bool ServiceProxy::isConnected() const {
  std::lock_guard lock(mutex_);
  return channel_ && channel_->isOpen();
}

void ServiceProxy::disconnect() {
  ChannelPtr closing;
  {
    std::lock_guard lock(mutex_);
    disconnected_ = true;
    closing = std::move(channel_);
  }
  if (closing) closing->close();
}

TQErrorPtr ServiceProxy::start(std::chrono::milliseconds timeLimit) {
  Starter starter;
  Clock::time_point deadline = Clock::now() + timeLimit;
  for (;;) {
    {
      std::lock_guard lock(mutex_);
      if (terminated_) starter.undo();
      if (terminated_ || disconnected_) return unreachable("the service was ended meanwhile");
    }
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    if (left <= 0ms) return starter.late();
    if (ChannelPtr open = channel()) {
      auto answer = std::make_shared<std::promise<Result<Value>>>();
      auto answered = answer->get_future();
      open->call("getWebServerState", Dictionary(), left,
                 [answer](Result<Value> result) { answer->set_value(std::move(result)); });
      Result<Value> result = answered.get();
      if (result) return nullptr;
      if (open->isOpen()) return errorFrom(result.error());
    } else if (TQErrorPtr error = starter.startIfNeeded()) {
      return error;
    }
    std::this_thread::sleep_for(20ms);
  }
}

void ServiceProxy::call(const std::string& method, Dictionary params, std::chrono::milliseconds timeLimit,
                        Answer answer) {
  ChannelPtr open = channel();
  if (!open) {
    GlobalQueue::shared().async(
        [answer = std::move(answer)] { answer(Value(), unreachable("the service does not run")); });
    return;
  }
  open->call(method, std::move(params), timeLimit, [answer = std::move(answer)](Result<Value> result) {
    if (result)
      answer(std::move(*result), nullptr);
    else
      answer(Value(), errorFrom(result.error()));
  });
}

void ServiceProxy::work(const std::string& method, Dictionary params, Completed completion,
                        std::chrono::milliseconds timeLimit) {
  call(
      method, std::move(params), timeLimit,
      [completion = std::move(completion)](const Value&, TQErrorPtr error) { completion(std::move(error)); });
}

void ServiceProxy::launchWebServerWithPort(
    std::int64_t port, std::function<void(std::int64_t port, TQErrorPtr error)> completion) {
  call("launchWebServer", {{"port", port}}, kWorkLimit,
       [completion = std::move(completion)](const Value& result, TQErrorPtr error) {
         completion(coerce::integer(result.find("port")), std::move(error));
       });
}

void ServiceProxy::getWebServerState(
    std::function<void(std::int64_t state, std::int64_t port, TQErrorPtr error)> completion) {
  call("getWebServerState", {}, kQuickLimit,
       [completion = std::move(completion)](const Value& result, TQErrorPtr error) {
         completion(coerce::integer(result.find("state")), coerce::integer(result.find("port")),
                    std::move(error));
       });
}

void ServiceProxy::getUserSessions(std::function<void(Array sessions, TQErrorPtr error)> completion) {
  call("getUserSessions", {}, kQuickLimit,
       [completion = std::move(completion)](const Value& result, TQErrorPtr error) {
         completion(coerce::array(result.find("sessions")), std::move(error));
       });
}

void ServiceProxy::getLocalAccountPassword(
    std::function<void(OptionalString password, TQErrorPtr error)> completion) {
  call("getLocalAccountPassword", {}, kQuickLimit,
       [completion = std::move(completion)](const Value& result, TQErrorPtr error) {
         completion(coerce::string(result.find("password")), std::move(error));
       });
}

void ServiceProxy::getLibraryForDBName(const std::string& dbName,
                                       std::function<void(Dictionary library, TQErrorPtr error)> completion) {
  call("getLibraryForDBName", {{"dbname", dbName}}, kQuickLimit,
       [completion = std::move(completion)](const Value& result, TQErrorPtr error) {
         const Value* library = result.find("library");
         const Dictionary* known = library ? library->ifDictionary() : nullptr;
         completion(known ? *known : Dictionary(), std::move(error));
       });
}

void ServiceProxy::loadLibrary(Completed completion) {
  work("loadLibrary", {}, std::move(completion));
}
void ServiceProxy::stopWebServer(Completed completion) {
  work("stopWebServer", {}, std::move(completion));
}
void ServiceProxy::shutdownDatabase(Completed completion) {
  work("shutdownDatabase", {}, std::move(completion));
}
void ServiceProxy::updateLibrary(Completed completion) {
  work("updateLibrary", {}, std::move(completion));
}
void ServiceProxy::updateUsers(Completed completion) {
  work("updateUsers", {}, std::move(completion));
}
void ServiceProxy::startAllBoookmarks(Completed completion) {
  work("startAllBookmarks", {}, std::move(completion));
}
void ServiceProxy::terminate(Completed completion) {
  {
    std::lock_guard lock(mutex_);
    terminated_ = true;
  }
  work("terminate", {},
       [self = shared_from_this(), completion = std::move(completion)](const TQErrorPtr& error) {
         for (auto limit = Clock::now() + kFarewell; self->isConnected() && Clock::now() < limit;)
           std::this_thread::sleep_for(10ms);
         completion(error);
       });
}
void ServiceProxy::addLibrary(const Dictionary& library, Completed completion) {
  work("addLibrary", {{"library", library}}, std::move(completion));
}
void ServiceProxy::addExistingLibrary(const Dictionary& library, Completed completion) {
  work("addLibrary", {{"library", library}, {"create", false}}, std::move(completion));
}
void ServiceProxy::launchLibraryForDBName(const std::string& dbName, Completed completion) {
  work("launchLibraryForDBName", {{"dbname", dbName}}, std::move(completion));
}
void ServiceProxy::terminateLibraryForDBName(const std::string& dbName, Completed completion) {
  work("terminateLibraryForDBName", {{"dbname", dbName}}, std::move(completion));
}
void ServiceProxy::removeLibraryWithDBName(const std::string& dbName, Completed completion) {
  work("removeLibraryWithDBName", {{"dbname", dbName}}, std::move(completion));
}
void ServiceProxy::snapshotDatabase(const std::string& dbName, const std::string& folder, bool close,
                                    Completed completion) {
  work("snapshotDatabase", {{"dbname", dbName}, {"folder", folder}, {"close", close}}, std::move(completion),
       kCopyLimit);
}

void ServiceProxy::retireDatabase(const std::string& dbName, Completed completion) {
  work("retireDatabase", {{"dbname", dbName}}, std::move(completion));
}
void ServiceProxy::replaceDatabase(const std::string& dbName, Completed completion) {
  call(
      "replaceDatabase", {{"dbname", dbName}}, kCopyLimit,
      [completion = std::move(completion)](const Value&, TQErrorPtr error) { completion(std::move(error)); });
}

// The process's proxy; the holder is never destroyed, since completions may run while the process ends.
namespace {
struct ProxyHolder {
  std::mutex mutex;
  std::shared_ptr<ServiceProxy> proxy;

  static ProxyHolder& shared() {
    static auto* holder = new ProxyHolder;
    return *holder;
  }

  std::shared_ptr<ServiceProxy> exchange(std::shared_ptr<ServiceProxy> next) {
    std::lock_guard lock(mutex);
    return std::exchange(proxy, std::move(next));
  }
};
}  // namespace

void TQVornexInitialize(std::shared_ptr<TQVornexClient> client) {
  auto proxy = std::make_shared<ServiceProxy>(std::move(client));
  if (auto former = ProxyHolder::shared().exchange(proxy)) former->disconnect();
  proxy->connect();
}

void TQVornexTerminate(std::function<void()> completion) {
  auto proxy = ProxyHolder::shared().exchange(nullptr);
  if (!proxy) return completion();
  proxy->terminate([proxy, completion = std::move(completion)](const TQErrorPtr&) {
    proxy->disconnect();
    completion();
  });
}

std::shared_ptr<ServiceProxy> TQVornexService() {
  ProxyHolder& holder = ProxyHolder::shared();
  std::lock_guard lock(holder.mutex);
  return holder.proxy;
}

}  // namespace vornex
