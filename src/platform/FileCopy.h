#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "foundation/Error.h"

namespace vornex {

/// Bytes copied of the bytes that there are. Returns whether to go on. Called on the copying thread, at the
/// start, at the end, and between at least every 16 MiB and no less often than every 100 ms while data moves.
using CopyProgress = std::function<bool(std::uint64_t bytesDone, std::uint64_t bytesTotal)>;

/// Copies a file or a folder with all it holds, and returns the number of bytes. The copy appears at the
/// target at once and whole, after it has reached the disk: it is made beside the target under a hidden
/// temporary name and renamed. The target's folder must exist. Permissions, times and extended attributes are
/// kept. A symbolic link given as source is followed; links inside a folder are copied as links. Space is
/// shared with the source where the file system can.
///
/// Errors, after which nothing is left behind; domain "posix": EEXIST when something is at the target (it is
/// never replaced), ECANCELED, ENOSPC, ENOENT for a source that is not there or vanishes, ESTALE for a source
/// that changes meanwhile, EINVAL for a target inside the source, ENOTSUP for devices, pipes and sockets, and
/// what the system reports. Blocks; thread-safe.
[[nodiscard]] Result<std::uint64_t> copyItem(const std::string& source, const std::string& target,
                                             const CopyProgress& progress = {});

/// Whether a file name is one that `copyItem` gives to an unfinished copy. After a crash such items may be
/// removed.
bool isUnfinishedCopy(const std::string& fileName);

}  // namespace vornex
