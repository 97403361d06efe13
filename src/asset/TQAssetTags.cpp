#include <vornex/Log.h>
#include <vornex/TQAsset.h>
#include <vornex/TQLibrary.h>

#include "foundation/Patience.h"
#include "foundation/Text.h"
#include "platform/FileTags.h"

namespace vornex {

// The positions are the colour numbers less one.
static constexpr std::array<std::string_view, 7> kColors = {"red",  "orange", "yellow", "green",
                                                            "blue", "purple", "gray"};

std::string TQAsset::colorString(std::int64_t colorType) {
  bool known = colorType >= 1 && colorType <= static_cast<std::int64_t>(kColors.size());
  return known ? std::string(kColors[static_cast<std::size_t>(colorType - 1)]) : "none";
}

bool TQAsset::isColorTag(const std::string& tag) {
  return std::find(kColors.begin(), kColors.end(), lowercased(tag)) != kColors.end();
}

bool TQAsset::findTagString(const std::string& tag, const std::vector<std::string>& tagArray) {
  return std::any_of(tagArray.begin(), tagArray.end(),
                     [&](const std::string& known) { return localizedEqual(known, tag); });
}

static bool writeTags(const std::string& path, const std::vector<std::string>& tags) {
  Result<void> written = setFileTags(path, tags);
  if (!written) logLine(LogLevel::info, "tags not written: " + written.error().message);
  return written.has_value();
}

/// Changes the tags of a file, which may be referenced on a disk that answers no more. The change gives the
/// new tags for the present ones.
static bool changeTags(const std::string& path,
                       std::function<std::vector<std::string>(std::vector<std::string>)> change) {
  auto work = [path, change = std::move(change)] {
    Result<std::vector<std::string>> present = fileTags(path);
    if (!present) return false;
    std::vector<std::string> tags = change(*present);
    return tags == *present || writeTags(path, tags);
  };
  return patiently(std::move(work), sourcePatience()).value_or(false);
}

bool TQAsset::updateColorLabel(std::int64_t color) {
  LibraryPtr owner = library();
  if (!owner || !owner->packageFolder || !masterPath || masterPath->empty()) return false;
  // Master paths begin with the separator.
  OptionalString path = resolvedPath(*owner->packageFolder + *masterPath);
  if (!path) return false;
  return changeTags(*path, [name = colorString(color)](std::vector<std::string> tags) {
    std::erase_if(tags, isColorTag);
    if (name != "none") tags.push_back(name);
    return tags;
  });
}

bool TQAsset::updateTags(const std::vector<std::string>& newTags) {
  OptionalString path = originMasterPath();
  if (!path) return false;
  return changeTags(*path, [newTags](std::vector<std::string> tags) {
    for (const std::string& tag : newTags)
      for (std::string& part : storedTags(tag))
        if (!findTagString(part, tags)) tags.push_back(std::move(part));
    return tags;
  });
}

}  // namespace vornex
