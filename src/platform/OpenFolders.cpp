#include "platform/OpenFolders.h"

#include <dirent.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>

#include "foundation/Files.h"

namespace vornex {

std::vector<std::string> pathComponents(std::string_view path) {
  std::vector<std::string> components;
  while (!path.empty()) {
    std::size_t slash = path.find('/');
    if (slash != 0) components.emplace_back(path.substr(0, slash));
    path.remove_prefix(slash == std::string_view::npos ? path.size() : slash + 1);
  }
  return components;
}

bool isPlainName(const std::string& name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos &&
         name.find('\0') == std::string::npos;
}

FileDescriptor openFolderIn(int folder, const std::string& name) {
  return FileDescriptor(::openat(folder, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

Result<std::vector<std::string>> namesInFolder(int folder, const std::string& path) {
  FileDescriptor listed(::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  std::unique_ptr<DIR, int (*)(DIR*)> listing(listed ? ::fdopendir(listed.get()) : nullptr, ::closedir);
  if (!listing) return posixFailure(errno, "cannot list " + path);
  (void)listed.release();  // closed with the listing
  std::vector<std::string> names;
  errno = 0;
  while (const dirent* entry = ::readdir(listing.get())) {
    std::string_view name = entry->d_name;
    if (name != "." && name != "..") names.emplace_back(name);
  }
  if (errno != 0) return posixFailure(errno, "cannot list " + path);
  return names;
}

std::string pathThrough(const FileDescriptor& folder, const std::string& name) {
  return fmt::format("/proc/self/fd/{}/{}", folder.get(), name);
}

Result<FolderEntry> findEntry(const std::string& root, const std::vector<std::string>& components) {
  if (components.empty() || !std::all_of(components.begin(), components.end(), isPlainName))
    return posixFailure(EINVAL, "no path of an item in " + root);
  FileDescriptor folder(::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  std::string path = root;
  for (std::size_t i = 0; folder && i + 1 < components.size(); ++i) {
    path = appendPathComponent(path, components[i]);
    folder = openFolderIn(folder.get(), components[i]);
  }
  if (!folder) return posixFailure(errno, "cannot open " + path);
  return FolderEntry{std::move(folder), components.back()};
}

Result<void> removeTree(int folder, const std::string& name) {
  if (::unlinkat(folder, name.c_str(), 0) == 0 || errno == ENOENT || errno == ENOTDIR) return {};
  if (errno != EISDIR && errno != EPERM) return posixFailure(errno, "cannot remove " + name);
  Result<void> removed;
  if (FileDescriptor inside = openFolderIn(folder, name)) {
    ::fchmod(inside.get(), S_IRWXU);
    if (auto names = namesInFolder(inside.get(), name)) {
      for (const std::string& entry : *names)
        if (auto below = removeTree(inside.get(), entry); removed) removed = std::move(below);
    }
  }
  if (::unlinkat(folder, name.c_str(), AT_REMOVEDIR) == 0 || errno == ENOENT) return {};
  if (!removed) return removed;
  return posixFailure(errno, "cannot remove " + name);
}

Result<void> removeTree(const std::string& path) {
  return removeTree(AT_FDCWD, path);
}

}  // namespace vornex
