#pragma once

#include <vornex/Value.h>

#include <string>

namespace vornex {

/// The keys of a volume description. A fact that the system does not know has no entry.
namespace volumeKey {
inline constexpr const char* name =
    "VolumeName";  ///< string: the label, else the mount folder's name ("/" for the root)
inline constexpr const char* path = "VolumePath";  ///< string: where it is mounted; always there
inline constexpr const char* kind =
    "VolumeKind";  ///< string: file-system kind ("ext4", "nfs4", "overlay", ...); always there
inline constexpr const char* network = "VolumeNetwork";  ///< boolean: on another machine; always there
inline constexpr const char* uuid = "VolumeUUID";        ///< string: the file system's identifier
inline constexpr const char* source =
    "VolumeSource";  ///< string: what is mounted ("/dev/sdb1", "server:/share", ...)
inline constexpr const char* model = "DeviceModel";    ///< string: device model, without surrounding blanks
inline constexpr const char* vendor = "DeviceVendor";  ///< string: device vendor
inline constexpr const char* protocol =
    "DeviceProtocol";  ///< string: bus ("USB", "SATA", "NVMe", "SCSI", "MMC", ...)
inline constexpr const char* removable = "DeviceRemovable";  ///< boolean: can be taken out or unplugged
}  // namespace volumeKey

/// Describes the volume that holds the path, from the mount table and the device database. Device facts are
/// found through partitions, device-mapper and bind mounts; overlay and network volumes have none. Absent
/// when nothing is at the path or the mount table cannot be read. Blocks as long as the file system does (an
/// unreachable network mount); thread-safe.
std::optional<Dictionary> volumeDescription(const std::string& path);

/// Where the volume that holds the path is mounted. Absent as for `volumeDescription`.
OptionalString mountPath(const std::string& path);

}  // namespace vornex
