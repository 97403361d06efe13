#include "platform/AliasFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <filesystem>

#include "foundation/FileDescriptor.h"
#include "foundation/Files.h"
#include "platform/FolderAccess.h"

namespace vornex {
namespace {

constexpr std::string_view kFirstLine = "vornex alias 1\n";
constexpr std::size_t kSizeLimit = 64 * 1024;

bool isSymbolicLink(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
}

bool beginsAsAlias(int file) {
  std::array<char, kFirstLine.size()> start{};
  return pread(file, start.data(), start.size(), 0) == static_cast<ssize_t>(start.size()) &&
         std::string_view(start.data(), start.size()) == kFirstLine;
}

/// What follows the first line of an alias file; EINVAL when the item is none.
Result<Data> tokenIn(const std::string& path) {
  // Without O_NONBLOCK, opening a named pipe would wait for its writer.
  FileDescriptor file(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!file) return posixFailure(errno, "cannot read " + path);
  struct stat status {};
  if (fstat(file.get(), &status) != 0) return posixFailure(errno, "cannot read " + path);
  if (!S_ISREG(status.st_mode) || static_cast<std::size_t>(status.st_size) > kSizeLimit ||
      !beginsAsAlias(file.get()))
    return posixFailure(EINVAL, path + " is no alias");
  Data token(kSizeLimit);
  ssize_t count = pread(file.get(), token.data(), token.size(), kFirstLine.size());
  if (count < 0) return posixFailure(errno, "cannot read " + path);
  token.resize(static_cast<std::size_t>(count));
  return token;
}

}  // namespace

Result<void> makeAliasFile(const std::string& item, const std::string& alias) {
  auto token = makeAccessToken(item);
  if (!token) return tl::unexpected(token.error());
  if (itemExists(alias)) return posixFailure(EEXIST, "cannot make the alias " + alias);
  return writeFileAtomically(alias, std::string(kFirstLine) + std::string(token->begin(), token->end()));
}

Result<void> makeAlias(const std::string& item, const std::string& alias) {
  if (symlink(item.c_str(), alias.c_str()) == 0) return {};
  bool noLinksHere = errno == EPERM || errno == EOPNOTSUPP || errno == ENOSYS;
  return noLinksHere ? makeAliasFile(item, alias) : posixFailure(errno, "cannot make the alias " + alias);
}

bool isAlias(const std::string& path) {
  return isSymbolicLink(path) || tokenIn(path).has_value();
}

Result<std::string> resolveAlias(const std::string& path) {
  if (isSymbolicLink(path)) {
    std::error_code error;
    std::filesystem::path target = std::filesystem::read_symlink(path, error);
    if (error) return posixFailure(error.value(), "cannot read " + path);
    return target.string();
  }
  auto token = tokenIn(path);
  return token ? resolveAccessToken(*token) : tl::unexpected(token.error());
}

}  // namespace vornex
