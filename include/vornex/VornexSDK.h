#pragma once

#include <vornex/TQSession.h>
#include <vornex/Types.h>

#include <atomic>
#include <vector>

namespace vornex {

/// Notifications posted on the main queue when the local service reports a change. The object of the library
/// notifications is a Value holding the libraries as the service gave them; that of the scan notification is
/// the live folder (a LiveFolderPtr).
inline constexpr const char* kTQLibraryDBDidChangeStatusNotification =
    "TQLibraryDBDidChangeStatusNotification";
inline constexpr const char* kTQLibraryUpdateNotification = "TQLibraryUpdateNotification";
inline constexpr const char* kTQLibraryCreateNotification = "TQLibraryCreateNotification";
inline constexpr const char* kTQLibraryDidDeleteNotification = "TQLibraryDidDeleteNotification";
inline constexpr const char* kTQLiveFolderManualScanNotification = "TQLiveFolderManualScanNotification";

/// Starts and stops the local service, and receives its callbacks.
///
/// The service is one process for each root folder, shared by every process that uses the folder. It is known
/// to this process from initializeWAS to terminateWAS.
///
/// Thread-safety: safe on any thread. Completions come on worker threads, which they may block, unless stated
/// otherwise. Every operation returns soon, but may block up to 10 seconds where the service runs and does
/// not read what it is sent.
class VornexSDK {
 public:
  /// Made on first use; lives until the process ends.
  static VornexSDK& sharedInstance();

  /// Loads the bookmarks and registers this object as the service's client. Starts nothing.
  void initializeWAS();

  /// Starts the service if it does not run, has it serve HTTP on the port (0: the port on which it serves
  /// already, else any free one) and load its libraries. Sets WASPort to the port, with 0 only when the one
  /// in use is known: load libraries in the completion, since they keep the port that they were loaded with.
  /// Called back with (true, null) only when all succeeded. By then the local password has been asked for,
  /// once for each connection to a service and whenever it reports a launch: local libraries carry it and
  /// workflows have been started, unless the service had none to give, which is logged. A service that goes
  /// away meanwhile is started again for 20 seconds. Errors: 10 the service serves on another port or the
  /// port is taken, 31 the service cannot be started, went away or was ended by terminateWAS, 11 an earlier
  /// one does not end, 9 it hangs, or the service's own. Never called back before initializeWAS.
  void startWASServiceWithPort(std::int64_t port, Completion completion);

  /// Stops the web server and the databases; the service process stays. Called back at once without a
  /// service.
  void stopWASService(std::function<void()> completion);

  /// Removes lock files, stops the web server and the databases, and ends the service process, for every
  /// process that uses it. Called back at once without a service.
  void terminateWAS(std::function<void()> completion);

  /// False at once before initializeWAS, and when no service runs; true exactly when the web server runs.
  void isRunning(std::function<void(bool running)> completion);

  /// The same with the port of the web server; 0 when it does not run.
  void serviceState(std::function<void(bool running, std::int64_t port)> completion);

  /// The sessions in the order reported; none with an error. Never called back before initializeWAS.
  void getUserSessions(std::function<void(std::vector<TQSession> sessions, TQErrorPtr error)> completion);

  /// TCP port of the local service, 38317 until startWASServiceWithPort sets another.
  std::atomic<std::int64_t> WASPort{38317};

 private:
  VornexSDK() = default;
};

}  // namespace vornex
