#include "platform/UnixSocket.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "foundation/Files.h"

namespace vornex {
namespace {

/// An address holds 107 bytes, so the socket is named within its open folder.
struct ShortAddress {
  FileDescriptor folder;
  sockaddr_un address{};

  const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&address); }
};

Result<ShortAddress> shortAddress(const std::string& path) {
  ShortAddress result;
  std::string folder = deletingLastPathComponent(path);
  result.folder = FileDescriptor(::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!result.folder) return posixFailure(errno, "Cannot open " + folder);
  std::string name = fmt::format("/proc/self/fd/{}/{}", result.folder.get(), lastPathComponent(path));
  if (name.size() >= sizeof result.address.sun_path) return posixFailure(ENAMETOOLONG, path);
  result.address.sun_family = AF_UNIX;
  std::memcpy(result.address.sun_path, name.data(), name.size());
  return result;
}

Result<FileDescriptor> makeSocket() {
  FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!socket) return posixFailure(errno, "Cannot make a socket");
  return socket;
}

}  // namespace

Result<FileDescriptor> connectToUnixSocket(const std::string& path, timeval limit) {
  auto address = shortAddress(path);
  if (!address) return tl::unexpected(address.error());
  auto socket = makeSocket();
  if (!socket) return socket;
  ::setsockopt(socket->get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
  if (::connect(socket->get(), address->get(), sizeof address->address) != 0)
    return posixFailure(errno, "Cannot connect to " + path);
  if (!isPeerOfSameUser(socket->get()))
    return posixFailure(EACCES, "The process behind " + path + " is another user's");
  return socket;
}

bool isListenedOn(const std::string& path) {
  auto address = shortAddress(path);
  auto socket = address ? makeSocket() : tl::unexpected(address.error());
  if (!socket) return false;
  ::fcntl(socket->get(), F_SETFL, O_NONBLOCK);
  // A listener with too many callers lets nobody wait.
  return ::connect(socket->get(), address->get(), sizeof address->address) == 0 || errno == EAGAIN ||
         errno == EACCES;
}

Result<FileDescriptor> listenOnUnixSocket(const std::string& path) {
  auto address = shortAddress(path);
  if (!address) return tl::unexpected(address.error());
  auto socket = makeSocket();
  if (!socket) return socket;
  if (::unlink(path.c_str()) != 0 && errno != ENOENT) return posixFailure(errno, "Cannot replace " + path);
  // Nobody can connect before the permissions are right.
  if (::bind(socket->get(), address->get(), sizeof address->address) != 0 ||
      ::chmod(path.c_str(), 0600) != 0 || ::listen(socket->get(), SOMAXCONN) != 0) {
    return posixFailure(errno, "Cannot listen on " + path);
  }
  return socket;
}

bool isPeerOfSameUser(int socket) {
  ucred peer{};
  socklen_t size = sizeof peer;
  return ::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && peer.uid == ::geteuid();
}

}  // namespace vornex
