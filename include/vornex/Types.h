#pragma once

#include <vornex/TQError.h>
#include <vornex/Value.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace vornex {

class TQAsset;
class TQAssetFolder;
class TQConnection;
class TQFCPXEvent;
class TQFCPXLibrary;
class TQFCPXMulticam;
class TQImportAsset;
class TQLibrary;
class TQLiveFolder;
class TQProject;
class TQUser;

using AssetPtr = std::shared_ptr<TQAsset>;
using AssetFolderPtr = std::shared_ptr<TQAssetFolder>;
using ConnectionPtr = std::shared_ptr<TQConnection>;
using FCPXEventPtr = std::shared_ptr<TQFCPXEvent>;
using FCPXLibraryPtr = std::shared_ptr<TQFCPXLibrary>;
using FCPXMulticamPtr = std::shared_ptr<TQFCPXMulticam>;
using ImportAssetPtr = std::shared_ptr<TQImportAsset>;
using LibraryPtr = std::shared_ptr<TQLibrary>;
using LiveFolderPtr = std::shared_ptr<TQLiveFolder>;
using ProjectPtr = std::shared_ptr<TQProject>;
using UserPtr = std::shared_ptr<TQUser>;

/// The end of an operation: ok, and the error when there is one. Each operation says on which thread it
/// comes.
using Completion = std::function<void(bool ok, TQErrorPtr error)>;

/// libraryType of a library.
inline constexpr std::int64_t kLibraryTypeLocal = 0;
inline constexpr std::int64_t kLibraryTypeNetwork = 1;

/// userType of a user.
inline constexpr std::int64_t kUserTypeNetwork = 0;
inline constexpr std::int64_t kUserTypeReviewer = 1;
inline constexpr std::int64_t kUserTypeLocalOwner = 2;

/// User ID and name of the owner of the local libraries.
inline constexpr const char* kTQLocalUserID = "vornex.local.user";

/// Asset types, as stored and sent.
enum AssetType : std::int64_t {
  kAssetTypeVideo = 0,
  kAssetTypeAudio = 1,
  kAssetTypeImage = 2,
  kAssetTypeDocument = 3,
  kAssetTypeExtra = 4,
};

}  // namespace vornex
