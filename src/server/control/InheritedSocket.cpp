#include "server/control/InheritedSocket.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>

namespace vornex::server {
namespace {

/// The first descriptor that a service manager passes.
constexpr int kFirst = 3;

std::string takeVariable(const char* name) {
  const char* value = std::getenv(name);
  std::string text = value ? value : "";
  ::unsetenv(name);
  return text;
}

int option(int socket, int name) {
  int value = 0;
  socklen_t size = sizeof value;
  return ::getsockopt(socket, SOL_SOCKET, name, &value, &size) == 0 ? value : -1;
}

}  // namespace

Result<FileDescriptor> takeInheritedSocket() {
  std::string process = takeVariable("LISTEN_PID");
  std::string count = takeVariable("LISTEN_FDS");
  ::unsetenv("LISTEN_FDNAMES");
  if (process != std::to_string(::getpid()) || count.empty()) return FileDescriptor();
  FileDescriptor socket(kFirst);
  bool isUsable = count == "1" && option(socket.get(), SO_DOMAIN) == AF_UNIX &&
                  option(socket.get(), SO_TYPE) == SOCK_STREAM && option(socket.get(), SO_ACCEPTCONN) == 1;
  if (!isUsable)
    return posixFailure(EINVAL, "The service manager passes something else than one Unix socket");
  ::fcntl(socket.get(), F_SETFD, FD_CLOEXEC);
  return socket;
}

}  // namespace vornex::server
