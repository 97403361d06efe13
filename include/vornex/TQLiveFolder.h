#pragma once

#include <vornex/KeyedArchive.h>
#include <vornex/Types.h>

#include <vector>

namespace vornex {

/// One folder on disk that a library watches, or a folder below it. The tree mirrors the folders on disk.
///
/// Thread-safety: none; changes to one library's trees are serialised by the caller.
class TQLiveFolder : public Archivable, public std::enable_shared_from_this<TQLiveFolder> {
 public:
  using Ptr = LiveFolderPtr;

  /// With a fresh UUID as identifier and the last component of the path as name. Null, and logged, without
  /// path or dbName, or when the folder's file number cannot be read.
  static Ptr liveFolderWithPath(OptionalString path, OptionalString dbName);
  /// The same with a given file number.
  static Ptr liveFolderWithPath(OptionalString path, OptionalString fileID, OptionalString dbName);
  /// Null without path or dbName.
  static Ptr liveFolderWithID(OptionalString ID, OptionalString path, OptionalString fileID,
                              OptionalString dbName, bool useFCPXAudioRoles, OptionalString audioRole);
  /// Null unless "id", "name", "dbname", "path" and "fileID" are strings.
  static Ptr liveFolderWithDictionary(const Dictionary& dictionary);
  /// The process's one node that stands for "no live folder"; it describes the library of the latest call.
  static Ptr undefinedLiveFolderWithLibrary(const LibraryPtr& library);
  /// Sorts by name, letter case ignored.
  static void sortWithSubFolders(std::vector<Ptr>& folders);

  /// Changes nothing unless the dictionary makes a node.
  void setDictionary(const Dictionary& dictionary);
  /// Without the folders below. Absent, and logged, when one of the required strings is missing.
  std::optional<Dictionary> liveFolderDictionary() const;

  /// Among the direct sub-folders, by identifier; -1 when unknown.
  std::int64_t indexOfSubFolder(const Ptr& folder) const;
  /// The receiver or the first node below it, depth first; null when unknown. Compared exactly.
  Ptr subFolderWithID(const std::string& ID);
  Ptr subFolderWithFileID(const std::string& fileID);
  Ptr subFolderWithPath(const std::string& path);
  /// All nodes below this one.
  std::int64_t descendantCount() const;
  /// Sets the status of the node and of each one below it whose path contains the given path, not looking
  /// below those whose path does not.
  static void scanStatusWithSubFolder(const Ptr& subFolder, const std::string& folderPath,
                                      std::int64_t scanStatus);

  std::string archivedClassName() const override;
  void encodeWithCoder(KeyedArchiver& coder) const override;
  void initWithCoder(KeyedUnarchiver& coder) override;

  std::weak_ptr<TQLibrary> library;
  /// A root's is itself.
  std::weak_ptr<TQLiveFolder> rootLiveFolder;
  /// None for a root.
  std::weak_ptr<TQLiveFolder> parent;
  OptionalString ID, name, dbName;
  std::vector<Ptr> subFolders;
  /// The folder's number in its file system, in decimal: it survives renaming and moving.
  OptionalString fileID;
  /// Absolute.
  OptionalString path;
  bool useFCPXAudioRoles = false;
  OptionalString audioRoles;
  /// The last state that the server reported.
  std::int64_t scanStatus = 0;

 private:
  TQLiveFolder() = default;
  /// The receiver or the first node below it with the text in the field.
  Ptr nodeWith(OptionalString TQLiveFolder::*field, const std::string& text);

  static const ArchivedClass archivedClass_;
};

}  // namespace vornex
