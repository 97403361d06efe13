#include "platform/FileKind.h"

#include <gio/gio.h>
#include <sys/stat.h>

#include <cerrno>
#include <fstream>
#include <memory>

namespace vornex {

Result<std::string> mimeType(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return posixFailure(errno, "cannot find " + path);
  if (!S_ISREG(status.st_mode)) return posixFailure(EINVAL, path + " is not a regular file");
  char head[4096];
  std::ifstream stream(path, std::ios::binary);
  stream.read(head, sizeof head);
  using Text = std::unique_ptr<char, void (*)(void*)>;
  Text type(g_content_type_guess(path.c_str(), reinterpret_cast<const guchar*>(head),
                                 static_cast<gsize>(stream.gcount()), nullptr),
            g_free);
  Text mime(type ? g_content_type_get_mime_type(type.get()) : nullptr, g_free);
  return mime ? mime.get() : "application/octet-stream";
}

}  // namespace vornex
