#include "foundation/FileLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <thread>

#include "foundation/Files.h"

namespace vornex {
namespace {

using namespace std::chrono_literals;

constexpr auto kFirstPause = 1ms;
constexpr std::chrono::milliseconds kLongestPause = 100ms;

Result<FileDescriptor> openLockFile(const std::string& place) {
  FileDescriptor file(::open(place.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0666));
  // Another user's file, which may be locked all the same.
  if (!file && errno == EACCES)
    file = FileDescriptor(::open(place.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
  if (!file) return posixFailure(errno, "open " + place);
  return file;
}

/// Whether the open file is still the one at the place.
bool isAt(const FileDescriptor& file, const std::string& place) {
  struct stat open {};
  struct stat there {};
  return ::fstat(file.get(), &open) == 0 && ::lstat(place.c_str(), &there) == 0 &&
         open.st_dev == there.st_dev && open.st_ino == there.st_ino;
}

}  // namespace

std::string FileLock::placeOf(const std::string& path) {
  return appendPathComponent(deletingLastPathComponent(path), "." + lastPathComponent(path) + ".lock");
}

Result<FileLock> FileLock::acquire(const std::string& path, std::chrono::milliseconds patience) {
  const std::string place = placeOf(path);
  const auto end = std::chrono::steady_clock::now() + patience;
  for (std::chrono::milliseconds pause = kFirstPause;; pause = std::min(2 * pause, kLongestPause)) {
    Result<FileDescriptor> file = openLockFile(place);
    if (!file) return tl::unexpected(file.error());
    if (::flock(file->get(), LOCK_EX | LOCK_NB) == 0) {
      // Its last holder may have removed it.
      if (isAt(*file, place)) return FileLock(std::move(*file), place, true);
    } else if (errno == ENOLCK || errno == EOPNOTSUPP || errno == ENOSYS) {
      return FileLock(std::move(*file), place, false);
    } else if (errno != EWOULDBLOCK && errno != EINTR) {
      return posixFailure(errno, "lock " + place);
    }
    if (std::chrono::steady_clock::now() >= end) return posixFailure(ETIMEDOUT, "lock " + place);
    std::this_thread::sleep_for(pause);
  }
}

std::string FileLock::note() const {
  std::string text(4096, '\0');
  const ssize_t length = ::pread(file_.get(), text.data(), text.size(), 0);
  text.resize(static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
  return text;
}

Result<void> FileLock::setNote(const std::string& text) {
  if (::ftruncate(file_.get(), 0) != 0 ||
      ::pwrite(file_.get(), text.data(), text.size(), 0) != static_cast<ssize_t>(text.size()) ||
      ::fsync(file_.get()) != 0)
    return posixFailure(errno, "write " + place_);
  return {};
}

void FileLock::removeFile() {
  if (isAt(file_, place_)) ::unlink(place_.c_str());
}

}  // namespace vornex
