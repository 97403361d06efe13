#pragma once

#include <string>

#include "foundation/Error.h"
#include "foundation/FileDescriptor.h"

namespace vornex {

/// The certainty that no service runs nor starts, for work on databases that a service may not see. A service
/// that somebody starts meanwhile ends at once, and says which process does what.
///
/// Thread-safety: none; one owner.
class ServiceAway {
 public:
  /// `work`: a few words, like "copying a database". EWOULDBLOCK, domain "posix", when a service runs.
  [[nodiscard]] static Result<ServiceAway> keep(const std::string& work);
  ServiceAway(ServiceAway&&) = default;
  ~ServiceAway();

 private:
  explicit ServiceAway(FileDescriptor file) : file_(std::move(file)) {}

  FileDescriptor file_;
};

/// removeDatabaseFolder for when the service cannot be asked to. One that runs all the same keeps the
/// database, and this fails. Thread-safe.
[[nodiscard]] Result<void> removeUnservedDatabase(const std::string& dbName);

}  // namespace vornex
