#pragma once

#include <vornex/Types.h>

#include <memory>
#include <vector>

namespace vornex {

/// One folder that the user chose, with the tokens that name it.
///
/// Thread-safety: a plain value.
struct TQBookmark {
  OptionalString filePath;
  std::optional<Data> bookmarkData;
  std::optional<Data> bookmarkMinimalData;
  /// Whether loadBookmarks has started access to the folder and unloadBookmarks has not ended it.
  bool isAccessed = false;

  /// Absent unless both tokens are there.
  static std::optional<TQBookmark> bookmarkWithDictionary(const Dictionary& dictionary);
  Dictionary bookmarkDictionary() const;
};

/// The folders that the user chose, kept in "bookmark.plist", and volume and alias helpers.
///
/// A bookmark covers its folder and everything below it. Operations fail soft: false, absent or empty, and a
/// log line.
///
/// Thread-safety: safe on any thread. Operations block on the file system only; while `loadBookmarks` waits
/// for a slow folder, look-ups answer from the list as far as it has got.
class TQBookmarkUtil {
 public:
  /// Made on first use, without bookmarks; lives until the process ends.
  static TQBookmarkUtil& sharedInstance();

  /// Reads the file anew, keeps the entries whose folder is still there and open to this user, rewrites the
  /// file with them, starts access to them and gives them. An entry that is no bookmark ends the reading; the
  /// file is left alone then, and the next save removes the entry.
  std::vector<TQBookmark> loadBookmarks();
  /// Ends the access that loadBookmarks has started; the list stays. Programs need no leave to use a folder
  /// here, so that access is but the mark `isAccessed`: a folder of the list that is gone is logged, nothing
  /// is closed, and every folder can be used as before.
  void unloadBookmarks();
  /// A snapshot, in list order.
  std::vector<TQBookmark> bookmarks() const;
  /// Writes the list, keeping what other processes have added or removed meanwhile; an empty list is not
  /// written, and is a success.
  bool saveBookmarks();
  /// Adds the folder unless a bookmark covers it. The file is not written; the next save writes the bookmark
  /// that covers the folder even if another process has removed it.
  bool addBookmarkWithFilePath(const OptionalString& path);
  /// Adds the whole volume that holds the path. The file is not written.
  bool addBookmarkWithVolumePath(const OptionalString& path);
  /// The first bookmark of exactly this path, compared as the user's language does; a slash at the end does
  /// not count.
  std::optional<TQBookmark> bookmarkWithFilePath(const OptionalString& path) const;
  bool existBookmarkWithFilePath(const OptionalString& path) const;
  /// The topmost bookmarked folder that holds, or is, the path.
  OptionalString findParentFolderFromFilePath(const OptionalString& path) const;
  /// Whether a bookmark covers the path and its folder is still there and open to this user.
  bool accessibilityBookmarkWithFilePath(const OptionalString& path) const;
  /// Whether the path is, or lies in, the user's "Downloads".
  bool hasDownloadFolderWithFilePath(const OptionalString& path) const;
  /// The description of the volume that holds the path.
  std::optional<Dictionary> volumeInfoWithPath(const OptionalString& path) const;
  /// A token that names the folder or file.
  std::optional<Data> bookmarkDataFromFilePath(const OptionalString& path) const;

  /// Whether the file was of a form that is not read any more: one without a version, or of version "1.0",
  /// which is then removed (a failure is logged). (Operating systems that are to keep such a file are none of
  /// those this runs on.)
  bool needUpdateVersion();
  /// Writes the current version with an empty list, whatever the file holds; false when there are bookmarks.
  bool updateVersion();

  /// Absent: programs belong to no application group here.
  static OptionalString groupIdentifier();
  static std::string rootFolder();
  static std::string preferenceFolder();
  static std::string preferencePlist();
  static std::string bookmarkPlist();
  static std::string sqliteFilePath();
  /// Wakes the bookmarked folders, and their volumes, as the file lists them.
  static void startAllBookmarks();
  /// A file URL, percent-encoded.
  static OptionalString bookmarkURLFromPath(const OptionalString& path);
  /// "/Volumes/" and the name of the volume that holds the path.
  static OptionalString volumePathFromFilePath(const OptionalString& path);
  /// Where the volume that holds the path is mounted.
  static OptionalString realVolumePathFromFilePath(const OptionalString& path);
  static std::string systemVolumeName();
  /// The home folder of the user database.
  static std::vector<std::string> userFolders();
  /// Whether the item is a symbolic link, or the small file that stands for one where the file system has
  /// none.
  static bool isAliasFileWithPath(const std::string& path);
  /// The destination of a symbolic link as stored, possibly relative; the item of an alias file, absent when
  /// it is gone or replaced.
  static OptionalString resolvingAliasFileWithPath(const OptionalString& path);

 private:
  TQBookmarkUtil();
  ~TQBookmarkUtil() = delete;

  bool addBookmark(const std::string& path);
  void claim(const std::string& path);

  struct State;
  const std::unique_ptr<State> state_;
};

}  // namespace vornex
