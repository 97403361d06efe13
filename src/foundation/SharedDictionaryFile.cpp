#include "foundation/SharedDictionaryFile.h"

#include <vornex/Log.h>

#include <cerrno>
#include <cstdio>

#include "foundation/FileLock.h"
#include "foundation/Files.h"
#include "foundation/PropertyList.h"

namespace vornex {

static Result<Dictionary> readOrSetAside(const std::string& path) {
  if (!itemExists(path)) return Dictionary();
  Result<Dictionary> file = readDictionaryFile(path);
  if (file || file.error().domain == "posix") return file;
  std::string aside = path + ".damaged";
  if (std::rename(path.c_str(), aside.c_str()) != 0) return posixFailure(errno, "move aside " + path);
  logLine(LogLevel::error, file.error().message + "; kept as " + aside);
  return Dictionary();
}

Result<void> changeDictionaryFile(const std::string& path, const std::function<void(Dictionary&)>& change,
                                  unsigned mode) {
  Result<FileLock> lock = FileLock::acquire(path);
  if (!lock) return tl::unexpected(lock.error());
  Result<Dictionary> content = readOrSetAside(path);
  if (!content) return tl::unexpected(content.error());
  change(*content);
  Result<std::string> bytes = writePropertyList(*content);
  if (!bytes) return tl::unexpected(bytes.error());
  return writeFileAtomically(path, *bytes, mode);
}

}  // namespace vornex
