#include "import/FileFacts.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>

#include "foundation/Files.h"
#include "import/ImportError.h"

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

static void addSize(const std::string& item, std::uint64_t& total, TQErrorPtr& failure) {
  struct stat info;
  if (::lstat(item.c_str(), &info) != 0)
    failure = posixError(errno, "stat " + item);
  else
    total += static_cast<std::uint64_t>(info.st_size);
}

std::uint64_t sizeForFolderAtPath(const std::string& path, TQErrorPtr* error) {
  std::uint64_t total = 0;
  TQErrorPtr failure;
  if (isDirectory(path)) {
    std::error_code code;
    for (std::filesystem::recursive_directory_iterator item(path, code), end; !code && item != end;
         item.increment(code))
      addSize(item->path().string(), total, failure);
    if (code) failure = posixError(code.value(), "list " + path);
  }
  if (error) *error = failure;
  return total;
}

}  // namespace vornex
