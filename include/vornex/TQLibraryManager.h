#pragma once

#include <vornex/TQWorkflowItem.h>
#include <vornex/Types.h>

#include <mutex>
#include <vector>

namespace vornex {

class TQCopyInterface;
class TQWorkflowEngineInterface;
class XMPKit;

/// Owner of the list of known libraries; the entry point of the SDK.
///
/// Thread-safety: safe on any thread. Operations that change the list hold its monitor, which one thread may
/// enter repeatedly; lookups read a published snapshot and never wait for a writer.
class TQLibraryManager {
 public:
  /// Called, on a worker thread, before the database of a library is copied.
  using SyncHandler = std::function<void(LibraryPtr library, bool syncing)>;
  /// How many bytes of a database are copied, of how many; called while it is, on a worker thread. May be
  /// empty.
  using DatabaseProgress = std::function<void(std::int64_t done, std::int64_t total)>;

  /// Made on first use, with the preference folders; lives until the process ends. The list is empty until
  /// loadAllLibraries.
  static TQLibraryManager& sharedManager();

  /// Reads both list files on a worker thread, replaces every object of the list, and calls back there, while
  /// the list's monitor is held: the completion must not wait for another thread that changes the list.
  void loadAllLibraries(std::function<void(std::vector<LibraryPtr> libraries)> completion);
  /// The libraries of one list file, with their users; the list is not touched. Absent when the file cannot
  /// be read. A row that is no library is logged and left out.
  std::optional<std::vector<LibraryPtr>> loadLibrariesFromPlistFile(const std::string& path);

  /// A snapshot, in list order: local before network, each by name.
  std::vector<LibraryPtr> libraries() const;
  std::vector<LibraryPtr> localLibraries() const;
  std::vector<LibraryPtr> networkLibraries() const;
  /// Publishes the list anew, by type, then by name, byte by byte; for who has changed a name.
  void sortLibraries();

  /// The first library with the database name, or null.
  LibraryPtr libraryForDBName(const OptionalString& dbName) const;
  /// Whether a library of the same database name is in the list.
  bool findLibrary(const LibraryPtr& library) const;
  /// Each is empty for an absent argument.
  std::vector<LibraryPtr> findNetworkLibrariesWithBonjourName(const OptionalString& name) const;
  std::vector<LibraryPtr> findNetworkLibrariesWithIP(const OptionalString& address) const;

  /// Adds the libraries that are not in the list, keeps the credentials of network ones, and saves both
  /// lists. False as soon as a list cannot be saved; the libraries stay in the list. Libraries without a
  /// database name are never taken for one another.
  bool addLibraries(const std::vector<LibraryPtr>& libraries);
  /// Writes the libraries of the type to the local (0) or the network (any other type) list and has the
  /// service, if it runs, read its list again. What other processes have changed in the file since this one
  /// last read or wrote it stays; this list does not take it over. A record that has no dictionary form keeps
  /// its row; false, with the others written, when it has none yet.
  bool saveLibrariesFileWithType(std::int64_t type);

  /// Keeps the user's ID and password for the library. False when either argument or one of the values is
  /// missing, or the file cannot be written.
  bool saveNetworkUserFile(const UserPtr& user, const LibraryPtr& library);
  void deleteNetworkUserWithDBName(const OptionalString& dbName);
  /// The user whose credentials are kept for the library; without any, a user without ID and password. Null,
  /// and logged, when what is kept is not understood.
  UserPtr networkUserWithDBName(const OptionalString& dbName) const;
  /// The same from the host application's own file, read anew on each call.
  UserPtr networkUseFromBrindleWithDBName(const OptionalString& dbName) const;
  /// The credentials by database name, each {"userid", "userpassword"}, as in "networkUsers.plist" when the
  /// list was last loaded or a user last saved. A copy.
  Dictionary networkUserDict() const;
  /// Those of the host application as last read; absent when its file was missing then.
  std::optional<Dictionary> networkUserDictFromBrindle() const;

  /// Takes the library out of the list and saves the list of its type; false when that fails.
  bool deleteLibraryPlist(const LibraryPtr& library);
  /// The same, and forgets the credentials kept for it.
  bool deleteRemoteLibrary(const LibraryPtr& library);
  /// Removes the file of the local list; false when there is none.
  bool deleteLocalPlist();

  /// Gives the connections of local libraries the local user with the current password.
  void updateLocalPassword();
  /// Checks the lock files of the local libraries.
  void createLockFiles();
  /// Removes this computer's lock files from all packages but those of network libraries.
  void deleteLockFiles();
  /// Starts what needs the local account: the workflow engine learns where the service is and as whom to log
  /// in, and the copy service opens its folders.
  void startWorkflows();
  /// Has the service, the copy service and the workflow engine open the bookmarked folders.
  void startAllBookmarks();

  // Life cycle (TQLibraryManagerLifecycle.cpp). Completions may not be empty; the other handlers may.

  /// Makes the package folder, the library's files and its database, and adds the library to the list. The
  /// folder that is to contain the package folder must exist, or lie in a bookmarked one. Only what this call
  /// made is removed when it fails; what a creation that was killed has left there is removed first. Of
  /// several that create at one place at once, one succeeds. Called back on a worker thread. Errors: 10000 a
  /// missing argument, 10001 a network library or a relative path, 10002 the package folder exists or the
  /// database name is known, 10003 a file could not be written, 10010 the package folder could not be made,
  /// 10011 and 10012 no access to the folder above it, a "posix" error when a folder inside could not be
  /// made, or the service's error. When a step up to the service's consent fails, nothing stays behind. False
  /// without an error: another computer's lock file.
  void createLibrary(LibraryPtr library, Completion completion);

  /// Brings an existing package folder, which may have been moved or come from another computer, into the
  /// list. Without a working database the packaged one is restored; none is ever made. A working one that is
  /// there is kept, unless the package was backed up elsewhere since: then the packaged one is restored and
  /// the working one kept beside it (see keptDatabases). Forced, other computers' locks are broken once the
  /// library is in the list. Called back on a worker thread. Nothing of an import that fails stays, and the
  /// package is left as it was, but for "library.plist", which may tell its new place. Errors:
  /// 10001 a relative path, or a "library.plist" of something else than a local library; 10002 the database
  /// name is in the list; 10003 a file could not be written; 10011 and 10012 no access to the folder; 10019
  /// with a reason, the database could not be restored, or package and working database have both changed and
  /// the import is not forced; 10020 another computer's lock file; 10022 a package of a newer version; 10023
  /// lock files could not be removed; one of domain "posix" or "plist" when "library.plist" cannot be read;
  /// or the service's. False without an error: there is no library in the folder.
  void importLibraryWithPackageFolder(std::string packageFolder, bool forceSyncingDB, SyncHandler syncHandler,
                                      Completion completionHandler, DatabaseProgress progress = {});
  /// The end of an import: adds the record to the list, without looking for another one of its database name,
  /// and saves the list and "library.plist". Called back on the caller's thread: the library, or null and
  /// error 10003; then it is still in the list.
  void importLibrary(LibraryPtr library,
                     std::function<void(LibraryPtr library, TQErrorPtr error)> completion);

  /// Takes a library out of the list. Called back on a worker thread; on the caller's for a network library.
  ///
  /// Without allDelete, a local library's database is backed up into its package folder first, with which it
  /// can be imported again; of a library whose package folder is gone or empty (an unmounted disk), and of a
  /// network library, which has its credentials forgotten, only the list changes. With allDelete, the
  /// database and the package folder of a local library are removed. A folder that holds something else than
  /// this library is refused.
  ///
  /// Errors: 10000 no library, or, with a reason, the backup failed; 10001 the folder is not this library's;
  /// a "posix" error when something cannot be removed; or the service's error. False without an error: the
  /// list cannot be saved. A deletion that fails or is cut short can be repeated.
  void deleteLibrary(LibraryPtr library, bool allDelete, SyncHandler syncHandler, Completion completion,
                     DatabaseProgress progress = {});

  // Databases (TQLibraryManagerDatabase.cpp). At every instant, whatever is killed, one whole copy of the
  // database exists, and the next operation puts right what was left. Called back on a worker thread; an
  // error tells the cause, of domain "posix" or the service's. Operations on one database, or on one package,
  // wait for one another.

  /// Copies a local library's database into its package folder, consistent even while it is in use.
  void backupDatabaseWithLibrary(LibraryPtr library, Completion completion, DatabaseProgress progress = {});
  /// Copies the packaged database to the place of the working one if there is none; else succeeds and copies
  /// nothing.
  void restoreDatabaseWithLibrary(LibraryPtr library, Completion completion, DatabaseProgress progress = {});
  /// Puts a copy of the packaged database in the place of the working one: what was changed since the backup
  /// is gone. The service must know the library. It tries the packaged database first; when it cannot open
  /// it, the working one stays. Nobody else can open the library meanwhile.
  void replaceDatabaseWithLibrary(LibraryPtr library, Completion completion, DatabaseProgress progress = {});

  /// The folders of databases that had to make way when the library was imported and may hold changes that
  /// the package lacked, by name. Nothing uses them; the host may remove them. None for null.
  std::vector<std::string> keptDatabases(const LibraryPtr& library) const;

  /// Whether any computer's lock file is in the package folder; false when there is no library in it.
  bool alreadyUsingLibraryWithPackageFolder(const std::string& packageFolder) const;

  /// The process's copy service.
  TQCopyInterface& copyInterface();
  /// The process's reader of XMP metadata.
  const XMPKit& xmpKit() const;
  /// Kept for the host, which says what is in it; nothing here uses it. A copy.
  Array bookmarks() const;
  void setBookmarks(Array bookmarks);

  // Workflows (TQLibraryManagerWorkflows.cpp)

  /// The process's view of the workflow engine.
  TQWorkflowEngineInterface& workflowEngineInterface();
  /// The engine's job of the type, with its asset where the library and the asset are known. Without a job,
  /// an item that has only its action. Null for type -1, and for a job without an ID. Blocks until the engine
  /// and the server have answered.
  WorkflowAssetItemPtr currentWorkflowItemWithType(std::int64_t jobType);
  /// "copy", "upload", "lowres transcoding", "highres transcoding" for 0, 1, 3, 4; else "unknown".
  static std::string actionStringWithJobType(std::int64_t jobType);

 private:
  TQLibraryManager();
  ~TQLibraryManager() = delete;
  bool writeList(std::int64_t type);
  void loadNetworkUsers();
  /// Keeps the credentials of the network libraries among these, or these by database name.
  bool saveNetworkUsers(const std::vector<LibraryPtr>& libraries);
  bool saveNetworkUsers(const Dictionary& added);
  bool changeNetworkUsers(const char* operation, const std::function<void(Dictionary& users)>& change);
  struct State;
  const std::unique_ptr<State> state_;
};

}  // namespace vornex
