#pragma once

#include <vornex/Types.h>

#include <vector>

namespace vornex {

/// One asset: a media or document file kept in a library.
///
/// Thread-safety: none. masterURL(), downloadURL(), previewURL() and downloadPreviewURL() of a network
/// library's asset send a request and block.
class TQAsset : public std::enable_shared_from_this<TQAsset> {
 public:
  using Ptr = AssetPtr;
  using CopyProgress = std::function<void(double percent, std::int64_t bytes)>;
  using CopyReport = std::function<void(Value result, TQErrorPtr error)>;

  /// Null for an absent name.
  static Ptr assetWithName(OptionalString name);
  /// Null when "_id" or "name" is not a string.
  static Ptr assetWithDictionary(const Dictionary& dictionary);

  /// Fills the record; false, and nothing changed, when "_id" or "name" is missing. The name is only checked.
  /// What fails on the way, as writing the tags to the file may, is logged, and the rest stays as it was.
  bool setAssetDictionary(const Dictionary& dictionary);
  /// The form sent to the server; absent (and logged) on failure. It names the owner, also one that is known
  /// by its identifier in metaDataDictionary only.
  std::optional<Dictionary> assetDictionary() const;

  /// The library of the owner: of the live folder for an asset of one, of the Final Cut Pro X library for an
  /// asset of one, else of the project. Null when the asset has no owner.
  LibraryPtr library() const;
  /// Gives an asset whose owner the library does not know the stand-in of its kind (see
  /// undefinedProjectWithLibrary, undefinedLiveFolderWithLibrary and undefinedFCPXLibraryWithLibrary). As
  /// long as it has that one, library() is the given library, whatever the stand-in says.
  void linkToUndefinedOwner(const LibraryPtr& library);
  /// "name_id", with "(null)" for what is absent.
  std::string nameWithID() const;

  /// Absolute paths; absent without library or masterPath. The origin is the source of a reference, absent
  /// when the link in the package is gone.
  OptionalString managedMasterPath() const;
  OptionalString originMasterPath() const;
  /// URLs as percent-encoded strings; absent on every failure.
  OptionalString masterURL() const;
  OptionalString downloadURL() const;
  OptionalString previewURL() const;
  OptionalString downloadPreviewURL() const;
  OptionalString thumbnailURL() const;

  /// Each writes the file's tags and gives whether that worked.
  bool updateColorLabel(std::int64_t color);
  bool updateTags(const std::vector<std::string>& tags);
  static bool isColorTag(const std::string& tag);
  static std::string colorString(std::int64_t colorType);
  static bool findTagString(const std::string& tag, const std::vector<std::string>& tagArray);

  std::optional<Dictionary> xmpMetaWithPath(const std::string& path) const;
  std::optional<Dictionary> mediaInfoWithPath(const std::string& path) const;
  void setXMPData(Dictionary xmp) { xmpMeta = std::move(xmp); }

  // Fields whose writing also keeps metaDataDictionary current.
  const OptionalString& name() const { return name_; }
  void setName(OptionalString name);
  std::int64_t importStatus() const { return importStatus_; }
  void setImportStatus(std::int64_t status);
  bool isDeleted() const { return isDeleted_; }
  void setIsDeleted(bool deleted);
  std::int64_t rating() const { return rating_; }
  void setRating(std::int64_t rating);
  bool flagged() const { return flagged_; }
  void setFlagged(bool flagged);
  std::int64_t colorType() const { return colorType_; }
  /// Also writes the file's colour tag.
  void setColorType(std::int64_t colorType);
  /// Empty as well when they are absent.
  const std::vector<std::string>& tags() const;
  /// Also writes the file's tags. An asset whose tags are absent has no dictionary form.
  void setTags(std::vector<std::string> tags);
  void setTags(std::nullopt_t absent);

  bool wantReview = false;
  bool hasPreview = false;
  bool hasCatalog = false;
  bool hasLocation = false;
  bool isDuplicated = false;
  bool isLiveFolder = false;
  bool isFCPXLibrary = false;
  OptionalString id;
  OptionalString frameioID;
  OptionalString originID;
  std::uint64_t fileSize = 0;
  std::uint64_t rootFolderSize = 0;
  OptionalString fileExtension;
  std::int64_t type = 0;
  std::optional<Date> createDate, modifyDate, importDate, updateDate;
  /// Relative to the package folder.
  OptionalString masterPath, thumbnailPath, previewPath, catalogPath;
  std::optional<Dictionary> metaDataDictionary = Dictionary();
  ProjectPtr project, group;
  LiveFolderPtr liveFolder, liveSubFolder;
  FCPXLibraryPtr fcpxLibrary;
  FCPXEventPtr fcpxEvent;
  FCPXMulticamPtr fcpxMulticam;
  OptionalString calendarEventID;
  double latitude = 0, longitude = 0;
  OptionalString importer, importerDesc;
  /// 0: the package holds a link to the source file; any other value: the file itself.
  std::int64_t importType = 0;
  OptionalString importDiskLabel, importVolume, importFromPath;
  std::int64_t versionThumbnail = 0;
  Dictionary redInfo;
  CopyProgress copyProgressHandler;
  CopyReport copyReportHandler;
  Dictionary xmpMeta;
  std::optional<Dictionary> mediaInfo = Dictionary();

 private:
  TQAsset() = default;

  void readRecord(const Dictionary& dictionary);
  void noteMetaData(const char* key, Value value);
  std::string notedText(const char* key) const;
  bool belongsToLiveFolder() const { return isLiveFolder && !isFCPXLibrary; }
  bool belongsToFCPXLibrary() const { return isFCPXLibrary && !isLiveFolder; }
  void setOwnerKeys(Dictionary& form) const;
  /// The source file for a path in the package that holds a link, absent when it cannot be told; else the
  /// path.
  OptionalString resolvedPath(const std::string& path) const;
  bool canHavePreview() const;
  /// Asks the server for the address of a file.
  OptionalString askForURL(const char* operation, const char* pathKey, const OptionalString& path,
                           TQErrorPtr& error) const;

  OptionalString name_;
  std::int64_t importStatus_ = 0;
  bool isDeleted_ = false;
  std::int64_t rating_ = 0;
  bool flagged_ = false;
  std::int64_t colorType_ = 0;
  std::optional<std::vector<std::string>> tags_ = std::vector<std::string>();
  /// The owner that linkToUndefinedOwner gave, and for which library.
  std::shared_ptr<const void> standIn_;
  std::weak_ptr<TQLibrary> standInLibrary_;
};

/// Stores a value under a dotted key path, making the missing levels. A null value, an absent path and a
/// level that is no dictionary are logged, and nothing changes.
void setMetaValue(Dictionary& dictionary, const Value& value, const OptionalString& keyPath);

}  // namespace vornex
