#include "foundation/SharedDictionaryFile.h"

#include <vornex/Log.h>

#include <cerrno>
#include <cstdio>

#include "foundation/FileLock.h"
#include "foundation/Files.h"
#include "foundation/PropertyList.h"

namespace vornex {

/// Where a damaged file goes, beside those that went before.
static std::string freePlaceFor(const std::string& path) {
  std::string place = path + ".damaged";
  for (int number = 2; itemExists(place); ++number) place = path + ".damaged-" + std::to_string(number);
  return place;
}

static Result<std::optional<Dictionary>> readOrSetAside(const std::string& path) {
  if (!itemExists(path)) return std::nullopt;
  Result<Dictionary> file = readDictionaryFile(path);
  if (file) return std::move(*file);
  if (file.error().domain == "posix") return tl::unexpected(file.error());
  const std::string aside = freePlaceFor(path);
  if (std::rename(path.c_str(), aside.c_str()) != 0) return posixFailure(errno, "move aside " + path);
  logLine(LogLevel::error, file.error().message + "; kept as " + aside);
  return std::nullopt;
}

Result<void> changeDictionaryFile(const std::string& path, const DictionaryChange& change, unsigned mode) {
  Result<FileLock> lock = FileLock::acquire(path);
  if (!lock) return tl::unexpected(lock.error());
  Result<std::optional<Dictionary>> present = readOrSetAside(path);
  if (!present) return tl::unexpected(present.error());
  Result<std::string> bytes = writePropertyList(change(std::move(*present)));
  if (!bytes) return tl::unexpected(bytes.error());
  return writeFileAtomically(path, *bytes, mode);
}

}  // namespace vornex
