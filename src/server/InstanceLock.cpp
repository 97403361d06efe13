#include "server/InstanceLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

#include "core/StorageLayout.h"
#include "foundation/Files.h"
#include "foundation/Text.h"
#include "server/ServerError.h"

namespace vornex::server {
namespace {

tl::unexpected<Error> heldByAnother(int file) {
  char text[128] = {};
  ssize_t length = ::pread(file, text, sizeof text - 1, 0);
  std::string process = length > 0 ? trimmedWhitespace(std::string_view(text, length)) : "unknown";
  // A client at work on databases adds what it does.
  const std::size_t blank = process.find(' ');
  const std::string message =
      blank == std::string::npos
          ? fmt::format("Another vornexd (process {}) already serves {}.", process, layout::rootFolder())
          : fmt::format("Process {} is {} of {}; the service cannot start before that has ended.",
                        process.substr(0, blank), process.substr(blank + 1), layout::rootFolder());
  return serverFailure(StatusCode::itemExists, message);
}

}  // namespace

Result<InstanceLock> InstanceLock::acquire() {
  if (auto made = createDirectories(layout::serviceFolder(), 0700); !made)
    return tl::unexpected(made.error());
  std::string path = layout::serviceLockFile();
  FileDescriptor file(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (!file) return posixFailure(errno, "Cannot open " + path);
  if (::flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
    if (errno == EWOULDBLOCK) return heldByAnother(file.get());
    return posixFailure(errno, "Cannot lock " + path);
  }
  std::string process = std::to_string(::getpid()) + "\n";
  if (::ftruncate(file.get(), 0) != 0 ||
      ::pwrite(file.get(), process.data(), process.size(), 0) != static_cast<ssize_t>(process.size())) {
    return posixFailure(errno, "Cannot write " + path);
  }
  return InstanceLock(std::move(file));
}

}  // namespace vornex::server
