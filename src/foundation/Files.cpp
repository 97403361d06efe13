#include "foundation/Files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>

#include "foundation/FileDescriptor.h"
#include "foundation/Text.h"

namespace vornex {

bool itemExists(const std::string& path) {
  struct stat info;
  return ::lstat(path.c_str(), &info) == 0;
}

bool fileExists(const std::string& path) {
  struct stat info;
  return ::stat(path.c_str(), &info) == 0;
}

bool isDirectory(const std::string& path) {
  struct stat info;
  return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

Result<std::string> readFile(const std::string& path, std::size_t limit) {
  FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file) return posixFailure(errno, "open " + path);
  return readFile(file.get(), path, limit);
}

Result<std::string> readFile(int file, const std::string& path, std::size_t limit) {
  struct stat info;
  if (::fstat(file, &info) != 0) return posixFailure(errno, "stat " + path);
  if (S_ISDIR(info.st_mode)) return posixFailure(EISDIR, "read " + path);

  std::string content;
  if (info.st_size > 0) content.reserve(std::min(static_cast<std::size_t>(info.st_size), limit));
  char buffer[65536];
  for (;;) {
    ssize_t count = ::read(file, buffer, sizeof buffer);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return posixFailure(errno, "read " + path);
    if (count == 0) return content;
    content.append(buffer, static_cast<std::size_t>(count));
    if (content.size() > limit) return posixFailure(EFBIG, "read " + path);
  }
}

static Result<void> writeAll(int file, std::string_view bytes, const std::string& path) {
  while (!bytes.empty()) {
    ssize_t count = ::write(file, bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return posixFailure(errno, "write " + path);
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return {};
}

static Result<void> writeSynced(const std::string& path, std::string_view bytes, unsigned mode) {
  FileDescriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode));
  if (!file) return posixFailure(errno, "create " + path);
  Result<void> written = writeAll(file.get(), bytes, path);
  if (!written) return written;
  if (::fsync(file.get()) != 0) return posixFailure(errno, "sync " + path);
  if (file.close() != 0) return posixFailure(errno, "close " + path);
  return {};
}

static constexpr const char* kUnfinishedPrefix = ".vornex-";
static constexpr const char* kUnfinishedSuffix = ".tmp";

bool isUnfinishedWrite(std::string_view fileName) {
  return fileName.starts_with(kUnfinishedPrefix) && fileName.ends_with(kUnfinishedSuffix);
}

Result<void> writeFileAtomically(const std::string& path, std::string_view bytes, unsigned mode) {
  std::string folder = deletingLastPathComponent(path);
  std::string beside = appendPathComponent(folder, kUnfinishedPrefix + randomHex(8) + kUnfinishedSuffix);
  Result<void> written = writeSynced(beside, bytes, mode);
  if (written && ::rename(beside.c_str(), path.c_str()) != 0)
    written = posixFailure(errno, "rename to " + path);
  if (!written) {
    ::unlink(beside.c_str());
    return written;
  }
  return syncDirectory(folder);
}

Result<void> createDirectories(const std::string& path, unsigned mode) {
  if (path.empty()) return posixFailure(ENOENT, "create folder");
  if (isDirectory(path)) return {};
  std::string parent = deletingLastPathComponent(path);
  if (parent != path && !parent.empty() && !isDirectory(parent)) {
    Result<void> above = createDirectories(parent, mode);
    if (!above) return above;
  }
  if (::mkdir(path.c_str(), mode) != 0)
    return errno == EEXIST && isDirectory(path) ? Result<void>()
                                                : posixFailure(errno, "create folder " + path);
  return syncDirectory(parent);
}

Result<void> syncDirectory(const std::string& path) {
  FileDescriptor folder(::open(path.empty() ? "." : path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder) return posixFailure(errno, "open " + path);
  // Some network file systems refuse to sync a folder; their renames are durable by themselves.
  if (::fsync(folder.get()) != 0 && errno != EINVAL) return posixFailure(errno, "sync " + path);
  return {};
}

static std::string_view withoutTrailingSlashes(std::string_view path) {
  while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
  return path;
}

std::string appendPathComponent(std::string_view path, std::string_view component) {
  while (!component.empty() && component.front() == '/') component.remove_prefix(1);
  component = withoutTrailingSlashes(component);
  path = withoutTrailingSlashes(path);
  std::string result(path);
  if (component.empty()) return result;
  if (!result.empty() && result.back() != '/') result += '/';
  char previous = '/';
  for (char c : component) {
    if (c != '/' || previous != '/') result += c;
    previous = c;
  }
  return result;
}

std::string lastPathComponent(std::string_view path) {
  path = withoutTrailingSlashes(path);
  std::size_t slash = path.rfind('/');
  return std::string(slash == std::string_view::npos ? path : path.substr(slash + 1));
}

std::string deletingLastPathComponent(std::string_view path) {
  path = withoutTrailingSlashes(path);
  std::size_t slash = path.rfind('/');
  if (slash == std::string_view::npos) return "";
  return std::string(slash == 0 ? path.substr(0, 1) : withoutTrailingSlashes(path.substr(0, slash)));
}

static std::size_t extensionDot(std::string_view path) {
  std::size_t dot = path.rfind('.');
  if (dot == std::string_view::npos || dot == 0 || path[dot - 1] == '/' || dot + 1 == path.size())
    return std::string_view::npos;
  return path.find('/', dot) == std::string_view::npos ? dot : std::string_view::npos;
}

std::string pathExtension(std::string_view path) {
  path = withoutTrailingSlashes(path);
  std::size_t dot = extensionDot(path);
  return dot == std::string_view::npos ? "" : std::string(path.substr(dot + 1));
}

std::string deletingPathExtension(std::string_view path) {
  path = withoutTrailingSlashes(path);
  return std::string(path.substr(0, extensionDot(path)));
}

}  // namespace vornex
