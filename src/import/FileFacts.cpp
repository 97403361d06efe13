#include "import/FileFacts.h"

#include <fcntl.h>
#include <sys/stat.h>

namespace vornex {

static Date date(const struct statx_timestamp& time) {
  return Date(std::chrono::seconds(time.tv_sec) + std::chrono::microseconds(time.tv_nsec / 1000));
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

}  // namespace vornex
