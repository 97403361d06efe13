#pragma once

#include <vornex/Value.h>

#include <string>

namespace vornex {

/// The keys of a volume description. A fact that the system does not know has no entry.
namespace volumeKey {
/// String: the label, else the name of the folder it is mounted on ("root" for the root).
inline constexpr const char* name = "VolumeName";
/// String: where it is mounted; always there.
inline constexpr const char* path = "VolumePath";
/// String: file-system kind ("ext4", "nfs4", "overlay", ...); always there.
inline constexpr const char* kind = "VolumeKind";
/// Boolean: on another machine; always there.
inline constexpr const char* network = "VolumeNetwork";
/// String: the file system's identifier.
inline constexpr const char* uuid = "VolumeUUID";
/// String, of network and FUSE volumes: what is mounted ("server:/export").
inline constexpr const char* source = "VolumeSource";
/// String: without surrounding blanks.
inline constexpr const char* model = "DeviceModel";
/// String: without surrounding blanks.
inline constexpr const char* vendor = "DeviceVendor";
/// String: the bus ("USB", "SATA", "NVMe", "SCSI", "MMC", ...).
inline constexpr const char* protocol = "DeviceProtocol";
}  // namespace volumeKey

/// Describes the volume that holds the path, from the mount table and the device database. Device facts are
/// found through partitions, device-mapper and bind mounts; overlay and network volumes have none. Absent
/// when nothing is at the path or the mount table cannot be read. Blocks as long as the file system does (an
/// unreachable network mount); thread-safe.
std::optional<Dictionary> volumeDescription(const std::string& path);

/// Where the volume that holds the path is mounted. Absent as for `volumeDescription`.
OptionalString mountPath(const std::string& path);

}  // namespace vornex
