#pragma once

#include <vornex/TQError.h>
#include <vornex/Types.h>
#include <vornex/Value.h>

#include <chrono>
#include <memory>
#include <mutex>
#include <string>

#include "service/ControlChannel.h"
#include "service/TQVornexClient.h"

namespace vornex {

/// The local service as this process sees it.
///
/// Only start() starts the service. Every other operation goes to the service that runs; when none does, or
/// when it goes away before it has answered, the operation fails with code 31. A service that comes back is
/// found again by the next operation, or within seconds without one, so that its notifications go on. Errors
/// of the service are passed on unchanged; null is success.
///
/// Thread-safety: safe on any thread. Completions come exactly once, on worker threads, which they may block.
class ServiceProxy : public std::enable_shared_from_this<ServiceProxy> {
 public:
  using Completed = std::function<void(TQErrorPtr error)>;

  explicit ServiceProxy(std::shared_ptr<TQVornexClient> client) : client_(std::move(client)) {}
  ~ServiceProxy() { disconnect(); }

  /// Connects to the service, starting it when it does not run, and waits until it answers. Blocks up to the
  /// time limit. Null on success; code 31 when it cannot be started or reached, or is ended meanwhile; code
  /// 11 when an earlier process does not end in time; code 9 when it hangs.
  TQErrorPtr start(std::chrono::milliseconds timeLimit = std::chrono::seconds(20));
  /// Connects when the service runs; whether there is a connection now.
  bool connect() { return channel() != nullptr; }
  /// Whether there is a connection; makes none.
  bool isConnected() const;
  /// A number that no other connection of this process has; 0 when there is none.
  std::uint64_t connectionNumber() const;
  /// Ends the connection for good: nothing connects again.
  void disconnect();

  /// Gives the port in use; 0 asks for any.
  void launchWebServerWithPort(std::int64_t port,
                               std::function<void(std::int64_t port, TQErrorPtr error)> completion);
  void loadLibrary(Completed completion);
  void stopWebServer(Completed completion);
  void shutdownDatabase(Completed completion);
  /// State 1: the web server runs, on the port.
  void getWebServerState(
      std::function<void(std::int64_t state, std::int64_t port, TQErrorPtr error)> completion);
  void getUserSessions(std::function<void(Array sessions, TQErrorPtr error)> completion);
  /// Absent when the service has none to give.
  void getLocalAccountPassword(std::function<void(OptionalString password, TQErrorPtr error)> completion);
  void updateLibrary(Completed completion);
  void updateUsers(Completed completion);
  void startAllBoookmarks(Completed completion);
  /// Ends the service process, also one that start() is about to start; completes when it has let go of the
  /// connection, but not later than 10 seconds after its answer.
  void terminate(Completed completion);

  /// Opens its database, too.
  void addLibrary(const Dictionary& library, Completed completion);
  /// The same, and fails, code 8, when the library has no database yet.
  void addExistingLibrary(const Dictionary& library, Completed completion);
  /// An empty dictionary when the service does not know the library.
  void getLibraryForDBName(const std::string& dbName,
                           std::function<void(Dictionary library, TQErrorPtr error)> completion);
  void launchLibraryForDBName(const std::string& dbName, Completed completion);
  void terminateLibraryForDBName(const std::string& dbName, Completed completion);
  void removeLibraryWithDBName(const std::string& dbName, Completed completion);
  /// Has the service write a consistent copy of the database into the folder, which must exist and be empty.
  /// With `close` it lets go of the database first, and the library stays closed when the copy succeeds.
  void snapshotDatabase(const std::string& dbName, const std::string& folder, bool close,
                        Completed completion);
  /// Removes the database of a library that leaves the list. Fails, code 6, when it was used since its last
  /// copy with `close`.
  void retireDatabase(const std::string& dbName, Completed completion);
  /// Puts the copy staged beside the database of a known library in its place, and the database in the
  /// copy's. A copy that is damaged or cannot be opened is refused.
  void replaceDatabase(const std::string& dbName, Completed completion);

 private:
  using ChannelPtr = std::shared_ptr<ControlChannel>;
  using Answer = std::function<void(Value result, TQErrorPtr error)>;

  ChannelPtr channel();
  void awaitReturn();
  bool isReturnOver();
  void call(const std::string& method, Dictionary params, std::chrono::milliseconds timeLimit, Answer answer);
  static constexpr std::chrono::milliseconds kWorkLimit = std::chrono::minutes(10);
  void work(const std::string& method, Dictionary params, Completed completion,
            std::chrono::milliseconds timeLimit = kWorkLimit);

  const std::shared_ptr<TQVornexClient> client_;
  mutable std::mutex mutex_;
  ChannelPtr channel_;
  std::uint64_t number_ = 0;
  bool disconnected_ = false;
  bool terminated_ = false;
  bool awaitsReturn_ = false;
  bool refusalLogged_ = false;
  // By the service that was last connected to.
  std::atomic<bool> registrationRefused_ = false;
};

/// Makes the client the one that the service calls back, and connects when the service runs. An earlier
/// client is replaced. Thread-safe.
void TQVornexInitialize(std::shared_ptr<TQVornexClient> client);
/// Ends the service process, then forgets it; TQVornexService() is null at once. Completes at once without
/// one. Thread-safe.
void TQVornexTerminate(std::function<void()> completion);
/// Null before TQVornexInitialize and after TQVornexTerminate. Thread-safe.
std::shared_ptr<ServiceProxy> TQVornexService();

/// Whether the service reports a failure: an error of code 0 is none.
inline bool isFailure(const TQErrorPtr& error) {
  return error && error->code() != 0;
}

}  // namespace vornex
