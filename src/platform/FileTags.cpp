#include "platform/FileTags.h"

#include <sys/xattr.h>

#include <cerrno>

#include "foundation/Text.h"

namespace vornex {

namespace {

constexpr const char* kAttribute = "user.xdg.tags";

/// The attribute's text; empty when it is not set.
Result<std::string> readAttribute(const std::string& path) {
  // The value may grow between asking for its size and reading it.
  for (int attempt = 0; attempt < 8; ++attempt) {
    ssize_t size = getxattr(path.c_str(), kAttribute, nullptr, 0);
    if (size < 0 && errno == ENODATA) return std::string();
    if (size < 0) return posixFailure(errno, "cannot read the tags of " + path);
    std::string text(static_cast<std::size_t>(size), '\0');
    size = getxattr(path.c_str(), kAttribute, text.data(), text.size());
    if (size < 0 && (errno == ERANGE || errno == ENODATA)) continue;
    if (size < 0) return posixFailure(errno, "cannot read the tags of " + path);
    text.resize(static_cast<std::size_t>(size));
    return text;
  }
  return posixFailure(EBUSY, "cannot read the tags of " + path);
}

std::vector<std::string> splitTags(const std::string& text) {
  std::vector<std::string> tags;
  std::size_t start = 0;
  while (start <= text.size()) {
    std::size_t end = std::min(text.find(',', start), text.size());
    std::string tag = trimmedWhitespace(validUtf8(std::string_view(text).substr(start, end - start)));
    if (!tag.empty()) tags.push_back(std::move(tag));
    start = end + 1;
  }
  return tags;
}

std::string joinTags(const std::vector<std::string>& tags) {
  std::string text;
  for (const std::string& tag : tags) {
    if (tag.empty()) continue;
    if (!text.empty()) text += ',';
    text += tag;
  }
  return text;
}

}  // namespace

Result<std::vector<std::string>> fileTags(const std::string& path) {
  return readAttribute(path).map(splitTags);
}

Result<void> setFileTags(const std::string& path, const std::vector<std::string>& tags) {
  std::string text = joinTags(tags);
  int status = text.empty() ? removexattr(path.c_str(), kAttribute)
                            : setxattr(path.c_str(), kAttribute, text.data(), text.size(), 0);
  if (status != 0 && errno != ENODATA) return posixFailure(errno, "cannot set the tags of " + path);
  return {};
}

}  // namespace vornex
