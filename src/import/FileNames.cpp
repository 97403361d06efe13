#include "import/FileNames.h"

#include <fmt/format.h>
#include <unicode/utf8.h>

#include <filesystem>

#include "foundation/Files.h"
#include "foundation/Text.h"

namespace vornex {

static constexpr std::size_t kLongestName = 255;
static constexpr int kLastNumber = 10000;

std::string recordText(std::string_view bytes) {
  std::string text;
  auto length = static_cast<std::int32_t>(bytes.size());
  for (std::int32_t next = 0; next < length;) {
    std::int32_t start = next;
    UChar32 character;
    U8_NEXT(bytes.data(), next, length, character);
    if (character >= 0) {
      text.append(bytes, static_cast<std::size_t>(start), static_cast<std::size_t>(next - start));
      continue;
    }
    for (; start < next; ++start)
      text += fmt::format("%{:02X}", static_cast<unsigned char>(bytes[static_cast<std::size_t>(start)]));
  }
  return text;
}

std::string fittingFileName(std::string_view name, std::string_view suffix) {
  std::size_t room = kLongestName > suffix.size() ? kLongestName - suffix.size() : 0;
  if (name.size() > room) {
    while (room > 0 && U8_IS_TRAIL(name[room])) --room;
    name = name.substr(0, room);
  }
  return std::string(name).append(suffix);
}

std::string fittingName(const std::string& name) {
  if (name.size() <= kLongestName) return name;
  std::string extension = pathExtension(name);
  bool isPlausible = !extension.empty() && extension.size() < kLongestName / 4;
  return isPlausible ? fittingFileName(deletingPathExtension(name), "." + extension)
                     : fittingFileName(name, "");
}

static std::string numbered(const std::string& name, int number) {
  return fittingFileName(deletingPathExtension(name), fmt::format(" {}.{}", number, pathExtension(name)));
}

/// The first number from `number` on that is not taken, at most the last one.
static int freeNumber(const std::string& name, int number,
                      const std::function<bool(const std::string&)>& isTaken) {
  while (number < kLastNumber && isTaken(numbered(name, number))) ++number;
  return number;
}

std::string availableFileName(const std::string& name,
                              const std::function<bool(const std::string&)>& isTaken) {
  return isTaken(name) ? numbered(name, freeNumber(name, 1, isTaken)) : name;
}

void NameSearch::take(const std::string& folder, const std::string& name) {
  taken_.insert(appendPathComponent(folder, name));
}

std::string NameSearch::available(const std::string& folder, const std::string& name,
                                  const std::function<bool(const std::string&)>& isTakenElsewhere) {
  auto isTaken = [&](const std::string& candidate) {
    return taken_.contains(appendPathComponent(folder, candidate)) || isTakenElsewhere(candidate);
  };
  if (!isTaken(name)) return name;
  int& last = lastNumbers_[appendPathComponent(folder, name)];
  last = freeNumber(name, std::min(last + 1, kLastNumber), isTaken);
  return numbered(name, last);
}

static bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

OptionalString reelName(const std::string& fileName) {
  std::string extension = pathExtension(fileName);
  for (std::size_t start = 0; (start = fileName.find('_', start)) != std::string::npos; ++start) {
    std::size_t end = start + 1;
    while (end < fileName.size() && isDigit(fileName[end])) ++end;
    // Any one character stands between the number and the extension; the number's last digit may be it.
    for (std::size_t last = end; last > start + 1; --last) {
      if (last < fileName.size() && fileName.compare(last + 1, extension.size(), extension) == 0)
        return fileName.substr(0, start);
    }
  }
  return std::nullopt;
}

std::string availableREDFolder(const std::string& folder, const std::string& name) {
  std::string path = appendPathComponent(folder, name);
  for (int number = 1; number <= kLastNumber && itemExists(path); ++number)
    path = appendPathComponent(folder, fmt::format("{} {}.RDC", deletingPathExtension(name), number));
  return path;
}

OptionalString referenceREDFile(const std::string& folder, const std::string& target) {
  OptionalString first;
  std::error_code error;
  for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    std::string name = entry->path().filename().string();
    bool isPart = lowercased(pathExtension(name)) == "r3d" && reelName(name);
    if (isPart && (!first || name < *first)) first = name;
  }
  return first ? std::make_optional(appendPathComponent(target, *first)) : std::nullopt;
}

}  // namespace vornex
