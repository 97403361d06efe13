#include "platform/FileCopy.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <stdio.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <vornex/Log.h>
#include <xxhash.h>

#include <cerrno>
#include <climits>

#include "foundation/FileDescriptor.h"
#include "foundation/Files.h"
#include "foundation/Patience.h"
#include "foundation/Text.h"
#include "platform/OpenFolders.h"

namespace vornex {

namespace {

constexpr std::string_view kTemporaryPrefix = ".vornex-copy-";
constexpr std::size_t kChunk = std::size_t{1} << 20;
// Of a disk that does not move the larger one between two reports.
constexpr std::size_t kSlowChunk = std::size_t{128} << 10;
constexpr std::uint64_t kStoreBytes = std::uint64_t{16} << 20;
constexpr std::uint64_t kReportBytes = std::uint64_t{16} << 20;
constexpr std::chrono::milliseconds kReportInterval{100};
constexpr int kMaxDepth = 200;
constexpr mode_t kPermissions = 0777;

using Clock = std::chrono::steady_clock;
using Done = Result<void>;

/// An item that is removed at the end of the scope unless it is kept.
struct Provisional {
  int folder;
  std::string name;
  bool kept = false;
  ~Provisional() {
    if (!kept) removeTree(folder, name);
  }
};

bool isUnchanged(const struct stat& before, const struct stat& after) {
  return before.st_size == after.st_size && before.st_mtim.tv_sec == after.st_mtim.tv_sec &&
         before.st_mtim.tv_nsec == after.st_mtim.tv_nsec;
}

/// Whether a file system may refuse an attribute with this: it has none, no place for it, or not this one.
bool isLimitOfAttributes(int errorNumber) {
  return errorNumber == ENOTSUP || errorNumber == ENOSPC || errorNumber == E2BIG || errorNumber == ERANGE ||
         errorNumber == EPERM;
}

Done copyAttributes(int source, int target, const std::string& path) {
  ssize_t size = flistxattr(source, nullptr, 0);
  std::string names(size > 0 ? static_cast<std::size_t>(size) : 0, '\0');
  if (!names.empty()) size = flistxattr(source, names.data(), names.size());
  if (size < 0 && errno != ENOTSUP) return posixFailure(errno, "cannot read the attributes of " + path);
  for (ssize_t start = 0; start < size;) {
    const char* name = names.data() + start;
    start += static_cast<ssize_t>(std::string_view(name).size()) + 1;
    if (!std::string_view(name).starts_with("user.")) continue;
    ssize_t length = fgetxattr(source, name, nullptr, 0);
    std::string value(length > 0 ? static_cast<std::size_t>(length) : 0, '\0');
    if (!value.empty()) length = fgetxattr(source, name, value.data(), value.size());
    if (length < 0 && errno == ENODATA) continue;
    if (length < 0) return posixFailure(errno, "cannot read the attributes of " + path);
    if (fsetxattr(target, name, value.data(), static_cast<std::size_t>(length), 0) == 0) continue;
    if (!isLimitOfAttributes(errno)) return posixFailure(errno, "cannot copy the attributes of " + path);
    logLine(LogLevel::warning, fmt::format("the target does not keep {} of {}", name, path));
  }
  return {};
}

/// Attributes, permissions and times, and all of it to the disk.
Done finish(int source, int target, const struct stat& status, const std::string& path) {
  if (auto copied = copyAttributes(source, target, path); !copied) return copied;
  const timespec times[2] = {status.st_atim, status.st_mtim};
  // File systems without permissions refuse; times cannot be refused to the owner.
  if (fchmod(target, status.st_mode & kPermissions) != 0 && errno != EPERM && errno != ENOTSUP) {
    return posixFailure(errno, "cannot set the permissions of the copy of " + path);
  }
  if (futimens(target, times) != 0) return posixFailure(errno, "cannot set the times of the copy of " + path);
  if (fsync(target) != 0) return posixFailure(errno, "cannot write the copy of " + path);
  return {};
}

}  // namespace

struct CopyWatch::State {
  std::mutex mutex;
  /// What the copy waits for, and since when; nothing while it does something else.
  enum class For { nothing, source, target } waitingFor = For::nothing;
  Clock::time_point since;
  bool abandoned = false;
  std::atomic<bool> leavesRemains = false;
  FileDescriptor folder;
  std::string temporaryName;
};

CopyWatch::CopyWatch() : state_(std::make_unique<State>()) {}
CopyWatch::~CopyWatch() = default;

bool CopyWatch::abandonIfStuck(const Patience& patience) {
  using For = State::For;
  std::unique_lock lock(state_->mutex);
  auto limit = state_->waitingFor == For::source ? patience.source : patience.target;
  if (state_->waitingFor == For::nothing || Clock::now() - state_->since < limit) return false;
  state_->abandoned = true;
  state_->waitingFor = For::nothing;
  auto folder = std::make_shared<FileDescriptor>(std::move(state_->folder));
  lock.unlock();
  // A target that has gone silent does not let go of its leftovers either.
  constexpr std::chrono::seconds kTimeToRemove{2};
  auto remove = [folder, name = state_->temporaryName] { return removeTree(folder->get(), name); };
  if (!*folder) return true;
  state_->leavesRemains = true;
  auto removed = patiently(std::move(remove), kTimeToRemove);
  state_->leavesRemains = !removed || !*removed;
  return true;
}

bool CopyWatch::leavesRemains() const {
  return state_->leavesRemains;
}

/// One run of copyItem. Paths are for messages; items are reached through their open folders.
class Copier {
 public:
  explicit Copier(const CopyOptions& options) : options_(options) {}

  std::uint64_t bytes() const { return done_; }

  // Before everything that may keep the copy waiting: what follows may be given up from outside.
  void waitForSource() { waitFor(CopyWatch::State::For::source); }
  void waitForTarget() { waitFor(CopyWatch::State::For::target); }

  /// After it. ECANCELED when the copy was given up meanwhile.
  Done stopWaiting() {
    CopyWatch::State* watch = watchState();
    if (!watch) return {};
    std::lock_guard lock(watch->mutex);
    watch->waitingFor = CopyWatch::State::For::nothing;
    if (watch->abandoned) return posixFailure(ECANCELED, "copy");
    return {};
  }

  /// Names what has to be removed when the copy is given up.
  void willWrite(int folder, const std::string& temporaryName) {
    CopyWatch::State* watch = watchState();
    if (!watch) return;
    std::lock_guard lock(watch->mutex);
    watch->folder = FileDescriptor(fcntl(folder, F_DUPFD_CLOEXEC, 0));
    watch->temporaryName = temporaryName;
  }

  /// Before each item, however little there is to copy of it.
  Done nextItem() {
    waitForSource();
    return Clock::now() - lastReport_ < kReportInterval ? Done() : report();
  }

  /// Adds up the bytes to copy.
  Done measure(int folder, const std::string& name, const std::string& path, int flags, int depth = 0) {
    if (auto goOn = nextItem(); !goOn) return goOn;
    struct stat status {};
    if (fstatat(folder, name.c_str(), &status, flags) != 0) return posixFailure(errno, "cannot find " + path);
    if (S_ISREG(status.st_mode)) total_ += static_cast<std::uint64_t>(status.st_size);
    if (!S_ISDIR(status.st_mode)) return {};
    if (depth > kMaxDepth) return posixFailure(ELOOP, path + " is nested too deeply");
    FileDescriptor inside(openat(folder, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!inside) return posixFailure(errno, "cannot open " + path);
    auto names = namesInFolder(inside.get(), path);
    if (!names) return tl::unexpected(names.error());
    for (const std::string& entry : *names) {
      auto below =
          measure(inside.get(), entry, appendPathComponent(path, entry), AT_SYMLINK_NOFOLLOW, depth + 1);
      if (!below) return below;
    }
    return {};
  }

  Done report() {
    if (auto left = stopWaiting(); !left) return left;
    lastReport_ = Clock::now();
    lastReportedBytes_ = done_ + compared_;
    std::uint64_t total = options_.verify ? 3 * total_ : total_;
    if (options_.progress && !options_.progress(done_ + compared_, std::max(total, done_ + compared_)))
      return posixFailure(ECANCELED, "copy");
    waitForSource();
    return {};
  }

  /// After bytes that were read to compare them.
  Done compared(std::uint64_t bytes) {
    compared_ += bytes;
    return reportWhenDue();
  }

  /// Copies whatever is under the name; `follow` for a link at the top.
  Done copy(int from, const std::string& name, int to, const std::string& newName, const std::string& path,
            bool follow) {
    if (auto goOn = nextItem(); !goOn) return goOn;
    struct stat status {};
    int flags = follow ? 0 : AT_SYMLINK_NOFOLLOW;
    if (fstatat(from, name.c_str(), &status, flags) != 0) return posixFailure(errno, "cannot find " + path);
    if (S_ISLNK(status.st_mode)) return copyLink(from, name, to, newName, status, path);
    if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) {
      return posixFailure(ENOTSUP, path + " is neither file nor folder");
    }
    // Not blocking: the item could have become a pipe by now.
    int mode = O_RDONLY | O_CLOEXEC | O_NONBLOCK | (follow ? 0 : O_NOFOLLOW);
    FileDescriptor source(openat(from, name.c_str(), mode));
    if (!source) return posixFailure(errno, "cannot open " + path);
    if (fstat(source.get(), &status) != 0) return posixFailure(errno, "cannot open " + path);
    if (S_ISDIR(status.st_mode)) return copyFolder(source.get(), status, to, newName, path);
    if (S_ISREG(status.st_mode)) return copyFile(source.get(), status, to, newName, path);
    return posixFailure(ESTALE, path + " has been replaced");
  }

 private:
  Done reportWhenDue() {
    bool due = done_ + compared_ - lastReportedBytes_ >= kReportBytes ||
               Clock::now() - lastReport_ >= kReportInterval;
    return due ? report() : Done();
  }

  void waitFor(CopyWatch::State::For what) {
    CopyWatch::State* watch = watchState();
    if (!watch) return;
    std::lock_guard lock(watch->mutex);
    if (watch->abandoned) return;
    watch->waitingFor = what;
    watch->since = Clock::now();
  }

  CopyWatch::State* watchState() const { return options_.watch ? options_.watch->state_.get() : nullptr; }

  Done copyLink(int from, const std::string& name, int to, const std::string& newName,
                const struct stat& status, const std::string& path) {
    std::string destination(PATH_MAX, '\0');
    ssize_t length = readlinkat(from, name.c_str(), destination.data(), destination.size());
    if (length < 0) return posixFailure(errno, "cannot read the link " + path);
    destination.resize(static_cast<std::size_t>(length));
    if (symlinkat(destination.c_str(), to, newName.c_str()) != 0)
      return posixFailure(errno, "cannot copy " + path);
    const timespec times[2] = {status.st_atim, status.st_mtim};
    // Some file systems keep no times of links.
    utimensat(to, newName.c_str(), times, AT_SYMLINK_NOFOLLOW);
    return {};
  }

  Done copyFolder(int source, const struct stat& status, int to, const std::string& newName,
                  const std::string& path) {
    if (++depth_ > kMaxDepth) return posixFailure(ELOOP, path + " is nested too deeply");
    if (mkdirat(to, newName.c_str(), S_IRWXU) != 0) return posixFailure(errno, "cannot copy " + path);
    FileDescriptor target(openat(to, newName.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!target) return posixFailure(errno, "cannot copy " + path);
    auto names = namesInFolder(source, path);
    if (!names) return tl::unexpected(names.error());
    for (const std::string& name : *names) {
      auto copied = copy(source, name, target.get(), name, appendPathComponent(path, name), false);
      if (!copied) return copied;
    }
    --depth_;
    struct stat after {};
    if (fstat(source, &after) != 0) return posixFailure(errno, "cannot read " + path);
    if (!isUnchanged(status, after)) return posixFailure(ESTALE, path + " has changed");
    return finishTarget(source, target.get(), status, path);
  }

  /// A disk may take its time to store the copy: that is no fault of the source.
  Done finishTarget(int source, int target, const struct stat& status, const std::string& path) {
    waitForTarget();
    Done finished = finish(source, target, status, path);
    waitForSource();
    return finished;
  }

  /// Has what was written stored while the copy goes on, so that its end does not wait for all of it.
  void store(int target, std::uint64_t offset) {
    if (offset < stored_ + kStoreBytes) return;
    waitForTarget();
    constexpr unsigned kWait =
        SYNC_FILE_RANGE_WAIT_BEFORE | SYNC_FILE_RANGE_WRITE | SYNC_FILE_RANGE_WAIT_AFTER;
    auto begin = static_cast<off64_t>(stored_);
    // The last part is being stored while the one before it is waited for. Errors come with the end's fsync.
    sync_file_range(target, begin, static_cast<off64_t>(offset) - begin, SYNC_FILE_RANGE_WRITE);
    if (stored_ > 0) sync_file_range(target, 0, begin, kWait);
    stored_ = offset;
  }

  Done copyFile(int source, const struct stat& status, int to, const std::string& newName,
                const std::string& path) {
    FileDescriptor target(
        openat(to, newName.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!target) return posixFailure(errno, "cannot copy " + path);
    if (auto moved = copyContent(source, target.get(), status, path); !moved) return moved;

    struct stat after {};
    if (fstat(source, &after) != 0) return posixFailure(errno, "cannot read " + path);
    if (after.st_nlink == 0) return posixFailure(ENOENT, path + " has vanished");
    if (!isUnchanged(status, after)) return posixFailure(ESTALE, path + " has changed");
    return finishTarget(source, target.get(), status, path);
  }

  Done copyContent(int source, int target, const struct stat& status, const std::string& path) {
    auto size = static_cast<std::uint64_t>(status.st_size);
    if (size == 0) return {};
    if (ioctl(target, FICLONE, source) == 0) {
      done_ += size;
      return report();
    }
    // Finds out now whether the space is there; not every file system can tell.
    if (fallocate(target, 0, 0, status.st_size) != 0 &&
        (errno == ENOSPC || errno == EFBIG || errno == EDQUOT)) {
      return posixFailure(errno, "cannot copy " + path);
    }
    bool inKernel = true;
    std::string buffer;
    stored_ = 0;
    std::size_t chunk = kChunk;
    for (std::uint64_t offset = 0; offset < size;) {
      waitForSource();
      auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(chunk, size - offset));
      auto begin = Clock::now();
      auto moved = moveChunk(source, target, offset, wanted, inKernel, buffer, path);
      if (!moved) return tl::unexpected(moved.error());
      if (*moved == 0) return posixFailure(ESTALE, path + " has become shorter");
      offset += *moved;
      done_ += *moved;
      chunk = Clock::now() - begin < kReportInterval / 2 ? kChunk : kSlowChunk;
      store(target, offset);
      if (auto goOn = reportWhenDue(); !goOn) return goOn;
    }
    return {};
  }

  /// Moves up to `wanted` bytes; 0 at the end of the source. `inKernel` becomes false when that way is
  /// barred.
  Result<std::size_t> moveChunk(int source, int target, std::uint64_t offset, std::size_t wanted,
                                bool& inKernel, std::string& buffer, const std::string& path) {
    while (inKernel) {
      auto from = static_cast<off64_t>(offset);
      auto to = from;
      ssize_t moved = copy_file_range(source, &from, target, &to, wanted, 0);
      if (moved > 0) return static_cast<std::size_t>(moved);
      if (moved < 0 && errno == EINTR) continue;
      if (moved < 0 && (errno == EIO || errno == ENOSPC || errno == EDQUOT || errno == EFBIG)) {
        return posixFailure(errno, "cannot copy " + path);
      }
      inKernel = false;
    }
    buffer.resize(kChunk);
    ssize_t count = 0;
    do {
      count = pread(source, buffer.data(), wanted, static_cast<off_t>(offset));
    } while (count < 0 && errno == EINTR);
    if (count < 0) return posixFailure(errno, "cannot read " + path);
    waitForTarget();
    for (ssize_t written = 0; written < count;) {
      ssize_t step = pwrite(target, buffer.data() + written, static_cast<std::size_t>(count - written),
                            static_cast<off_t>(offset) + written);
      if (step < 0 && errno == EINTR) continue;
      if (step < 0) return posixFailure(errno, "cannot write the copy of " + path);
      written += step;
    }
    return static_cast<std::size_t>(count);
  }

  const CopyOptions& options_;
  std::uint64_t total_ = 0;
  std::uint64_t done_ = 0;
  std::uint64_t compared_ = 0;
  std::uint64_t lastReportedBytes_ = 0;
  /// Of the file in hand, from its beginning.
  std::uint64_t stored_ = 0;
  Clock::time_point lastReport_ = Clock::now();
  int depth_ = 0;
};

namespace {

/// Whether the folder lies in the source or is it.
bool liesInside(const std::string& folder, const std::string& source) {
  std::error_code error;
  auto inner = std::filesystem::canonical(folder, error);
  if (error) return false;
  auto outer = std::filesystem::canonical(source, error);
  if (error) return false;
  return std::mismatch(outer.begin(), outer.end(), inner.begin(), inner.end()).first == outer.end();
}

/// Gives the finished copy its name, which nothing may have yet.
Done place(int folder, const std::string& temporary, const std::string& name, const std::string& target) {
  if (renameat2(folder, temporary.c_str(), folder, name.c_str(), RENAME_NOREPLACE) == 0) return {};
  if (errno != EINVAL && errno != ENOSYS && errno != ENOTSUP)
    return posixFailure(errno, "cannot place " + target);

  // A file system without that operation: take the name with an empty item, then replace that.
  struct stat status {};
  if (fstatat(folder, temporary.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    return posixFailure(errno, "cannot place " + target);
  }
  if (S_ISDIR(status.st_mode)) {
    if (mkdirat(folder, name.c_str(), S_IRWXU) != 0) return posixFailure(errno, "cannot place " + target);
  } else {
    if (linkat(folder, temporary.c_str(), folder, name.c_str(), 0) == 0) {
      unlinkat(folder, temporary.c_str(), 0);
      return {};
    }
    if (errno == EEXIST) return posixFailure(errno, "cannot place " + target);
    FileDescriptor taken(
        openat(folder, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!taken) return posixFailure(errno, "cannot place " + target);
  }
  Provisional taken{folder, name};
  if (renameat(folder, temporary.c_str(), folder, name.c_str()) != 0) {
    return posixFailure(errno, "cannot place " + target);
  }
  taken.kept = true;
  return {};
}

/// The digest of an item that the copier reads once more.
class Digester {
 public:
  explicit Digester(Copier& copier) : copier_(copier), state_(XXH3_createState(), XXH3_freeState) {
    XXH3_128bits_reset(state_.get());
  }

  Done add(int folder, const std::string& name, const std::string& path, bool follow) {
    if (auto goOn = copier_.nextItem(); !goOn) return goOn;
    struct stat status {};
    if (fstatat(folder, name.c_str(), &status, follow ? 0 : AT_SYMLINK_NOFOLLOW) != 0)
      return posixFailure(errno, "cannot find " + path);
    if (S_ISLNK(status.st_mode)) return addLink(folder, name, path);
    FileDescriptor item(openat(folder, name.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!item) return posixFailure(errno, "cannot open " + path);
    return S_ISDIR(status.st_mode) ? addFolder(item.get(), path) : addFile(item.get(), path);
  }

  std::string text() const {
    XXH128_hash_t digest = XXH3_128bits_digest(state_.get());
    return fmt::format("xxh128:{:016x}{:016x}", digest.high64, digest.low64);
  }

 private:
  void addText(const std::string& text) { XXH3_128bits_update(state_.get(), text.c_str(), text.size() + 1); }

  Done addLink(int folder, const std::string& name, const std::string& path) {
    std::string destination(PATH_MAX, '\0');
    ssize_t length = readlinkat(folder, name.c_str(), destination.data(), destination.size());
    if (length < 0) return posixFailure(errno, "cannot read the link " + path);
    destination.resize(static_cast<std::size_t>(length));
    addText(destination);
    return {};
  }

  /// No deeper than what was copied.
  Done addFolder(int folder, const std::string& path) {
    auto names = namesInFolder(folder, path);
    if (!names) return tl::unexpected(names.error());
    std::sort(names->begin(), names->end());
    for (const std::string& name : *names) {
      addText(name);
      if (auto added = add(folder, name, appendPathComponent(path, name), false); !added) return added;
    }
    return {};
  }

  Done addFile(int file, const std::string& path) {
    std::string buffer(kChunk, '\0');
    for (;;) {
      copier_.waitForSource();
      ssize_t count = read(file, buffer.data(), buffer.size());
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) return posixFailure(errno, "cannot read " + path);
      if (count == 0) return {};
      XXH3_128bits_update(state_.get(), buffer.data(), static_cast<std::size_t>(count));
      if (auto goOn = copier_.compared(static_cast<std::uint64_t>(count)); !goOn) return goOn;
    }
  }

  Copier& copier_;
  std::unique_ptr<XXH3_state_t, XXH_errorcode (*)(XXH3_state_t*)> state_;
};

/// Drops what the system remembers of an item that is on the disk, so that reading it asks the disk.
void forgetCached(int folder, const std::string& name) {
  FileDescriptor item(openat(folder, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!item) return;
  posix_fadvise(item.get(), 0, 0, POSIX_FADV_DONTNEED);
  // Plain files have no entries.
  if (auto names = namesInFolder(item.get(), name)) {
    for (const std::string& entry : *names) forgetCached(item.get(), entry);
  }
}

/// The digest of the copy, which is that of the source.
Result<std::string> verifiedDigest(Copier& copier, const std::string& source, int folder,
                                   const std::string& copyName) {
  Digester original(copier), copied(copier);
  if (auto read = original.add(AT_FDCWD, source, source, true); !read) return tl::unexpected(read.error());
  forgetCached(folder, copyName);
  if (auto read = copied.add(folder, copyName, "the copy of " + source, false); !read)
    return tl::unexpected(read.error());
  if (original.text() != copied.text())
    return posixFailure(EIO, "the copy of " + source + " differs from it");
  return copied.text();
}

}  // namespace

Result<Copied> copyItem(const std::string& source, const std::string& target, const CopyOptions& options) {
  std::string name = lastPathComponent(target);
  if (name.empty() || name == "." || name == "..")
    return posixFailure(EINVAL, "no name for the copy: " + target);
  Copier copier(options);
  copier.waitForTarget();
  if (itemExists(target)) return posixFailure(EEXIST, "cannot copy to " + target);
  std::string parent = deletingLastPathComponent(target);
  if (parent.empty()) parent = ".";
  FileDescriptor folder(open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder) return posixFailure(errno, "cannot copy into " + parent);

  copier.waitForSource();
  if (isDirectory(source) && liesInside(parent, source)) {
    return posixFailure(EINVAL, target + " lies inside " + source);
  }
  if (auto measured = copier.measure(AT_FDCWD, source, source, 0); !measured) {
    return tl::unexpected(measured.error());
  }
  if (auto goOn = copier.report(); !goOn) return tl::unexpected(goOn.error());

  Provisional copy{folder.get(), std::string(kTemporaryPrefix) + randomHex(8)};
  copier.willWrite(folder.get(), copy.name);
  auto copied = copier.copy(AT_FDCWD, source, folder.get(), copy.name, source, true);
  if (!copied) return tl::unexpected(copied.error());
  Copied result{copier.bytes()};
  if (options.verify) {
    auto digest = verifiedDigest(copier, source, folder.get(), copy.name);
    if (!digest) return tl::unexpected(digest.error());
    result.digest = *digest;
  }
  if (auto goOn = copier.report(); !goOn) return tl::unexpected(goOn.error());
  // From here on it can no longer be given up.
  if (auto left = copier.stopWaiting(); !left) return tl::unexpected(left.error());
  if (options.willAppear) options.willAppear(appendPathComponent(parent, copy.name));
  auto placed = place(folder.get(), copy.name, name, target);
  if (!placed) return tl::unexpected(placed.error());
  copy.name = name;
  if (fsync(folder.get()) != 0) return posixFailure(errno, "cannot write " + parent);
  copy.kept = true;
  return result;
}

Result<std::uint64_t> copyItem(const std::string& source, const std::string& target,
                               const CopyProgress& progress) {
  auto copied = copyItem(source, target, CopyOptions{progress});
  if (!copied) return tl::unexpected(copied.error());
  return copied->bytes;
}

bool isUnfinishedCopy(const std::string& fileName) {
  return fileName.starts_with(kTemporaryPrefix);
}

}  // namespace vornex
