#include "library/ServiceAway.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

#include "core/DatabaseFolder.h"
#include "core/StorageLayout.h"
#include "foundation/Files.h"

namespace vornex {

Result<ServiceAway> ServiceAway::keep(const std::string& work) {
  if (auto made = createDirectories(layout::serviceFolder(), 0700); !made)
    return tl::unexpected(made.error());
  const std::string path = layout::serviceLockFile();
  FileDescriptor file(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (!file) return posixFailure(errno, "open " + path);
  if (::flock(file.get(), LOCK_EX | LOCK_NB) != 0)
    return posixFailure(errno, "the service that uses the database cannot be asked");
  const std::string holder = fmt::format("{} {}\n", ::getpid(), work);
  if (::ftruncate(file.get(), 0) != 0 ||
      ::pwrite(file.get(), holder.data(), holder.size(), 0) != static_cast<ssize_t>(holder.size()))
    return posixFailure(errno, "write " + path);
  return ServiceAway(std::move(file));
}

ServiceAway::~ServiceAway() {
  // Else this process would be taken for the service. When that fails, the next service mends it.
  [[maybe_unused]] const int emptied = file_ ? ::ftruncate(file_.get(), 0) : 0;
}

Result<void> removeUnservedDatabase(const std::string& dbName) {
  auto away = ServiceAway::keep("removing a database");
  if (!away) return tl::unexpected(away.error());
  return removeDatabaseFolder(dbName);
}

}  // namespace vornex
