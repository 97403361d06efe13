#include "import/FileFacts.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>

namespace vornex {

static Date date(const struct statx_timestamp& time) {
  constexpr std::int64_t kFirst = -62'135'596'800, kLast = 253'402'300'799;
  return Date(std::chrono::seconds(std::clamp<std::int64_t>(time.tv_sec, kFirst, kLast)) +
              std::chrono::microseconds(time.tv_nsec / 1000));
}

std::optional<FileFacts> fileFacts(const std::string& path) {
  struct statx info;
  if (::statx(AT_FDCWD, path.c_str(), 0, STATX_BASIC_STATS | STATX_BTIME, &info) != 0) return std::nullopt;
  FileFacts facts;
  facts.size = info.stx_size;
  facts.isDirectory = S_ISDIR(info.stx_mode);
  facts.modified = date(info.stx_mtime);
  facts.created = (info.stx_mask & STATX_BTIME) ? date(info.stx_btime) : facts.modified;
  return facts;
}

std::string fileIdentity(const std::string& path) {
  struct stat info;
  if (::lstat(path.c_str(), &info) != 0) return "";
  return fmt::format("{}-{}-{}-{}.{:09}", info.st_dev, info.st_ino, info.st_size, info.st_mtim.tv_sec,
                     info.st_mtim.tv_nsec);
}

}  // namespace vornex
