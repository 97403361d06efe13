#pragma once

#include <vornex/TQSession.h>
#include <vornex/Types.h>

#include <atomic>
#include <vector>

namespace vornex {

/// Notifications posted on the main queue when the local service reports a change. The object of the library
/// notifications is a Value holding the libraries as the service gave them; that of the scan notification is
/// the live folder.
inline constexpr const char* kTQLibraryDBDidChangeStatusNotification =
    "TQLibraryDBDidChangeStatusNotification";
inline constexpr const char* kTQLibraryUpdateNotification = "TQLibraryUpdateNotification";
inline constexpr const char* kTQLibraryCreateNotification = "TQLibraryCreateNotification";
inline constexpr const char* kTQLibraryDidDeleteNotification = "TQLibraryDidDeleteNotification";

/// Starts and stops the local service, and receives its callbacks.
///
/// Thread-safety: safe on any thread. Completions come on the thread that reads the service's control
/// channel, which they may block only for as long as they need no further answer of the service, unless
/// stated otherwise.
class VornexSDK {
 public:
  /// Made on first use; lives until the process ends.
  static VornexSDK& sharedInstance();

  /// Loads the bookmarks and registers this object as the service's client.
  void initializeWAS();

  /// Starts the service if it does not run, has it serve HTTP on the port and load its libraries. Called back
  /// with (true, null) only when both succeeded.
  void startWASServiceWithPort(std::int64_t port, Completion completion);

  /// Stops the web server and the databases; the service process stays. Called back at once without a
  /// service.
  void stopWASService(std::function<void()> completion);

  /// Removes lock files, stops the web server and the databases, and ends the service process.
  void terminateWAS(std::function<void()> completion);

  /// False at once without a service; true exactly when the web server runs.
  void isRunning(std::function<void(bool running)> completion);

  /// The sessions in the order reported. Never called back without a service.
  void getUserSessions(std::function<void(std::vector<TQSession> sessions, TQErrorPtr error)> completion);

  /// TCP port of the local service, 38317 until startWASServiceWithPort sets another.
  std::atomic<std::int64_t> WASPort{38317};

 private:
  VornexSDK();
};

}  // namespace vornex
