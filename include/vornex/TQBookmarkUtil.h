#pragma once

#include <vornex/Types.h>

#include <mutex>
#include <vector>

namespace vornex {

/// One folder that the user chose, with the tokens that name it.
///
/// Thread-safety: a plain value.
struct TQBookmark {
  OptionalString filePath;
  std::optional<Data> bookmarkData;
  std::optional<Data> bookmarkMinimalData;

  /// Absent unless both tokens are there.
  static std::optional<TQBookmark> bookmarkWithDictionary(const Dictionary& dictionary);
  Dictionary bookmarkDictionary() const;
};

/// The folders that the user chose, kept in "bookmark.plist", and volume and alias helpers.
///
/// Thread-safety: safe on any thread.
class TQBookmarkUtil {
 public:
  static TQBookmarkUtil& sharedInstance();

  std::vector<TQBookmark> loadBookmarks();
  void unloadBookmarks();
  bool saveBookmarks();
  bool addBookmarkWithFilePath(const OptionalString& path);
  bool addBookmarkWithVolumePath(const OptionalString& path);
  std::optional<TQBookmark> bookmarkWithFilePath(const OptionalString& path) const;
  bool existBookmarkWithFilePath(const OptionalString& path) const;
  OptionalString findParentFolderFromFilePath(const OptionalString& path) const;
  bool accessibilityBookmarkWithFilePath(const OptionalString& path) const;
  bool hasDownloadFolderWithFilePath(const OptionalString& path) const;
  std::optional<Dictionary> volumeInfoWithPath(const OptionalString& path) const;
  std::optional<Data> bookmarkDataFromFilePath(const OptionalString& path) const;

  static OptionalString groupIdentifier();
  static std::string rootFolder();
  static std::string preferenceFolder();
  static std::string preferencePlist();
  static std::string bookmarkPlist();
  static std::string sqliteFilePath();
  static void startAllBookmarks();
  static OptionalString bookmarkURLFromPath(const OptionalString& path);
  static OptionalString volumePathFromFilePath(const OptionalString& path);
  static OptionalString realVolumePathFromFilePath(const OptionalString& path);
  static std::string systemVolumeName();
  static std::vector<std::string> userFolders();
  static bool isAliasFileWithPath(const std::string& path);
  /// The destination of a symbolic link as stored, possibly relative, or the path an alias file resolves to.
  static OptionalString resolvingAliasFileWithPath(const OptionalString& path);

 private:
  TQBookmarkUtil() = default;
  ~TQBookmarkUtil();
  mutable std::recursive_mutex monitor_;
  std::vector<TQBookmark> bookmarks_;
};

}  // namespace vornex
