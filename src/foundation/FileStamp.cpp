#include "foundation/FileStamp.h"

#include <sys/stat.h>

#include <cerrno>

namespace vornex {

Result<FileStamp> fileStamp(const std::string& path) {
  struct stat info {};
  if (::stat(path.c_str(), &info) == 0) {
    constexpr std::int64_t kNanoseconds = 1'000'000'000;
    return FileStamp{info.st_dev, info.st_ino, info.st_size,
                     std::int64_t{info.st_mtim.tv_sec} * kNanoseconds + info.st_mtim.tv_nsec};
  }
  if (errno == ENOENT || errno == ENOTDIR) return FileStamp{};
  return posixFailure(errno, "cannot look at " + path);
}

}  // namespace vornex
