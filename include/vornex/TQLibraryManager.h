#pragma once

#include <vornex/Types.h>

#include <mutex>
#include <vector>

namespace vornex {

class TQCopyInterface;

/// Owner of the list of known libraries; the entry point of the SDK.
///
/// Thread-safety: safe on any thread. Writers hold the list's monitor; lookups read a published snapshot and
/// take no lock that a writer holds while it works.
class TQLibraryManager {
 public:
  using SyncHandler = std::function<void(LibraryPtr library, bool syncing)>;

  /// Made on first use, with the preference folders; lives until the process ends. The list is empty until
  /// loadAllLibraries.
  static TQLibraryManager& sharedManager();

  /// Reads both list files on a worker thread and calls back there, while the list's monitor is held.
  void loadAllLibraries(std::function<void(std::vector<LibraryPtr> libraries)> completion);
  /// Absent when the file cannot be read; the list is not touched.
  std::optional<std::vector<LibraryPtr>> loadLibrariesFromPlistFile(const std::string& path);

  /// A snapshot, in list order: local before network, each by name.
  std::vector<LibraryPtr> libraries() const;
  std::vector<LibraryPtr> localLibraries() const;
  std::vector<LibraryPtr> networkLibraries() const;
  void sortLibraries();

  /// The first library with the database name, or null.
  LibraryPtr libraryForDBName(const OptionalString& dbName) const;
  bool findLibrary(const LibraryPtr& library) const;
  std::vector<LibraryPtr> findNetworkLibrariesWithBonjourName(const OptionalString& name) const;
  std::vector<LibraryPtr> findNetworkLibrariesWithIP(const OptionalString& address) const;

  /// Adds the libraries that are not in the list, keeps the credentials of network ones, and saves both
  /// lists.
  bool addLibraries(const std::vector<LibraryPtr>& libraries);
  /// Writes the local (0) or the network (any other type) list and has the local service reload its own.
  bool saveLibrariesFileWithType(std::int64_t type);

  bool saveNetworkUserFile(const UserPtr& user, const LibraryPtr& library);
  void deleteNetworkUserWithDBName(const OptionalString& dbName);
  UserPtr networkUserWithDBName(const OptionalString& dbName);

  bool deleteLibraryPlist(const LibraryPtr& library);
  bool deleteRemoteLibrary(const LibraryPtr& library);
  bool deleteLocalPlist();

  void updateLocalPassword();
  void createLockFiles();
  void deleteLockFiles();
  void startWorkflows();
  void startAllBookmarks();

  // Life cycle (TQLibraryManagerLifecycle.cpp)

  /// Makes the package folder, the library's files and its database. Runs on a worker thread and calls back
  /// on a worker or the service's thread. Errors: 10000 a missing argument, 10001 a network library, 10002
  /// the package folder exists, 10003 a file could not be written, 10010 the folder could not be made, 10011
  /// and 10012 no access to the place, or the service's error.
  void createLibrary(LibraryPtr library, Completion completion);
  /// With allDelete the package folder and the database are removed too. Called back on a worker or the
  /// service's thread.
  void deleteLibrary(LibraryPtr library, bool allDelete, SyncHandler syncHandler, Completion completion);

  /// The process's copy service; never null.
  TQCopyInterface& copyInterface();

 private:
  TQLibraryManager();
  ~TQLibraryManager();
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace vornex
