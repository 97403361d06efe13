#include "platform/FolderAccess.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "foundation/PropertyList.h"
#include "platform/Volumes.h"

namespace vornex {

namespace {

constexpr std::int64_t kVersion = 1;

/// Which item is at a path. A device number can change when a disk is plugged in again and an inode number
/// can be given out again when an item is deleted, hence the identifiers of the file system and the time of
/// birth. Network and FUSE mounts often have neither those nor a lasting device number; what is mounted tells
/// them apart. Some file systems number their items anew at each mount. An overlay may give an item another
/// time of birth when something in it is first changed, and other numbers when it is mounted again.
struct Identity {
  std::uint64_t device = 0;
  std::uint64_t fileSystem = 0;  // 0: it has no number of its own
  std::string volume;            // the volume's UUID; empty when unknown
  std::string source;            // what a network or FUSE volume is of; empty for others
  std::uint64_t inode = 0;       // 0: it means nothing here
  std::int64_t birth = 0;        // nanoseconds; 0: the file system does not keep it
  bool isOnOverlay = false;

  bool isOnVolumeOf(const Identity& other) const {
    if (!volume.empty() && !other.volume.empty()) return volume == other.volume;
    return device == other.device || (fileSystem != 0 && fileSystem == other.fileSystem) ||
           (!source.empty() && source == other.source);
  }

  bool matches(const Identity& other) const {
    bool isRenumbered = isOnOverlay && device != other.device;
    bool sameInode = inode == other.inode || inode == 0 || other.inode == 0 || isRenumbered;
    bool sameBirth = birth == other.birth || birth == 0 || other.birth == 0 || isOnOverlay;
    return isOnVolumeOf(other) && sameInode && sameBirth;
  }
};

bool keepsInodes(const std::string& fileSystemKind) {
  constexpr std::array kRenumbering = {"vfat", "msdos", "exfat", "cifs", "smb3"};
  return !fileSystemKind.starts_with("fuse") &&
         std::find(kRenumbering.begin(), kRenumbering.end(), fileSystemKind) == kRenumbering.end();
}

std::string text(const Dictionary& dictionary, const char* key) {
  const Value* value = dictionary.find(key);
  const std::string* string = value ? value->ifString() : nullptr;
  return string ? *string : std::string();
}

Result<Identity> identityOf(const std::string& path) {
  struct statx status {};
  if (statx(AT_FDCWD, path.c_str(), 0, STATX_TYPE | STATX_INO | STATX_BTIME, &status) != 0) {
    return posixFailure(errno, "cannot find " + path);
  }
  int wanted = S_ISDIR(status.stx_mode) ? R_OK | X_OK : R_OK;
  if (faccessat(AT_FDCWD, path.c_str(), wanted, AT_EACCESS) != 0)
    return posixFailure(errno, "cannot read " + path);

  Identity identity;
  identity.device = (std::uint64_t{status.stx_dev_major} << 32) | status.stx_dev_minor;
  auto volume = volumeDescription(path);
  if (volume) identity.volume = text(*volume, volumeKey::uuid);
  if (volume) identity.source = text(*volume, volumeKey::source);
  identity.isOnOverlay = volume && text(*volume, volumeKey::kind) == "overlay";
  if (!volume || keepsInodes(text(*volume, volumeKey::kind))) identity.inode = status.stx_ino;
  if (status.stx_mask & STATX_BTIME) {
    identity.birth = status.stx_btime.tv_sec * 1'000'000'000 + status.stx_btime.tv_nsec;
  }
  struct statvfs fileSystem {};
  if (statvfs(path.c_str(), &fileSystem) == 0) identity.fileSystem = fileSystem.f_fsid;
  return identity;
}

/// Without doubled slashes, "." and a slash at the end. ".." stays: after a link it leads elsewhere.
std::string withoutEmptySteps(const std::filesystem::path& absolute) {
  std::string path;
  for (const std::filesystem::path& step : absolute.relative_path())
    if (!step.empty() && step != ".") path += '/' + step.string();
  return path.empty() ? "/" : path;
}

std::uint64_t unsignedNumber(const Dictionary& dictionary, std::string_view key) {
  const Value* value = dictionary.find(key);
  if (!value) return 0;
  if (auto number = value->ifInteger()) return static_cast<std::uint64_t>(*number);
  if (auto number = value->ifUnsigned()) return *number;
  return 0;
}

}  // namespace

Result<Data> makeAccessToken(const std::string& path) {
  std::error_code error;
  std::filesystem::path absolute = std::filesystem::absolute(path, error);
  if (path.empty() || error)
    return posixFailure(path.empty() ? ENOENT : error.value(), "cannot find " + path);
  std::string absolutePath = withoutEmptySteps(absolute);

  auto identity = identityOf(absolutePath);
  if (!identity) return tl::unexpected(identity.error());
  auto bytes = writePropertyList(Dictionary{{"version", kVersion},
                                            // Data, for a path need not be UTF-8.
                                            {"path", Data(absolutePath.begin(), absolutePath.end())},
                                            {"device", static_cast<std::int64_t>(identity->device)},
                                            {"filesystem", static_cast<std::int64_t>(identity->fileSystem)},
                                            {"volume", identity->volume},
                                            {"source", identity->source},
                                            {"inode", static_cast<std::int64_t>(identity->inode)},
                                            {"birth", identity->birth}},
                                 PropertyListFormat::binary);
  if (!bytes) return tl::unexpected(bytes.error());
  return Data(bytes->begin(), bytes->end());
}

Result<std::string> resolveAccessToken(const Data& token) {
  auto value = parsePropertyList({reinterpret_cast<const char*>(token.data()), token.size()});
  const Dictionary* fields = value ? value->ifDictionary() : nullptr;
  const Value* version = fields ? fields->find("version") : nullptr;
  const Value* path = fields ? fields->find("path") : nullptr;
  if (!version || !path || !path->ifData() || path->ifData()->empty()) {
    return failure("access", 1, "not an access token");
  }
  if (*version != Value(kVersion)) return failure("access", 2, "access token of an unknown version");

  std::string stored(path->ifData()->begin(), path->ifData()->end());
  auto present = identityOf(stored);
  if (!present) return tl::unexpected(present.error());
  Identity remembered{unsignedNumber(*fields, "device"),
                      unsignedNumber(*fields, "filesystem"),
                      text(*fields, "volume"),
                      text(*fields, "source"),
                      unsignedNumber(*fields, "inode"),
                      static_cast<std::int64_t>(unsignedNumber(*fields, "birth")),
                      present->isOnOverlay};
  if (!present->matches(remembered)) return posixFailure(ESTALE, stored + " has been replaced");
  return stored;
}

}  // namespace vornex
