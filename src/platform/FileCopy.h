#pragma once

#include <vornex/Value.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "foundation/Error.h"

namespace vornex {

/// Bytes copied of the bytes that there are; with a comparison, all bytes count once for the copying and
/// twice for the comparing. While a folder is looked through, 0 of what was found so far. Returns whether to
/// go on. Called on the copying thread, at the start, at the end, and between at least every 16 MiB and no
/// less often than every 100 ms while data moves.
using CopyProgress = std::function<bool(std::uint64_t bytesDone, std::uint64_t bytesTotal)>;

/// How a copy is watched from another thread: reading a source on a lost network disk may block for ever.
///
/// Thread-safety: safe on any thread.
class CopyWatch {
 public:
  CopyWatch();
  ~CopyWatch();

  /// How long a copy may wait for its source, and for what it has written to be stored.
  struct Patience {
    std::chrono::milliseconds source;
    std::chrono::milliseconds target;
  };
  /// Gives the copy up if it has waited for longer: it will never appear at its target, what there is of it
  /// is removed, and its progress is told no more. Its thread ends when the disk lets it.
  bool abandonIfStuck(const Patience& patience);
  /// Whether the copy was given up and its disk did not let go of what there is of it.
  bool leavesRemains() const;

 private:
  friend class Copier;
  struct State;
  std::unique_ptr<State> state_;
};

struct CopyOptions {
  CopyProgress progress = {};
  /// Null: not watched. Must outlive the copy.
  CopyWatch* watch = nullptr;
  /// Reads source and copy once more, the copy from the disk, and compares them before the copy appears; EIO
  /// when they differ.
  bool verify = false;
  /// Told, on the copying thread, where the whole copy lies before it appears at its target.
  std::function<void(const std::string& path)> willAppear = {};
};

struct Copied {
  std::uint64_t bytes = 0;
  /// Of a verified copy: "xxh128:" and the XXH3 digest of the file's content, or of the folder's names, links
  /// and contents in the order of the names.
  OptionalString digest = {};
};

/// Copies a file or a folder with all it holds. The copy appears at the target at once and whole, after it
/// has reached the disk: it is made beside the target under a hidden temporary name and renamed. The target's
/// folder must exist. Permissions, times and extended attributes are kept. A symbolic link given as source is
/// followed; links inside a folder are copied as links. Space is shared with the source where the file system
/// can.
///
/// Errors, after which nothing is left behind; domain "posix": EEXIST when something is at the target (it is
/// never replaced), ECANCELED, ENOSPC, ENOENT for a source that is not there or vanishes, ESTALE for a source
/// that changes meanwhile, EINVAL for a target inside the source, ENOTSUP for devices, pipes and sockets, and
/// what the system reports. Blocks; thread-safe.
[[nodiscard]] Result<Copied> copyItem(const std::string& source, const std::string& target,
                                      const CopyOptions& options);
/// The number of bytes copied.
[[nodiscard]] Result<std::uint64_t> copyItem(const std::string& source, const std::string& target,
                                             const CopyProgress& progress = {});

/// Whether a file name is one that `copyItem` gives to an unfinished copy. After a crash such items may be
/// removed.
bool isUnfinishedCopy(const std::string& fileName);

}  // namespace vornex
