#pragma once

#include <vornex/Value.h>

#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>

namespace vornex {

// File names and the texts made of them. Names on disk are bytes; whatever goes into a record is UTF-8.

/// The text with every byte that is not part of valid UTF-8 written as %XX, so that the bytes can be told
/// from it. Valid text is returned as it is.
std::string recordText(std::string_view bytes);

/// The name and what follows it, the name cut at a character so that both fit in one file name (255 bytes).
std::string fittingFileName(std::string_view name, std::string_view suffix);

/// The name, or the first of "stem 1.ext", "stem 2.ext", ... that is not taken; after "stem 10000.ext" that
/// one, taken or not. A name without extension gets the dot all the same.
std::string availableFileName(const std::string& name,
                              const std::function<bool(const std::string&)>& isTaken);

/// The name, cut before its extension so that it fits in one file name.
std::string fittingName(const std::string& name);

/// The same search for many files that go into the same folders: a name that many of them have is not looked
/// for from its first number every time.
///
/// Thread-safety: none; one owner.
class NameSearch {
 public:
  /// The name counts as taken from now on.
  void take(const std::string& folder, const std::string& name);
  /// As availableFileName. Numbers that were given out are not looked at again, even if they are free by now.
  std::string available(const std::string& folder, const std::string& name,
                        const std::function<bool(const std::string&)>& isTaken);

 private:
  /// The last number given out for a path.
  std::map<std::string, int> lastNumbers_;
  std::set<std::string> taken_;
};

/// The reel that a RED clip file belongs to: the name before "_" and the part number, absent without one.
OptionalString reelName(const std::string& fileName);

/// folder/name, or folder/"stem n.RDC" while something is there.
std::string availableREDFolder(const std::string& folder, const std::string& name);

/// target/clip for the clip file in the folder whose name comes first: of a spanned clip, that is its first
/// part. Absent when there is none.
OptionalString referenceREDFile(const std::string& folder, const std::string& target);

}  // namespace vornex
