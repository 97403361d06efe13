#pragma once

#include <vornex/Types.h>

namespace vornex {

/// Class-level helpers that everything goes through: paths, errors, requests, loose values.
///
/// Thread-safety: every operation is safe on any thread.
class TQVornexUtil {
 public:
  /// Made on first use; holds nothing but the two tables.
  static TQVornexUtil& sharedInstance();

  /// File extensions in lower case by category ("Video", "Image", "Audio", "Document", "Extra"), each with
  /// its description. Absent when the resource could not be read.
  const std::optional<Dictionary>& assetExtensionDictory() const;
  /// Metadata keys, each with "string", "boolean", "integer", "longlong" or "date". Absent as above.
  const std::optional<Dictionary>& assetMetaDictory() const;

  // Paths (TQVornexUtilPaths.cpp). None of them creates anything; all are absolute unless they say otherwise,
  // and none ends in a slash.

  /// The first two are the same folder. The three "FromBrindle" name the host application's copies, which are
  /// the same files as those without it; "mongoDBFolder" is the shared database folder, "dbFolder" lies in
  /// the preference folder.

  static std::string rootFolder();
  static std::string groupContainerFolder();
  static std::string preferenceFolder();
  static std::string localLibraryPlist();
  static std::string networkLibraryPlist();
  static std::string networkUserPlist();
  static std::string localLibraryPlistFromBrindle();
  static std::string networkLibraryPlistFromBrindle();
  static std::string networkUserPlistFromBrindle();
  static std::string bookmarkPlist();
  static std::string workflowPlist();
  static std::string workflowPreferencePlist();
  static std::string notificationPlist();
  static std::string userPlist();
  static std::string frameioFolder();
  static std::string frameioJobDBPath();
  static std::string dbFolder();
  static std::string mongoDBFolder();

  /// Each is absent for an absent package folder.
  static OptionalString libraryPlistWithPackageFolder(const OptionalString& packageFolder);
  static OptionalString projectFolderWithPackageFolder(const OptionalString& packageFolder);
  static OptionalString projectPlistWithPackageFolder(const OptionalString& packageFolder);
  static OptionalString liveFolderWithPackageFolder(const OptionalString& packageFolder);
  static OptionalString liveFolderPlistWithPackageFolder(const OptionalString& packageFolder);
  static OptionalString fcpxLibraryFolderWithPackageFolder(const OptionalString& packageFolder);
  static OptionalString fcpxLibraryPlistWithPackageFolder(const OptionalString& packageFolder);
  static OptionalString mediaFolderWithPackageFolder(const OptionalString& packageFolder);
  static OptionalString assetMasterFolderWithPackageFolder(const OptionalString& packageFolder);
  static OptionalString assetThumbnailFolderWithPackageFolder(const OptionalString& packageFolder);
  static OptionalString assetPreviewFolderWithPackageFolder(const OptionalString& packageFolder);
  static OptionalString assetCatalogFolderWithPackageFolder(const OptionalString& packageFolder);
  static OptionalString workflowFolderWithPackageFolder(const OptionalString& packageFolder);
  static std::string workflowPlistWithPackageFolder(const std::string& packageFolder);
  static OptionalString extraFolderWithPackageFolder(const OptionalString& packageFolder);
  static OptionalString dbFolderWithPackageFolder(const OptionalString& packageFolder);

  /// To be put between a package folder and an asset's path in it: "/Media/Master/", "/Media/Thumbnail/",
  /// "Media/Preview/". The last has no slash in front, for it is appended as a path component; the others are
  /// appended as text.
  static std::string relativeMasterPath();
  static std::string relativeThumbnailPath();
  static std::string relativePreviewPath();

  /// "/yyyy/MM/dd/" and the group, local time; absent for an absent group.
  static OptionalString assetFolderWithGroupName(const OptionalString& group);
  /// "HHmmss" and "LFHHmmss", local time.
  static std::string assetGroupFolder();
  static std::string assetLiveFolder();

  /// Makes the folder if nothing is there and marks it as a package. The icon is the path of an image file,
  /// the name of a themed one, or absent. False, and logged, on failure.
  static bool createPackageFolder(const OptionalString& path, const OptionalString& withIcon);
  /// A fresh random UUID, upper case.
  static std::string UUIDString();
  /// This machine's UUID, upper case; absent when the platform gives none. The same for the life of the
  /// process.
  static OptionalString systemUUID();

  // Errors (TQVornexUtilErrors.cpp)

  /// Of the SDK's own domain.
  static TQErrorPtr errorWithCode(std::int64_t code, const std::string& message);
  static TQErrorPtr errorWithCode(std::int64_t code, const std::string& message, OptionalString domain);
  /// The error in the "Status" of an answer, or the first one in the elements of an array; null for success
  /// and without a "Status". Elements that are no objects are skipped; a "Status" that is no object is logged
  /// and gives null whatever follows. Without its "code" the code is -1.
  static TQErrorPtr errorWithResponse(const Value& response);
  /// Posts the notification that belongs to the error's code, if there is one, on this thread. Its object is
  /// the library's database name (std::string) where the error's userInfo has "dbname". Null does nothing.
  static void sendNotificationWithError(const TQErrorPtr& error);

  // Requests (TQVornexUtilRequests.cpp). A request carries the user ID and password (HTTP Basic), this
  // machine's UUID and the client type. Params are the body, as JSON; absent or null ones send none. It ends
  // within 30 seconds after it was sent, which may have to wait up to two minutes while others of this
  // process wait for the same server. The errors of both forms:
  // - the server's own, with its code, message and domain, whatever the HTTP status;
  // - of the domain "VORNEX SERVER" when the answer gives no code: 26, 4 and 8 for the HTTP statuses 401, 403
  //   and 404, 7 for an answer over the size limit and for a request that there was no room for, 31 when no
  //   whole answer arrived, else 1;
  // - 10001 of the SDK's domain for a URL or method that cannot be sent.
  // Those but the server's own carry the cause under kLocalizedFailureReasonKey.
  // When the URL names a library, userInfo has its database name under "dbname". Errors with code 31, 38, 39
  // and 40 are announced with sendNotificationWithError, unless the URL's path contains "login".

  using RequestCompletion = std::function<void(Value response, TQErrorPtr error)>;

  /// Returns at once; the completion is called once, on the main queue, with null and the error or with the
  /// answer, before the error is announced. A missing argument calls it at once, on this thread, with error
  /// 10000. The completion must not be empty.
  static void requestURL(const OptionalString& url, const OptionalString& userID,
                         const OptionalString& userPassword, const OptionalString& method,
                         const std::optional<Value>& params, RequestCompletion completion);
  /// The same, blocking. Null on failure, except that an answer which reports on single "items" is returned
  /// beside its error. *error is set in every case but one: a missing argument gives null and leaves it
  /// untouched. A null `error` announces nothing.
  static Value syncRequestURL(const OptionalString& url, const OptionalString& userID,
                              const OptionalString& userPassword, const OptionalString& method,
                              const std::optional<Value>& params, TQErrorPtr* error);

  // Loose values (TQVornexUtilValues.cpp). A null pointer is an absent value.

  /// Strings only; nothing is converted.
  static OptionalString stringValueFromObject(const Value* object);
  /// Arrays only, else an empty one.
  static Array arrayValueFromObject(const Value* object);
  /// Numbers, booleans and the leading digits of strings (0 without any); -1 for everything else.
  static std::int64_t integerValueFromObject(const Value* object);
  static std::int64_t longlongValueFromObject(const Value* object);
  static double doubleValueFromObject(const Value* object);
  /// A non-zero number, or a string that begins with Y, y, T, t or a non-zero digit; blanks, a sign and zeros
  /// may stand before the digit.
  static bool boolValueFromObject(const Value* object);

  /// 17 digits yyyyMMddHHmmssSSS, UTC; more for years after 9999. An absent date is now; 0, and logged, for
  /// one before the year 1.
  static std::int64_t dateNumberFromDate(std::optional<Date> date);
  /// The date's own milliseconds are replaced by the text, which should be three digits.
  static std::int64_t dateNumberFromDate(std::optional<Date> date, const std::string& ms);
  /// Absent for an absent number and for digits that are not a date number.
  static std::optional<Date> dateFromNumber(std::optional<std::int64_t> number);

  /// 0 video, 1 audio, 2 image, 3 document, 4 for all others. Letter case does not count.
  static std::int64_t assetTypeFromExtension(const std::string& extension);
  /// The kind of file in words, for an extension spelled exactly as listed (lower case); else empty.
  static std::string descriptionFromExtension(const OptionalString& extension);
  /// 0 string (unknown keys too), 1 boolean, 2 integer, 3 long long, 4 date. 4 when there is no table.
  static std::int64_t metaTypeFromString(const std::string& key);

  /// Signed decimal degrees from degrees, whole minutes, hundredths of a minute and a hemisphere letter with
  /// any separators ("37,33.50N"); W and S are negative. 0, and logged, with fewer than three numbers.
  static double convertFromGPSString(const std::string& text);
  /// "volumemodel", "volumevendor", "volumeprotocol", "volumekind", "volumename" (strings, empty when
  /// unknown) and "volumenetwork" (boolean) of the volume that holds the path; absent when it is unknown. May
  /// block on the file system.
  static std::optional<Dictionary> assetVolumeInfoFromVolumePath(const OptionalString& path);
  /// That information in words: "Media (USB Acme X1)", "Projects (Network Volume) smbfs".
  static OptionalString assetVolumeDescFromVolumeInfo(const std::optional<Dictionary>& info);

 private:
  TQVornexUtil() = default;
};

/// The sum of the sizes of everything below the folder, folders included, links not followed; 0 when there is
/// no folder. What cannot be read adds nothing; *error, unless null, is then the last failure. Blocks.
std::uint64_t sizeForFolderAtPath(const std::string& path, TQErrorPtr* error);

/// The text of a localisation key in the user's language, English otherwise; empty for an unknown key.
std::string LocalizedString(const std::string& key);

/// The MD5 digest of the UTF-8 bytes as 32 upper-case hexadecimal digits.
std::string MD5String(const std::string& text);

}  // namespace vornex
