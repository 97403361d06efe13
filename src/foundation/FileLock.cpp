#include "foundation/FileLock.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>
#include <thread>

#include "foundation/Files.h"

namespace vornex {

Result<FileLock> FileLock::acquire(const std::string& path, std::chrono::milliseconds patience) {
  std::string beside =
      appendPathComponent(deletingLastPathComponent(path), "." + lastPathComponent(path) + ".lock");
  FileDescriptor file(::open(beside.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0666));
  // Another user's file, which may be locked all the same.
  if (!file && errno == EACCES)
    file = FileDescriptor(::open(beside.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
  if (!file) return posixFailure(errno, "open " + beside);
  auto end = std::chrono::steady_clock::now() + patience;
  while (::flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
    if (errno == ENOLCK || errno == EOPNOTSUPP || errno == ENOSYS) break;
    if (errno != EWOULDBLOCK && errno != EINTR) return posixFailure(errno, "lock " + beside);
    if (std::chrono::steady_clock::now() >= end) return posixFailure(ETIMEDOUT, "lock " + beside);
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return FileLock(std::move(file));
}

}  // namespace vornex
