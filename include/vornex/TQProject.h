#pragma once

#include <vornex/KeyedArchive.h>
#include <vornex/ProjectList.h>
#include <vornex/Types.h>

#include <map>
#include <memory>
#include <mutex>
#include <vector>

namespace vornex {

inline constexpr std::int64_t kProjectTypeProject = 0;
inline constexpr std::int64_t kProjectTypeGroup = 1;

/// How a file enters a library.
enum class ImportType : std::int64_t { reference = 0, copy = 1 };

class ImportBatch;
class REDFolders;

/// One node of a library's project tree: a project at the top, a group below it.
///
/// Thread-safety: none; changes to one library's tree are serialised by the caller.
class TQProject : public Archivable, public std::enable_shared_from_this<TQProject> {
 public:
  using Ptr = ProjectPtr;

  /// Null unless id, name and dbName are present.
  static Ptr projectWithID(OptionalString id, OptionalString name, OptionalString dbName, std::int64_t type);
  /// The same with a fresh UUID as identifier.
  static Ptr projectWithName(OptionalString name, OptionalString dbName, std::int64_t type);
  /// Null unless "id", "name" and "dbname" are strings. A missing "type" reads as -1.
  static Ptr projectWithDictionary(const Dictionary& dictionary);
  /// The process's one project that stands for "no project"; it describes the library of the latest call and
  /// has no groups. Calls are safe on any thread, and so are its identifier, name and groupWithID()
  /// meanwhile; `dbName` and `library` are for hosts that search one library at a time: searches of others
  /// replace them.
  static Ptr undefinedProjectWithLibrary(const LibraryPtr& library);

  /// The four keys "id", "name", "dbname" and "type", without the groups. Absent, and logged, when the node
  /// has no id, name or dbName.
  std::optional<Dictionary> projectDictionary() const;
  /// Takes over the four keys; nothing unless "id", "name" and "dbname" are strings. The groups stay.
  void setDictionary(const Dictionary& dictionary);

  /// Among the direct children, by identifier; -1 when unknown.
  std::int64_t indexOfGroup(const Ptr& group) const;
  /// Depth first, the receiver included; null when unknown.
  Ptr groupWithID(const std::string& id);
  /// The search below a node; *findGroup must be null before and stays so when nothing is found, or without a
  /// node.
  void findGroupWithID(const std::string& id, const Ptr& parent, Ptr* findGroup);
  /// Among the direct children.
  Ptr findGroupWithName(const OptionalString& name) const;
  /// The project at the top of the node's tree; null when a node on the way up is no group.
  static Ptr findProjectWithGroup(const Ptr& group);
  /// Names are compared exactly.
  bool isExistNameInChildGroups(const std::string& name) const;
  bool isExistNameInChildGroups(const std::string& name, const Ptr& parent) const;
  /// All nodes below this one.
  std::int64_t descendantCount() const;

  // Changes. A local library's rewrite its "project.plist"; a network library's are made by its server first,
  // and the moves and the second rename block meanwhile. A change that fails leaves the tree as it was; only
  // a local move that cannot be saved is kept. A local change fails, too, when another program has changed
  // the file since the tree was loaded: load the tree and try again. Error 10003 has the reason in its
  // userInfo (kLocalizedFailureReasonKey). Completions come on the caller's thread, for a network library's
  // answer on the main queue. Groups lie at most 254 levels below their project.
  //
  // A node that is in no tree any more (it was removed, or a load has made new groups) cannot be changed:
  // error 10000. A network library's server knows it by its identifier: renamed and given groups it can be,
  // and the node that is in the tree now follows.

  /// Reorders within this node; the index counts positions before the move. False, and *error set, for an
  /// unknown item or an index out of range (10000), a refusal of the server (its error), a file that another
  /// program has changed (10003). True with *error set (10003): moved here, but not saved.
  bool moveItem(const Ptr& item, std::int64_t toIndex, TQErrorPtr* error = nullptr);
  /// Moves a child of this node into another parent, at an index of that parent's list; this node may be that
  /// parent, and the index then counts positions without the item. Also 10000 for a parent that lies within
  /// the item or in no tree of this library, 10001 for groups that would lie too deep.
  bool moveItem(const Ptr& item, std::int64_t toIndex, const Ptr& inParent, TQErrorPtr* error = nullptr);
  /// Errors: 10000 no name or an empty one, 10002 the name is taken (a network library leaves that to its
  /// server), 10003 not saved, 10004 a useless answer, or the request's.
  void rename(const OptionalString& name, Completion completion);
  bool rename(const OptionalString& name, TQErrorPtr* error);
  /// Errors as of rename; also 10001 for a group that would lie too deep.
  void addGroupWithName(const OptionalString& name,
                        std::function<void(Ptr group, TQErrorPtr error)> completion);
  /// Errors: 10000 no group, or one that its parent does not list, 10003 not saved, 10005 a network library.
  /// Whether the group holds assets is not asked.
  void removeGroup(const Ptr& group, Completion completion);
  /// The dictionary form as text.
  std::string description() const;

  std::string archivedClassName() const override;
  void encodeWithCoder(KeyedArchiver& coder) const override;
  /// The level is not archived. A node that several lists of an archive name comes back in one of them, and
  /// its parent is the node of that list, whatever the archive says. What it only refers to (library, root
  /// project, parent) is there as long as somebody keeps it.
  void initWithCoder(KeyedUnarchiver& coder) override;

  // Import (src/import/TQProjectImport.cpp). Local libraries only. The host's main queue must be pumped while
  // an import runs: the server's answers pass through it. Callbacks come on worker threads, never two at a
  // time for one batch. Failures of the file system have the domain "posix" and errno as code.

  /// progress in percent, below 100 until the file has ended well; finished ends the file, error null on
  /// success.
  using FileCallback = std::function<void(AssetPtr asset, double progress, std::int64_t bytes, bool finished,
                                          TQErrorPtr error)>;
  /// The host's view of one file, finishedCount being the files ended before it. A file that ends well gives
  /// 100 last, one that fails gives 0 and the error; 0 comes again and again while the file's disk keeps it
  /// waiting, when the asset may have no more than its name. Setting *stop, which is valid during the call,
  /// cancels the current file, takes it back from the library, and ends the batch.
  using ImportProgress =
      std::function<void(ImportAssetPtr item, AssetPtr asset, double progress, std::int64_t finishedCount,
                         std::int64_t bytes, bool* stop, TQErrorPtr error)>;

  /// Imports the files strictly one after another, up to the first item without a path. Returns at once; the
  /// completion comes once: (true, null) when the batch has ended, failed files or not, or on the caller's
  /// thread (false, error): 10009 the package folder, or the target folder of an indexed reference, is
  /// missing; 10005 a network library; (false, error) also when the batch itself could not go on. A failed
  /// file leaves neither a record nor files behind. What an earlier batch that was killed left behind is
  /// tidied up first.
  void createAssetsWithImportAssets(std::vector<ImportAssetPtr> items, ImportType importType,
                                    OptionalString targetDir, bool shouldIndexing,
                                    ImportProgress progressHandler, Completion completion);
  /// One file outside a batch, never copied into the package. The folders must belong to the caller alone.
  void importAssetWithSourcePath(const std::string& path, AssetFolderPtr assetFolder,
                                 const Dictionary& metaDict, ImportType importType, OptionalString targetDir,
                                 bool shouldIndexing, FileCallback completion);
  /// One file: the record, the file in the package, the server's record, the thumbnail, in this order. Blocks
  /// for the metadata; the rest follows on other threads. Errors: 10000 a missing argument, 10001 a folder
  /// outside the package, 10006 a useless answer, 10009 a missing file, 10011 a source that may not be read.
  /// What a failed file leaves behind is tidied up by the next batch.
  void createAssetWithFolder(AssetFolderPtr folder, OptionalString srcPath, OptionalString destDir,
                             bool shouldIndexing, bool doCopy, ImportType importType,
                             ImportAssetPtr importAsset, FileCallback completion);
  /// A new record for the file, placed in this project or group. Bytes of its name that are not UTF-8 are
  /// written as %XX.
  AssetPtr createAssetWithSrcPath(const std::string& srcPath, OptionalString masterPath,
                                  OptionalString thumbnailPath, OptionalString previewPath);
  /// The name, or "stem n.ext" with the first free n, when something is there in the folder; absent for
  /// absent arguments. Numbers end at 10000.
  static OptionalString availableFileNameWithPath(const OptionalString& dir, const OptionalString& fileName);
  /// Makes the server's record and sets the asset's id. Called back on the main queue, or at once with error
  /// 10000 without a connection. Error 10006 for a useless answer.
  void createAsset(AssetPtr asset, std::function<void(AssetPtr asset, TQErrorPtr error)> completion);
  /// The "_id" of the last element of "items".
  static OptionalString extractAssetIDWithResponse(const Value& response);
  /// Makes the catalog folder of a video and stores its path in the record; blocks. The path relative to the
  /// package folder, absent for other types and on failure (logged).
  OptionalString createCatalogPathWithAssetID(const std::string& assetID, std::int64_t type,
                                              const std::string& catalogFolderPath);
  /// Asks which referenced files the server cannot reach; called back on the main queue with those. When the
  /// server cannot tell, ok is false and all paths come back.
  void accessibilityForReferenceFilePaths(
      const std::vector<std::string>& paths,
      std::function<void(bool ok, TQErrorPtr error, std::vector<std::string> paths)> completion);
  /// Replaces whatever is at toPath by an alias of the source. False without a source or path.
  static bool createLinkFileAtPath(const OptionalString& source, const OptionalString& toPath,
                                   TQErrorPtr* error);
  /// Hands the file to the copy service with the asset's two copy handlers. The completion tells only whether
  /// the job was taken; 10011 when the source may not be read.
  void copyFileAtPath(const std::string& src, const std::string& toPath, AssetPtr asset,
                      Completion completion);
  /// Cancels the copy service's running job.
  void cancelFile();
  /// Removes the asset's preview, master and thumbnail from the package. Nothing without master or thumbnail
  /// path.
  void deleteFileAsset(const AssetPtr& asset);
  /// Hands new assets, as dictionaries, to the workflow engine, a second from now on a worker thread. Nothing
  /// for a network library. A batch calls it for every file that ends well.
  void addWorkflowWithAssets(std::vector<Dictionary> assetDictionaries);
  /// Called back on a worker thread: whether a thumbnail was written. The error is always null.
  void extractThumbnail(const std::string& source, const std::string& toPath, Completion completion);
  /// Writes the preview that a large or referenced image needs; blocks.
  void extractPreviewImageFromAsset(const AssetPtr& asset);
  /// Readers of what a file tells about itself; they block. An image's XMP, and where it was taken.
  static void addXMPDataWithAsset(const AssetPtr& asset, const std::string& srcPath);
  /// Replaces the media information; empty when the file tells none.
  static void addMediaInfoWithAsset(const AssetPtr& asset, const std::string& srcPath);
  /// Of RED clips alone.
  static void addRedMetaDataWithAsset(const AssetPtr& asset, const std::string& srcPatch);
  /// Names of RED clips: see the operations of the same meaning in src/import/FileNames.h.
  static OptionalString reelNameForREDFileName(const OptionalString& name);
  static OptionalString availableREDFolderNameWithPath(const OptionalString& dir,
                                                       const OptionalString& folderName);
  static OptionalString referenceREDFileFromFolderPath(const OptionalString& folder,
                                                       const OptionalString& targetDir);

  /// Source folder of RED clips to the folder chosen for its copy, of the batch started last; absent when
  /// that has ended. Safe on any thread.
  std::optional<std::map<std::string, std::string>> availableTargetREDFolders() const;

  std::weak_ptr<TQLibrary> library;
  std::weak_ptr<TQProject> rootProject;
  std::weak_ptr<TQProject> parent;
  OptionalString id;
  OptionalString name;
  OptionalString dbName;
  std::int64_t projectType = kProjectTypeProject;
  ProjectList childGroups;
  /// 0 for projects, the parent's level + 1 for groups loaded from the server.
  std::int64_t level = 0;

 private:
  TQProject() = default;

  static const Ptr& undefinedProject();
  /// Why the child cannot move there; null when nothing here speaks against it.
  TQErrorPtr refusalOfMove(const Ptr& item, std::int64_t toIndex, const TQProject& inParent) const;
  /// The parent that a change names to the server: the node's own for a project.
  OptionalString parentID() const;
  /// The node that stands for this one in its library's tree: another one when a load has made new groups.
  Ptr nodeInTree();
  Dictionary renameRequest(const std::string& newName) const;
  /// Ends a renaming by the server, which the name was changed for.
  void endRename(bool isDone, const OptionalString& oldName);
  TQErrorPtr renameLocally(const std::string& newName, TQLibrary& owner);
  void adoptGroup(const Ptr& group);
  /// Those of an archived list that no other list has claimed: a tree names each of its nodes once.
  static ProjectList decodeNodes(KeyedUnarchiver& coder, std::string_view key);

  static const ArchivedClass archivedClass_;
  bool isClaimed_ = false;

  mutable std::mutex redFoldersMutex_;
  std::shared_ptr<const REDFolders> redFolders_;
  friend class ImportBatch;

  friend class TQLibrary;
};

}  // namespace vornex
