#pragma once

#include <vornex/Types.h>

#include <vector>

namespace vornex {

/// The record of one asset library, local or network, and its project tree.
///
/// Thread-safety: none of its own. Changes to one library and its trees are serialised by the caller.
class TQLibrary : public std::enable_shared_from_this<TQLibrary> {
 public:
  using Ptr = LibraryPtr;

  /// Null unless name, packageFolder and connection are present. The record gets a fresh UUID as `dbName`.
  static Ptr libraryWithName(OptionalString name, OptionalString desc, std::int64_t libType, bool shared,
                             bool creatable, bool editable, OptionalString packageFolder,
                             OptionalString mountPath, ConnectionPtr connection);

  /// Reads the 17-key form. Null without "dbname", "name", "packagefolder" or "address". A missing "type" or
  /// "port" reads as -1.
  static Ptr libraryWithDictionary(const Dictionary& dictionary);

  /// The 17-key form; absent (and logged) without dbName, name, packageFolder or address.
  std::optional<Dictionary> libDictionary() const;

  /// Writes libDictionary to the package folder's "library.plist", atomically. False when the folder is
  /// missing.
  bool writeToFile() const;

  /// Each sets its field, saves the library list and, for a local library, "library.plist". An absent string
  /// changes nothing and gives false. The field keeps its new value when saving fails.
  bool updateName(OptionalString name);
  bool updateDesc(OptionalString desc);
  bool updateMountPath(OptionalString mountPath);
  bool updateShared(bool shared);
  bool updateCreatable(bool creatable);
  bool updateEditable(bool editable);
  /// Sets the strings that are present, and shared; error 10003 when the list cannot be saved. The completion
  /// comes on the caller's thread.
  void updateNewName(OptionalString name, OptionalString desc, OptionalString mountPath, bool shared,
                     Completion completion);
  /// The same; gives whether "library.plist" was written, too.
  bool updateNewName(OptionalString name, OptionalString desc, OptionalString mountPath, bool shared,
                     TQErrorPtr* error);

  /// Whether assets may be added, or changed. A network library asks its server on every call (blocking); a
  /// local one answers its stored flag; any other type false.
  bool isCreatable() const;
  bool isEditable() const;

  /// The localised name of the type; empty for an unknown type.
  std::string libraryTypeString() const;
  std::string description() const;

  /// Whether dbName is a key of the dictionary.
  bool findLibrary(const Dictionary& libraries) const;
  /// The users, or the reviewers among them, to whom this library is assigned.
  std::vector<UserPtr> users() const;
  std::vector<UserPtr> reviewers() const;
  /// Local libraries only; a network library logs and does nothing.
  void addUsers(const std::vector<UserPtr>& users);
  void removeUsers(const std::vector<UserPtr>& users);

  /// Makes the master, thumbnail and preview folders of a new batch (the catalog folder is only named). Null,
  /// and logged, when one cannot be made.
  AssetFolderPtr createAssetFolder() const;
  AssetFolderPtr createAssetLiveFolder() const;

  // Lock files (TQLibraryLockFiles.cpp): each names a computer that uses the package folder.

  /// Whether this computer may use the package folder: no lock file is in it, or this computer's. Writes
  /// none. Error 10020 for another computer's; false without an error for a network library.
  bool createLibaryLockFileWithError(TQErrorPtr* error) const;
  /// Removes this computer's lock file; true when there is none.
  bool removeLibraryLockFile() const;
  /// Removes the first lock file of any computer; true when there is none.
  bool removeLibraryLockFileAll() const;

  // Project tree (TQLibraryProjects.cpp)

  /// Loads the tree from the server on a worker thread and calls back there: the root projects, or an error.
  /// Known root projects keep their objects; groups are built anew.
  void loadProjects(
      std::function<void(std::optional<std::vector<ProjectPtr>> projects, TQErrorPtr error)> completion);
  /// The same, blocking. Absent on failure.
  std::optional<std::vector<ProjectPtr>> loadProjects(TQErrorPtr* error);
  void loadGroups(const Dictionary& parent, const ProjectPtr& project, const ProjectPtr& rootProject);
  /// Adds a root project. Called back on a worker thread (main queue for a network library's answer). Errors:
  /// 10000 no name, 10002 the name is taken, 10003 not saved, 10004 a useless answer.
  void addProject(OptionalString name, std::function<void(ProjectPtr project, TQErrorPtr error)> completion);
  /// Removes an empty root project of a local library. Errors: 10000, 10003, 10004 it holds assets, 10005
  /// network.
  void removeProject(ProjectPtr project, Completion completion);
  /// Index by identifier, or -1.
  std::int64_t indexOfProject(const ProjectPtr& project) const;
  /// Reorders the root projects; the index counts positions before the move.
  bool moveItem(const ProjectPtr& item, std::int64_t toIndex);
  /// The project or group with the identifier, or null.
  ProjectPtr projectWithID(const std::string& id) const;
  bool isExistNameInProjects(const std::string& name) const;
  /// Writes "project.plist" with a new random hash.
  bool saveProjects();
  void loadGroup(const ProjectPtr& project, Dictionary& parent) const;

  // Assets (TQLibraryAssets.cpp)

  /// Applies the change on the server and to the assets it confirms; blocking. Errors: 10000 without assets;
  /// a failed request keeps its domain and code and names the failed assets under "failAssets".
  bool updateAssets(const std::vector<AssetPtr>& assets, const Dictionary& metaDictionary, TQErrorPtr* error);
  /// The same on a worker thread; called back there.
  void updateAssets(const std::vector<AssetPtr>& assets, const Dictionary& metaDictionary,
                    Completion completion);
  /// Applies an answer to the assets by position and returns the ids that it does not confirm; absent when
  /// the answer has no "items".
  std::optional<std::vector<std::string>> updateAssets(const std::vector<AssetPtr>& assets,
                                                       const Dictionary& metaDict, const Value& response);
  /// Deletes the record on the server. True at once for an asset without identifier.
  bool deleteAsset(const AssetPtr& asset, bool wantRemoveOrignalFile, TQErrorPtr* error);

  bool isShared = false;
  bool onlineStatus = false;
  bool hasReferenceFile = false;
  /// The stored permissions; the operations isCreatable() and isEditable() decide.
  bool storedIsCreatable = false;
  bool storedIsEditable = false;
  bool fromBrindle = false;
  std::int64_t libraryType = kLibraryTypeLocal;
  OptionalString dbName;
  OptionalString name;
  OptionalString desc;
  OptionalString packageFolder;
  OptionalString mountPath;
  std::vector<ProjectPtr> projects;
  ConnectionPtr connection;
  OptionalString projectHashValue;
  OptionalString versionNumber;
  OptionalString bonjourName;
  OptionalString liveFolderHashValue;
  OptionalString fcpxLibraryHashValue;

 private:
  TQLibrary() = default;

  /// "http://address:port/vornex/libraries/dbName" followed by the path.
  OptionalString serverURL(const std::string& path) const;
  bool saveFieldChange(const char* operation, bool sorts);
  bool serverRight(const char* key) const;
  AssetFolderPtr makeAssetFolder(const std::string& group, const char* operation) const;

  /// In-memory copy of "project.plist"; keys other than the tree's are kept.
  Dictionary projectDict_;

  friend class TQProject;
  friend class TQSearchManager;
};

}  // namespace vornex
