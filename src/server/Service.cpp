#include "server/Service.h"

#include <vornex/Log.h>

#include "core/StorageLayout.h"
#include "foundation/Files.h"

namespace vornex::server {

const char* serverVersion() {
  return VORNEX_VERSION;
}

Result<std::unique_ptr<Service>> Service::open(LibraryRegistry::StoreOpener storeOpener,
                                               std::size_t sessionLimit) {
  auto lock = InstanceLock::acquire();
  if (!lock) return tl::unexpected(lock.error());
  std::unique_ptr<Service> service(new Service(std::move(*lock), std::move(storeOpener), sessionLimit));
  if (auto made = createDirectories(layout::databaseRoot()); !made) return tl::unexpected(made.error());
  if (auto opened = service->users_.open(); !opened) return tl::unexpected(opened.error());
  // A list that cannot be read now is reported when the libraries are to be loaded.
  if (auto read = service->libraries_.readList(); !read) logLine(LogLevel::error, read.error().message);
  return service;
}

}  // namespace vornex::server
