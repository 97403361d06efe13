#include "cli/FileWalk.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <set>
#include <system_error>
#include <utility>

#include "cli/Paths.h"
#include "foundation/Files.h"
#include "foundation/Text.h"

namespace vornex::cli {
namespace {

using FileIdentity = std::pair<dev_t, ino_t>;

FileIdentity identity(const struct stat& status) {
  return {status.st_dev, status.st_ino};
}

class Walk {
 public:
  explicit Walk(const WalkOptions& options) : options_(options) {
    for (const std::string& folder : options.excludedFolders) {
      struct stat status {};
      if (stat(folder.c_str(), &status) == 0) excluded_.insert(identity(status));
    }
  }

  void visit(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
      fail(path, describeFailure(path, errno));
    } else if (S_ISREG(status.st_mode)) {
      result.files.push_back(
          {path, static_cast<std::uint64_t>(status.st_size), milliseconds(status.st_mtim)});
    } else if (S_ISDIR(status.st_mode)) {
      visitFolder(path, status);
    } else {
      skip(path, "neither a file nor a folder");
    }
  }

  /// A file may be named, and lie in a folder that is named.
  void skipRepeated() {
    std::set<std::string> taken;
    std::erase_if(result.files, [&](const FoundFile& file) {
      const bool isRepeated = !taken.insert(file.path).second;
      if (isRepeated) skip(file.path, "taken already");
      return isRepeated;
    });
  }

  WalkResult result;

 private:
  static std::int64_t milliseconds(const timespec& time) {
    return static_cast<std::int64_t>(time.tv_sec) * 1000 + time.tv_nsec / 1'000'000;
  }

  static std::string describeFailure(const std::string& path, int errorNumber) {
    if (errorNumber == ENOENT && itemExists(path)) return "a link to something that does not exist";
    if (errorNumber == ENOENT) return "no such file or folder";
    if (errorNumber == ELOOP) return "a link that leads back to itself";
    return std::strerror(errorNumber);
  }

  void visitFolder(const std::string& path, const struct stat& status) {
    if (excluded_.contains(identity(status))) return skip(path, "a library's own folder");
    if (!walked_.insert(identity(status)).second) return skip(path, "leads to a folder already taken");
    const std::size_t first = result.files.size();
    for (const std::string& name : entries(path)) {
      if (name.starts_with('.') && !options_.hidden) {
        ++result.hiddenCount;
      } else {
        visit(appendPathComponent(path, name));
      }
    }
    if (options_.clipFoldersWhole && lowercased(pathExtension(path)) == "rdc") foldClip(path, status, first);
  }

  /// Puts the folder into the place of what was found in it, if that is a clip.
  void foldClip(const std::string& path, const struct stat& status, std::size_t first) {
    FoundFile clip{path, 0, milliseconds(status.st_mtim)};
    for (std::size_t i = first; i < result.files.size(); ++i) {
      clip.size += result.files[i].size;
      clip.isClipFolder |= lowercased(pathExtension(result.files[i].path)) == "r3d";
    }
    if (!clip.isClipFolder) return;
    result.files.resize(first);
    result.files.push_back(std::move(clip));
  }

  std::vector<std::string> entries(const std::string& path) {
    std::vector<std::string> names;
    std::error_code error;
    std::filesystem::directory_iterator entry(path, error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
      names.push_back(entry->path().filename().native());
    }
    if (error) fail(path, error.message());
    std::sort(names.begin(), names.end());
    return names;
  }

  void fail(const std::string& path, std::string reason) {
    result.failures.push_back({path, std::move(reason)});
  }
  void skip(const std::string& path, std::string reason) {
    result.skipped.push_back({path, std::move(reason)});
  }

  const WalkOptions& options_;
  std::set<FileIdentity> walked_;
  std::set<FileIdentity> excluded_;
};

}  // namespace

std::uint64_t WalkResult::totalBytes() const {
  std::uint64_t total = 0;
  for (const FoundFile& file : files) total += file.size;
  return total;
}

WalkResult findFiles(const std::vector<std::string>& paths, const WalkOptions& options) {
  Walk walk(options);
  for (const std::string& path : paths) walk.visit(absolutePath(path));
  walk.skipRepeated();
  return std::move(walk.result);
}

}  // namespace vornex::cli
