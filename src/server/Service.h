#pragma once

#include <memory>

#include "foundation/Error.h"
#include "server/InstanceLock.h"
#include "server/LibraryRegistry.h"
#include "server/Sessions.h"
#include "server/Users.h"

namespace vornex::server {

/// "major.minor.patch".
const char* serverVersion();

/// What one vornexd process holds: the right to its root folder, the users, their sessions and the libraries.
/// The control channel and the web server work on it.
///
/// Thread-safety: safe on any thread; each part guards itself.
class Service {
 public:
  /// Takes the root folder; `itemExists` when another process serves it. No database is opened yet.
  [[nodiscard]] static Result<std::unique_ptr<Service>> open(
      LibraryRegistry::StoreOpener storeOpener, std::size_t sessionLimit = Sessions::kDefaultLimit);

  Users& users() { return users_; }
  Sessions& sessions() { return sessions_; }
  FailedLogins& failedLogins() { return failedLogins_; }
  LibraryRegistry& libraries() { return libraries_; }

 private:
  Service(InstanceLock lock, LibraryRegistry::StoreOpener storeOpener, std::size_t sessionLimit)
      : lock_(std::move(lock)), sessions_(sessionLimit), libraries_(std::move(storeOpener)) {}

  InstanceLock lock_;
  Users users_;
  Sessions sessions_;
  FailedLogins failedLogins_;
  LibraryRegistry libraries_;
};

}  // namespace vornex::server
