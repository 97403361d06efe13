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

std::vector<std::string> storedTags(const std::string& tag) {
  std::vector<std::string> tags;
  std::size_t start = 0;
  while (start <= tag.size()) {
    std::size_t end = std::min(tag.find(',', start), tag.size());
    std::string part = trimmedWhitespace(validUtf8(std::string_view(tag).substr(start, end - start)));
    if (!part.empty()) tags.push_back(std::move(part));
    start = end + 1;
  }
  return tags;
}

Result<std::vector<std::string>> fileTags(const std::string& path) {
  return readAttribute(path).map(storedTags);
}

Result<void> setFileTags(const std::string& path, const std::vector<std::string>& tags) {
  std::string text = joinTags(tags);
  int status = text.empty() ? removexattr(path.c_str(), kAttribute)
                            : setxattr(path.c_str(), kAttribute, text.data(), text.size(), 0);
  if (status != 0 && errno != ENODATA) return posixFailure(errno, "cannot set the tags of " + path);
  return {};
}

}  // namespace vornex
