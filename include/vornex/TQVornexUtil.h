#pragma once

#include <vornex/Types.h>

namespace vornex {

/// Class-level helpers that everything goes through: paths, errors, requests, loose values.
///
/// Thread-safety: every operation is safe on any thread.
class TQVornexUtil {
 public:
  // Paths (TQVornexUtilPaths.cpp). None of them creates anything.

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

  static std::string relativeMasterPath();
  static std::string relativeThumbnailPath();
  static std::string relativePreviewPath();

  /// "/yyyy/MM/dd/" and the group, local time; absent for an absent group.
  static OptionalString assetFolderWithGroupName(const OptionalString& group);
  /// "HHmmss" and "LFHHmmss", local time.
  static std::string assetGroupFolder();
  static std::string assetLiveFolder();

  /// Makes the folder if nothing is there and marks it as a package. The icon is the path of an image file,
  /// or absent. False, and logged, on failure.
  static bool createPackageFolder(const OptionalString& path, const OptionalString& withIcon);
  /// A fresh random UUID, upper case.
  static std::string UUIDString();
  /// This machine's UUID, upper case; absent when the platform gives none.
  static OptionalString systemUUID();

  // Errors (TQVornexUtilErrors.cpp)

  static TQErrorPtr errorWithCode(std::int64_t code, const std::string& message);
  static TQErrorPtr errorWithCode(std::int64_t code, const std::string& message, OptionalString domain);
  /// The error in the "Status" of an answer, or of the first element of an answer that has one; null for
  /// success.
  static TQErrorPtr errorWithResponse(const Value& response);
  /// Posts the notification that belongs to the error's code, if there is one, on this thread.
  static void sendNotificationWithError(const TQErrorPtr& error);

  // Requests (TQVornexUtilRequests.cpp)

  using RequestCompletion = std::function<void(Value response, TQErrorPtr error)>;

  /// Sends a request and calls back on the main queue; a missing argument calls back at once with error
  /// 10000. Absent params send no body. Time limit 30 seconds.
  static void requestURL(const OptionalString& url, const OptionalString& userID,
                         const OptionalString& userPassword, const OptionalString& method,
                         const std::optional<Value>& params, RequestCompletion completion);
  /// The same, blocking. Null without an answer; a missing argument gives null and leaves *error untouched. A
  /// null `error` posts no notification.
  static Value syncRequestURL(const OptionalString& url, const OptionalString& userID,
                              const OptionalString& userPassword, const OptionalString& method,
                              const std::optional<Value>& params, TQErrorPtr* error);

  // Loose values (TQVornexUtilValues.cpp). A null pointer is an absent value.

  static OptionalString stringValueFromObject(const Value* object);
  static Array arrayValueFromObject(const Value* object);
  /// -1 when the value cannot be read as a number.
  static std::int64_t integerValueFromObject(const Value* object);
  static std::int64_t longlongValueFromObject(const Value* object);
  static double doubleValueFromObject(const Value* object);
  static bool boolValueFromObject(const Value* object);

  /// 17 digits yyyyMMddHHmmssSSS, UTC. An absent date is now; 0 on failure.
  static std::int64_t dateNumberFromDate(std::optional<Date> date);
  static std::int64_t dateNumberFromDate(std::optional<Date> date, const std::string& ms);
  static std::optional<Date> dateFromNumber(std::optional<std::int64_t> number);

  static std::int64_t assetTypeFromExtension(const std::string& extension);
  static std::string descriptionFromExtension(const OptionalString& extension);
  static std::int64_t metaTypeFromString(const std::string& key);
  static double convertFromGPSString(const std::string& text);
  static std::optional<Dictionary> assetVolumeInfoFromVolumePath(const OptionalString& path);
  static OptionalString assetVolumeDescFromVolumeInfo(const std::optional<Dictionary>& info);
};

/// The text of a localisation key in the user's language, English otherwise; empty for an unknown key.
std::string LocalizedString(const std::string& key);

/// The MD5 digest of the UTF-8 bytes as 32 upper-case hexadecimal digits.
std::string MD5String(const std::string& text);

}  // namespace vornex
