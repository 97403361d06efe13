#include "platform/Volumes.h"

#include <fcntl.h>
#include <libmount/libmount.h>
#include <libudev.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/vfs.h>

#include <array>

#include "foundation/Files.h"
#include "foundation/Text.h"

namespace vornex {

namespace {

// Names become parts of paths, so the root's has no slash.
constexpr const char* kRootName = "root";
constexpr int kMaxLayers = 16;  // device-mapper on device-mapper on ...

template <typename T, T* (*release)(T*)>
struct Release {
  void operator()(T* object) const { release(object); }
};
using UdevPtr = std::unique_ptr<udev, Release<udev, udev_unref>>;
using DevicePtr = std::unique_ptr<udev_device, Release<udev_device, udev_device_unref>>;

struct TableRelease {
  void operator()(libmnt_table* table) const { mnt_unref_table(table); }
};
struct CacheRelease {
  void operator()(libmnt_cache* cache) const { mnt_unref_cache(cache); }
};

/// The mount table with the entry of one path. The entry lives as long as the table.
struct Mount {
  std::unique_ptr<libmnt_table, TableRelease> table;
  libmnt_fs* entry = nullptr;
};

libmnt_fs* entryWithId(libmnt_table* table, std::uint64_t id) {
  std::unique_ptr<libmnt_iter, void (*)(libmnt_iter*)> iterator(mnt_new_iter(MNT_ITER_BACKWARD),
                                                                mnt_free_iter);
  libmnt_fs* entry = nullptr;
  while (mnt_table_next_fs(table, iterator.get(), &entry) == 0) {
    if (mnt_fs_get_id(entry) == static_cast<int>(id)) return entry;
  }
  return nullptr;
}

/// The mount that holds the path; no entry when there is none.
Mount mountOf(const std::string& path) {
  Mount mount;
  struct statx status {};
  if (statx(AT_FDCWD, path.c_str(), 0, STATX_TYPE | STATX_MNT_ID, &status) != 0) return mount;
  mount.table.reset(mnt_new_table_from_file("/proc/self/mountinfo"));
  if (!mount.table) return mount;
  if (status.stx_mask & STATX_MNT_ID) mount.entry = entryWithId(mount.table.get(), status.stx_mnt_id);
  if (mount.entry) return mount;

  // An older kernel: by the path, links resolved.
  std::error_code error;
  auto canonical = std::filesystem::canonical(path, error);
  if (!error)
    mount.entry = mnt_table_find_mountpoint(mount.table.get(), canonical.c_str(), MNT_ITER_BACKWARD);
  return mount;
}

std::string text(const char* value) {
  return value ? validUtf8(value) : std::string();
}

bool isNetworkKind(libmnt_fs* entry) {
  constexpr std::array kMore = {"ceph", "glusterfs", "lustre", "beegfs", "davfs", "rclone", "s3fs"};
  if (mnt_fs_is_netfs(entry)) return true;
  std::string kind = text(mnt_fs_get_fstype(entry));
  if (kind.starts_with("fuse.")) kind.erase(0, 5);
  return std::find(kMore.begin(), kMore.end(), kind) != kMore.end();
}

/// The number of the block device, 0 when none is mounted.
dev_t blockDevice(libmnt_fs* entry) {
  struct stat status {};
  const char* source = mnt_fs_get_srcpath(entry);
  if (source && stat(source, &status) == 0 && S_ISBLK(status.st_mode)) return status.st_rdev;
  dev_t number = mnt_fs_get_devno(entry);
  return major(number) != 0 ? number : 0;
}

/// Undoes the device database's escapes (\x20 for a blank) and drops surrounding blanks.
std::string unescaped(const std::string& encoded) {
  std::string plain;
  for (std::size_t i = 0; i < encoded.size(); ++i) {
    bool escape = encoded.compare(i, 2, "\\x") == 0 && i + 3 < encoded.size() &&
                  std::isxdigit(encoded[i + 2]) && std::isxdigit(encoded[i + 3]);
    plain += escape ? static_cast<char>(std::stoi(encoded.substr(i + 2, 2), nullptr, 16)) : encoded[i];
    if (escape) i += 3;
  }
  return trimmedWhitespace(validUtf8(plain));
}

std::string property(udev_device* device, const char* encodedName, const char* name) {
  std::string encoded = text(udev_device_get_property_value(device, encodedName));
  return encoded.empty() ? text(udev_device_get_property_value(device, name)) : unescaped(encoded);
}

std::string attribute(udev_device* device, const char* name) {
  return trimmedWhitespace(text(udev_device_get_sysattr_value(device, name)));
}

/// The first device that a layered one (device-mapper, RAID) lies on, 0 for none.
dev_t lowerDevice(udev_device* device) {
  std::error_code error;
  std::filesystem::directory_iterator slaves(std::string(udev_device_get_syspath(device)) + "/slaves", error);
  if (error || slaves == std::filesystem::directory_iterator()) return 0;
  auto number = readFile(slaves->path().string() + "/dev", 64);
  unsigned majorNumber = 0;
  unsigned minorNumber = 0;
  if (!number || std::sscanf(number->c_str(), "%u:%u", &majorNumber, &minorNumber) != 2) return 0;
  return makedev(majorNumber, minorNumber);
}

/// The whole disk that the partition, volume or RAID set lies on.
DevicePtr diskOf(udev* context, dev_t number) {
  DevicePtr device(udev_device_new_from_devnum(context, 'b', number));
  for (int layer = 0; device && layer < kMaxLayers; ++layer) {
    dev_t lower = lowerDevice(device.get());
    if (lower == 0) break;
    device.reset(udev_device_new_from_devnum(context, 'b', lower));
  }
  if (!device) return nullptr;
  udev_device* disk = udev_device_get_parent_with_subsystem_devtype(device.get(), "block", "disk");
  return disk ? DevicePtr(udev_device_ref(disk)) : std::move(device);
}

/// The bus by the devices above; a disk behind USB also passes for a SCSI one, so the outer bus counts.
std::string busOf(udev_device* disk) {
  struct Bus {
    const char* subsystem;
    const char* name;
  };
  constexpr std::array<Bus, 7> kBuses = {{{"usb", "USB"},
                                          {"firewire", "FireWire"},
                                          {"nvme", "NVMe"},
                                          {"mmc", "MMC"},
                                          {"virtio", "Virtio"},
                                          {"ata_port", "SATA"},
                                          {"scsi", "SCSI"}}};
  std::size_t best = kBuses.size();
  for (udev_device* device = disk; device; device = udev_device_get_parent(device)) {
    std::string subsystem = text(udev_device_get_subsystem(device));
    for (std::size_t i = 0; i < best; ++i) {
      if (subsystem == kBuses[i].subsystem) best = i;
    }
  }
  if (best < kBuses.size() && std::string_view(kBuses[best].subsystem) != "scsi") return kBuses[best].name;
  if (text(udev_device_get_property_value(disk, "ID_BUS")) == "ata") return "SATA";
  return best < kBuses.size() ? kBuses[best].name : "";
}

void setIfKnown(Dictionary& description, const char* key, std::string value) {
  if (!value.empty()) description.set(key, std::move(value));
}

void addDeviceFacts(dev_t number, Dictionary& description) {
  UdevPtr context(udev_new());
  if (!context) return;
  if (DevicePtr volume{udev_device_new_from_devnum(context.get(), 'b', number)}) {
    setIfKnown(description, volumeKey::name, property(volume.get(), "ID_FS_LABEL_ENC", "ID_FS_LABEL"));
    setIfKnown(description, volumeKey::uuid, property(volume.get(), "ID_FS_UUID_ENC", "ID_FS_UUID"));
  }
  DevicePtr disk = diskOf(context.get(), number);
  if (!disk) return;
  std::string model = property(disk.get(), "ID_MODEL_ENC", "ID_MODEL");
  std::string vendor = property(disk.get(), "ID_VENDOR_ENC", "ID_VENDOR");
  std::string bus = busOf(disk.get());
  setIfKnown(description, volumeKey::model, model.empty() ? attribute(disk.get(), "device/model") : model);
  setIfKnown(description, volumeKey::vendor,
             vendor.empty() ? attribute(disk.get(), "device/vendor") : vendor);
  setIfKnown(description, volumeKey::protocol, bus);
}

std::string kindOfFileSystem(const struct statfs& status) {
  switch (static_cast<std::uint32_t>(status.f_type)) {
    case EXT4_SUPER_MAGIC:
      return "ext4";
    case BTRFS_SUPER_MAGIC:
      return "btrfs";
    case XFS_SUPER_MAGIC:
      return "xfs";
    case OVERLAYFS_SUPER_MAGIC:
      return "overlay";
    case TMPFS_MAGIC:
      return "tmpfs";
    default:
      return fmt::format("{:#x}", static_cast<std::uint32_t>(status.f_type));
  }
}

/// In a changed root (chroot) the mount that holds "/" is in no table that can be read; the file system
/// itself still tells what it is.
std::optional<Dictionary> changedRootDescription(const std::string& path) {
  struct statfs status {};
  if (::statfs(path.c_str(), &status) != 0) return std::nullopt;
  return Dictionary{{volumeKey::name, kRootName},
                    {volumeKey::path, "/"},
                    {volumeKey::kind, kindOfFileSystem(status)},
                    {volumeKey::network, false}};
}

}  // namespace

std::optional<Dictionary> volumeDescription(const std::string& path) {
  Mount mount = mountOf(path);
  if (!mount.entry) return mount.table ? changedRootDescription(path) : std::nullopt;
  std::string folder = text(mnt_fs_get_target(mount.entry));
  std::string folderName = lastPathComponent(folder);
  Dictionary description{{volumeKey::name, folderName.empty() ? kRootName : folderName},
                         {volumeKey::path, folder},
                         {volumeKey::kind, text(mnt_fs_get_fstype(mount.entry))},
                         {volumeKey::network, isNetworkKind(mount.entry)}};
  if (isNetworkKind(mount.entry) || text(mnt_fs_get_fstype(mount.entry)).starts_with("fuse"))
    setIfKnown(description, volumeKey::source, text(mnt_fs_get_source(mount.entry)));
  if (dev_t number = blockDevice(mount.entry)) addDeviceFacts(number, description);
  return description;
}

OptionalString mountPath(const std::string& path) {
  Mount mount = mountOf(path);
  if (!mount.entry) return mount.table ? OptionalString("/") : std::nullopt;
  const char* folder = mnt_fs_get_target(mount.entry);
  return folder ? OptionalString(folder) : std::nullopt;
}

}  // namespace vornex
