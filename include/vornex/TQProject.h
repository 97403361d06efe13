#pragma once

#include <vornex/Types.h>

#include <map>
#include <vector>

namespace vornex {

inline constexpr std::int64_t kProjectTypeProject = 0;
inline constexpr std::int64_t kProjectTypeGroup = 1;

/// How a file enters a library.
enum class ImportType : std::int64_t { reference = 0, copy = 1 };

/// One node of a library's project tree: a project at the top, a group below it.
///
/// Thread-safety: none; changes to one library's tree are serialised by the caller.
class TQProject : public std::enable_shared_from_this<TQProject> {
 public:
  using Ptr = ProjectPtr;

  /// Null unless id, name and dbName are present.
  static Ptr projectWithID(OptionalString id, OptionalString name, OptionalString dbName, std::int64_t type);
  /// The same with a fresh UUID as identifier.
  static Ptr projectWithName(OptionalString name, OptionalString dbName, std::int64_t type);
  /// Null unless "id", "name" and "dbname" are strings. A missing "type" reads as -1.
  static Ptr projectWithDictionary(const Dictionary& dictionary);
  /// The process's one project that stands for "no project"; it describes the library of the latest call.
  static Ptr undefinedProjectWithLibrary(const LibraryPtr& library);

  std::optional<Dictionary> projectDictionary() const;
  void setDictionary(const Dictionary& dictionary);

  /// Among the direct children, by identifier; -1 when unknown.
  std::int64_t indexOfGroup(const Ptr& group) const;
  /// Depth first, the receiver included; null when unknown.
  Ptr groupWithID(const std::string& id);
  /// The search below a node; *findGroup must be null before and stays so when nothing is found.
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
  // and the moves and the second rename block meanwhile. A change that fails leaves the tree as it was, but a
  // local move that cannot be saved is kept, and logged. Completions come on the caller's thread, for a
  // network library's answer on the main queue.

  /// Reorders within this node; the index counts positions before the move. False for an unknown item, an
  /// index out of range or a refusal of the server.
  bool moveItem(const Ptr& item, std::int64_t toIndex);
  /// Moves a child of this node into another parent, at an index of that parent's list. Also false for a
  /// parent that lies within the item.
  bool moveItem(const Ptr& item, std::int64_t toIndex, const Ptr& inParent);
  /// Errors: 10000 no name, 10002 the name is taken (a network library leaves that to its server), 10003 not
  /// saved, 10004 a useless answer, or the request's.
  void rename(const OptionalString& name, Completion completion);
  bool rename(const OptionalString& name, TQErrorPtr* error);
  /// Errors as of rename.
  void addGroupWithName(const OptionalString& name,
                        std::function<void(Ptr group, TQErrorPtr error)> completion);
  /// Errors: 10000 no group, or one that its parent does not list, 10003 not saved, 10005 a network library.
  /// Whether the group holds assets is not asked.
  void removeGroup(const Ptr& group, Completion completion);
  /// The dictionary form as text.
  std::string description() const;

  // Import (src/import/TQProjectImport.cpp)

  /// progress in percent; finished ends the file; error null on success.
  using FileCallback = std::function<void(AssetPtr asset, double progress, std::int64_t bytes, bool finished,
                                          TQErrorPtr error)>;
  /// The host's view of one file; setting *stop ends the batch after the current file.
  using ImportProgress =
      std::function<void(ImportAssetPtr item, AssetPtr asset, double progress, std::int64_t finishedCount,
                         std::int64_t bytes, bool* stop, TQErrorPtr error)>;

  void createAssetsWithImportAssets(std::vector<ImportAssetPtr> items, ImportType importType,
                                    OptionalString targetDir, bool shouldIndexing,
                                    ImportProgress progressHandler, Completion completion);
  void importAssetWithSourcePath(const std::string& path, AssetFolderPtr assetFolder,
                                 const Dictionary& metaDict, ImportType importType, OptionalString targetDir,
                                 bool shouldIndexing, FileCallback completion);
  void createAssetWithFolder(AssetFolderPtr folder, OptionalString srcPath, OptionalString destDir,
                             bool shouldIndexing, bool doCopy, ImportType importType,
                             ImportAssetPtr importAsset, FileCallback completion);
  AssetPtr createAssetWithSrcPath(const std::string& srcPath, OptionalString masterPath,
                                  OptionalString thumbnailPath, OptionalString previewPath);
  static OptionalString availableFileNameWithPath(const OptionalString& dir, const OptionalString& fileName);
  void createAsset(AssetPtr asset, std::function<void(AssetPtr asset, TQErrorPtr error)> completion);
  static OptionalString extractAssetIDWithResponse(const Value& response);
  static bool createLinkFileAtPath(const OptionalString& source, const OptionalString& toPath,
                                   TQErrorPtr* error);
  void copyFileAtPath(const std::string& src, const std::string& toPath, AssetPtr asset,
                      Completion completion);
  void cancelFile();
  void deleteFileAsset(const AssetPtr& asset);
  void extractThumbnail(const std::string& source, const std::string& toPath, Completion completion);
  void extractPreviewImageFromAsset(const AssetPtr& asset);

  std::weak_ptr<TQLibrary> library;
  std::weak_ptr<TQProject> rootProject;
  std::weak_ptr<TQProject> parent;
  OptionalString id;
  OptionalString name;
  OptionalString dbName;
  std::int64_t projectType = kProjectTypeProject;
  std::vector<Ptr> childGroups;
  /// 0 for projects, the parent's level + 1 for groups loaded from the server.
  std::int64_t level = 0;

 private:
  TQProject() = default;

  /// The parent that a change names to the server: the node's own for a project.
  OptionalString parentID() const;
  Dictionary renameRequest(const std::string& newName) const;
  TQErrorPtr renameLocally(const std::string& newName, TQLibrary& owner);
  void adoptGroup(const Ptr& group);

  friend class TQLibrary;
};

}  // namespace vornex
