#pragma once

#include <vornex/KeyedArchive.h>
#include <vornex/ProjectList.h>
#include <vornex/Types.h>

#include <atomic>
#include <mutex>
#include <utility>
#include <vector>

namespace vornex {

class ProjectIndex;
class TreeFile;
struct FileStamp;

/// The record of one asset library, local or network, and its trees.
///
/// Thread-safety: changes to one library and its trees are serialised by the caller. Other libraries, and the
/// manager, may be at work meanwhile: what they read of this one is guarded against this class's operations,
/// not against a member set by the host.
class TQLibrary : public Archivable, public std::enable_shared_from_this<TQLibrary> {
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

  /// Each sets its field, saves the library list and, for a local library, "library.plist", which gets what
  /// the list holds then: other programs' changes, too. An absent string changes nothing and gives false. The
  /// field keeps its new value when saving fails.
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

  std::string archivedClassName() const override;
  /// The record with its trees and its connection, whose user goes along.
  void encodeWithCoder(KeyedArchiver& coder) const override;
  void initWithCoder(KeyedUnarchiver& coder) override;

  // Lock files (TQLibraryLockFiles.cpp): each names a computer that uses the package folder.

  /// Whether this computer may use the package folder: no lock file is in it, or this computer's. Writes
  /// none. Error 10020 for another computer's; false without an error for a network library.
  bool createLibaryLockFileWithError(TQErrorPtr* error) const;
  /// Removes this computer's lock file; true when there is none.
  bool removeLibraryLockFile() const;
  /// Removes the first lock file of any computer; true when there is none.
  bool removeLibraryLockFileAll() const;

  // Project tree (TQLibraryProjects.cpp, TQLibraryProjectChanges.cpp). A local library's changes rewrite
  // "project.plist"; a network library's are made by its server first. A change that fails leaves the tree as
  // it was, unless stated otherwise. A local change also fails, as not saved (10003), when another program
  // has changed the file since the tree was loaded or archived, that is, when the file's hash is no longer
  // projectHashValue. A network library's change carries projectHashValue, and the server refuses it (its
  // code 13) when the tree has changed meanwhile. Either way: load the tree and try again. The next change of
  // a network library is made when the one before is answered, since its answer brings the new hash.

  /// Loads the tree from the server on a worker thread and calls back there: the root projects, or an error.
  /// Known root projects keep their objects; groups are built anew. Errors: 10000 no server, user or
  /// password, 10004 a useless answer, or the request's.
  void loadProjects(
      std::function<void(std::optional<std::vector<ProjectPtr>> projects, TQErrorPtr error)> completion);
  /// The same, blocking. Absent on failure.
  std::optional<std::vector<ProjectPtr>> loadProjects(TQErrorPtr* error);
  /// Builds a node's groups from its dictionary form, whose "group" holds its children.
  void loadGroups(const Dictionary& parent, const ProjectPtr& project, const ProjectPtr& rootProject);
  /// Adds a root project. Called back on a worker thread (main queue for a network library's answer). Errors:
  /// 10000 no name or an empty one, 10002 the name is taken, 10003 not saved, 10004 a useless answer, or the
  /// request's.
  void addProject(OptionalString name, std::function<void(ProjectPtr project, TQErrorPtr error)> completion);
  /// Removes an empty root project of a local library; what lies in the trash does not count. Called back on
  /// a worker thread. Errors: 10000, 10003, 10004 it holds assets, 10005 a network library, or those of
  /// asking the server what it holds.
  void removeProject(ProjectPtr project, Completion completion);
  /// Index by identifier, or -1.
  std::int64_t indexOfProject(const ProjectPtr& project) const;
  /// Reorders the root projects; the index counts positions before the move. Blocks for a network library.
  /// False, nothing changed and *error set, for an unknown item or an index out of range (10000), a refusal
  /// of the server (its error), a file that another program has changed (10003). True with *error set
  /// (10003): moved here, but not saved.
  bool moveItem(const ProjectPtr& item, std::int64_t toIndex, TQErrorPtr* error = nullptr);
  /// The project or group with the identifier, or null. Root projects come before groups. Costs the same
  /// however large the tree is, but for the first call after a change of this tree.
  ProjectPtr projectWithID(const std::string& id) const;
  /// Exact and case-sensitive.
  bool isExistNameInProjects(const std::string& name) const;
  /// Writes "project.plist" with a new random hash, keeping the keys that are not the tree's. The first save
  /// of a library that has no tree takes over the tree of the file. False when the file cannot be written, is
  /// there and cannot be read (a node without identifier, name or database name counts), or has another hash
  /// than projectHashValue: another program has changed it since the tree was loaded.
  bool saveProjects();
  /// Puts the node's children, if it has any, under "group" of its dictionary form.
  void loadGroup(const ProjectPtr& project, Dictionary& parent) const;

  // Live folders (TQLibraryLiveFolders.cpp)

  /// Index by identifier among the roots, or -1.
  std::int64_t indexOfLiveFolder(const LiveFolderPtr& liveFolder) const;
  /// Among the roots first, then inside each in order; null when unknown. Compared exactly.
  LiveFolderPtr liveFolderWithID(const std::string& ID) const;
  LiveFolderPtr liveFolderWithFileID(const std::string& fileID) const;
  LiveFolderPtr liveFolderWithPath(const std::string& path) const;
  /// Whether a root has the path.
  bool isExistPathInLiveFoldersWithPath(const std::string& path) const;

  // Final Cut Pro X libraries (TQLibraryFCPX.cpp). Changes rewrite "fcpxlibrary.plist" in the package folder,
  // with a new hash. As with the projects, what another program has changed since the tree was loaded or
  // archived is not written over: the change fails as not saved (10003), and the tree is to be loaded again.

  /// Loads the tree from the server; blocks. Known records keep their objects, events and multicam clips are
  /// made anew. Absent on failure: 10000 no server, user or password, 10004 a useless answer, or the
  /// request's.
  std::optional<std::vector<FCPXLibraryPtr>> loadFCPXLibrariesWithError(TQErrorPtr* error);
  /// Builds a record's events from its dictionary form, whose "events" holds them.
  void loadFCPXEventsWithlibraryDict(const Dictionary& libraryDict, const FCPXLibraryPtr& fcpxLibrary);
  /// Builds an event's clips from its dictionary form, whose "multicams" holds them.
  static void loadFCPXMulticamsWithDict(const Dictionary& eventDict, const FCPXEventPtr& fcpxEvent);
  /// Errors: 10000 no path or identifier, 10003, 10005 a network library. Null then; a caller who does not
  /// ask for the error gets the record that could not be saved, which the library does not hold.
  FCPXLibraryPtr addFCPXLibraryWithPath(const OptionalString& path, const OptionalString& UUIDString,
                                        TQErrorPtr* error);
  /// The index counts positions before the move. False for an unknown record or an index out of range, and
  /// when the move, which stays, is not saved.
  bool moveFCPXLibrary(const FCPXLibraryPtr& fcpxLibrary, std::int64_t toIndex);
  /// By identifier. False, and logged, for no record, in a network library, and when the removal, which
  /// stays, is not saved.
  bool removeFCPXLibrary(const FCPXLibraryPtr& fcpxLibrary);
  /// Index by identifier, or -1.
  std::int64_t indexOfFCPXLibrary(const FCPXLibraryPtr& fcpxLibrary) const;
  /// The first in the order of the tree, or null.
  FCPXLibraryPtr fcpxLibraryWithID(const std::string& ID) const;
  FCPXEventPtr fcpxEventWithID(const std::string& ID) const;
  FCPXMulticamPtr fcpxMulticamWithID(const std::string& ID) const;
  /// Writes "fcpxlibrary.plist" with a new random hash, under the same conditions as saveProjects().
  bool saveFCPXLibraryPlist();

  // Assets (TQLibraryAssets.cpp). The server changes first; the given assets follow where its answer confirms
  // them, matched by position. Without further word, completions come on the main queue with an answer, on a
  // worker thread with an error found before sending, and an error of a request that failed in part has the
  // identifiers of the unconfirmed assets under "failAssets" in its userInfo.

  /// Stores the values of the dictionary, whose values may be nested dictionaries. Blocking. Errors: 10000
  /// without assets; a failed request's. A failed request whose answer names no assets still gives true.
  bool updateAssets(const std::vector<AssetPtr>& assets, const Dictionary& metaDictionary, TQErrorPtr* error);
  /// The same on a worker thread; called back there. A failed request is always an error here.
  void updateAssets(const std::vector<AssetPtr>& assets, const Dictionary& metaDictionary,
                    Completion completion);
  /// Applies an answer to the assets by position and returns the ids that it does not confirm; absent when
  /// the answer has no "items".
  std::optional<std::vector<std::string>> updateAssets(const std::vector<AssetPtr>& assets,
                                                       const Dictionary& metaDict, const Value& response);
  void updateAssetsColor(const std::vector<AssetPtr>& assets, std::int64_t color, Completion completion);
  void updateAssetsRating(const std::vector<AssetPtr>& assets, std::int64_t rating, Completion completion);
  void updateAssetsFlagged(const std::vector<AssetPtr>& assets, bool flagged, Completion completion);
  /// Appends the dotted paths of the dictionary's leaves, each led by the prefix unless that is empty.
  static void parentKeyPath(const std::string& prefix, const Dictionary& dictionary,
                            std::vector<std::string>& keyPathArray);
  /// Stores a value under a dotted key path, making the missing levels. A level that is no dictionary is
  /// kept, and nothing is stored.
  static void updateMetaDataWithKeyPath(const std::string& keyPath, const Value& value, Dictionary& metaDict);

  /// Deletes the record on the server, and the file too if wanted. Blocking. True at once for an asset
  /// without identifier.
  bool deleteAsset(const AssetPtr& asset, bool wantRemoveOrignalFile, TQErrorPtr* error);

  /// Assets of live folders and Final Cut Pro X are not trashed: they leave their project. Error 10000
  /// without assets.
  void moveAssetsToTrash(const std::vector<AssetPtr>& assets, Completion completion);
  std::optional<std::vector<std::string>> moveAssetsToTrash(const std::vector<AssetPtr>& assets,
                                                            const Value& response);
  /// Assets whose project the library no longer holds fail: error 10007 lists them and those that the server
  /// did not confirm. When the request for the others fails besides, it is 10008 in the domain of that error.
  void restoreAssets(const std::vector<AssetPtr>& assets, Completion completion);
  std::optional<std::vector<std::string>> restoreAssets(const std::vector<AssetPtr>& assets,
                                                        const Value& response);
  /// Into a project or group, out of the trash. Error 10000 without assets or target.
  void moveAssets(const std::vector<AssetPtr>& assets, const ProjectPtr& toProject, Completion completion);
  std::optional<std::vector<std::string>> moveAssets(const std::vector<AssetPtr>& assets,
                                                     const ProjectPtr& toProject, const Value& response);

  // Import (src/import/ImportRecovery.cpp)

  /// Tidies up after imports of a local library that were killed: a record without its file is deleted, a
  /// file without a record is removed, a missing thumbnail or preview of a complete asset is made. Imports
  /// that run are left alone. True when nothing is left to do; else what could not be settled stays for the
  /// next time, and *error tells why (the server's or the request's error). Hosts call it after loading a
  /// library; every batch calls it too. Cheap when nothing is left. Blocks; safe on any thread.
  bool recoverInterruptedImports(TQErrorPtr* error);

  bool isShared = false;
  bool onlineStatus = false;
  std::atomic<bool> hasReferenceFile = false;
  /// The stored permissions; the operations isCreatable() and isEditable() decide.
  bool storedIsCreatable = false;
  bool storedIsEditable = false;
  bool fromBrindle = false;
  std::int64_t libraryType = kLibraryTypeLocal;
  /// Of a library that is in the manager's list, it is not to be changed: it is found by the one it had.
  OptionalString dbName;
  OptionalString name;
  OptionalString desc;
  OptionalString packageFolder;
  OptionalString mountPath;
  ProjectList projects;
  ConnectionPtr connection;
  OptionalString projectHashValue;
  OptionalString versionNumber;
  OptionalString bonjourName;
  OptionalString liveFolderHashValue;
  std::vector<LiveFolderPtr> liveFolders;
  /// In-memory copies of the lists of live folders and of Final Cut Pro X libraries, as archives carry them.
  Dictionary liveFolderDict;
  OptionalString fcpxLibraryHashValue;
  std::vector<FCPXLibraryPtr> fcpxLibraryItems;
  Dictionary fcpxLibraryDict;

 private:
  TQLibrary();

  /// "http://address:port/vornex/libraries/dbName" followed by the path.
  OptionalString serverURL(const std::string& path) const;
  /// Brings "library.plist" to what the saved list says of this library; its other keys stay.
  bool writeListedRow() const;
  /// Makes the change and saves it.
  bool saveFieldChange(const char* operation, bool sorts, const std::function<void()>& change);
  /// By which the list is sorted: the type, then the name.
  std::pair<std::int64_t, OptionalString> listOrder() const;
  void setProjectHash(OptionalString hash);
  void setFCPXLibraryHash(OptionalString hash);
  bool serverRight(const char* key) const;
  AssetFolderPtr makeAssetFolder(const std::string& group, const char* operation) const;

  struct TreeAnswer {
    Array nodes;
    OptionalString hash;
  };
  /// A tree as the server has it; from now on the file's copy of it is that one.
  std::optional<TreeAnswer> loadTree(const std::string& path, TreeFile& file, TQErrorPtr& error) const;
  /// The server's answer, and for a local library the state of the file that it stands for.
  Value askForTree(const std::string& path, const TreeFile& file, const TQUser& user, FileStamp& state,
                   TQErrorPtr& error) const;
  void takeProjects(const Array& nodes);
  /// The files of a local library's trees, for the package folder that it has now.
  TreeFile& projectFile();
  TreeFile& fcpxFile();
  /// As whom the server is asked; null, and error 10000, while that or the server is not known.
  UserPtr requestUser(TQErrorPtr& error) const;
  /// Before a local change: the tree of the file stands in while none was loaded or made. Error 10003 when
  /// the file is there but cannot be read whole, or there is no package folder.
  TQErrorPtr prepareChange();
  /// Null, or error 10003; *isOvertaken becomes true when another program has changed the file.
  TQErrorPtr saveTree(bool* isOvertaken = nullptr);
  TQErrorPtr projectsNotSaved(const std::string& reason) const;
  void adoptProject(const ProjectPtr& project);
  void addNetworkProject(const std::string& newName,
                         const std::function<void(ProjectPtr project, TQErrorPtr error)>& completion);
  ProjectPtr addLocalProject(const std::string& newName, TQErrorPtr& error);
  TQErrorPtr removeLocalProject(const ProjectPtr& project);
  /// Asks the server for one change of the tree, and takes over the hash that it answers. The answer's
  /// identifier, or absent with an error.
  OptionalString sendTreeChange(const std::string& operation, const Dictionary& item, TQErrorPtr& error);
  void sendTreeChange(const std::string& operation, const Dictionary& item,
                      std::function<void(OptionalString id, TQErrorPtr error)> completion);
  OptionalString takeTreeChange(const Value& response, TQErrorPtr& error);
  Value treeChangeBody(Dictionary item) const;
  /// Whether the item may be moved: a network library asks its server.
  bool confirmMove(const TQProject& item, const OptionalString& parentID, std::int64_t toIndex,
                   TQErrorPtr& error);
  /// Saves a local library's tree after a move, with an error when it cannot be. False when the move has to
  /// be taken back.
  bool saveMove(TQErrorPtr& error);
  /// Whether the node is in the tree: every list on the way up has it.
  bool holds(const TQProject& node) const;

  void takeFCPXLibraries(const Array& records);
  // As of prepareChange() and saveTree(); their log line begins with the complaint.
  TQErrorPtr prepareFCPXChange(const char* complaint);
  TQErrorPtr fcpxNotSaved(const char* complaint, const std::string& reason) const;
  TQErrorPtr saveFCPXTree(const char* complaint = "Can't save fcpx library plist : ");
  /// Renames a node of the tree, whose name this is.
  TQErrorPtr renameFCPX(OptionalString& nodeName, const OptionalString& newName);
  /// Whether the very node is in the tree.
  bool holds(const TQFCPXLibrary& node) const;
  bool holds(const TQFCPXEvent& node) const;
  bool holds(const TQFCPXMulticam& node) const;

  using AssetIDs = std::optional<std::vector<std::string>>;
  TQErrorPtr assetUpdateError(const std::vector<AssetPtr>& assets) const;
  /// Sends the change for each asset, blocking, and applies the answer.
  AssetIDs sendMetaData(const std::vector<AssetPtr>& assets, const Dictionary& metaDict, TQErrorPtr& error);
  /// Sends changed items to the server and applies the answer.
  void sendAssetUpdate(Array items, std::function<AssetIDs(const Value& response)> apply,
                       Completion completion);

  static const ArchivedClass archivedClass_;

  /// Guards what the list of libraries is written and sorted by; held for no call to others.
  mutable std::mutex fields_;

  std::shared_ptr<TreeFile> projectFile_;
  std::shared_ptr<ProjectIndex> projectIndex_;
  bool isTreeLoaded_ = false;
  std::shared_ptr<TreeFile> fcpxFile_;
  bool isFCPXTreeLoaded_ = false;

  friend class TQAsset;
  friend class TQFCPXEvent;
  friend class TQFCPXLibrary;
  friend class TQFCPXMulticam;
  friend class TQLibraryManager;
  friend class TQProject;
  friend class TQSearchManager;
};

}  // namespace vornex
