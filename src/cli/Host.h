#pragma once

#include <vornex/Types.h>

#include <optional>
#include <string>
#include <vector>

#include "foundation/Error.h"

namespace vornex::cli {

/// The SDK as the commands see it: the service, and the libraries and projects by what a person types.
///
/// Every operation blocks, and none may be called on the main thread, which has to pump the main queue.
/// Thread-safety: none.
class Host {
 public:
  /// The port is for a service that is yet to be started; 0 is any free one.
  explicit Host(std::int64_t port) : port_(port) {}

  std::int64_t wantedPort() const { return port_; }

  /// The HTTP port of the running service; absent when none runs. Never starts one.
  std::optional<std::int64_t> servicePort();

  /// Starts the service unless it runs; gives the port that it listens on, which is another one than asked
  /// for when it runs already.
  [[nodiscard]] Result<std::int64_t> startService();

  /// The same for a service that was lost: on the port that it had, which the libraries' connections name.
  [[nodiscard]] Result<void> restoreService();

  /// Ends the service process. False when none runs.
  [[nodiscard]] Result<bool> stopService();

  /// Starts the service unless it runs, and loads the list of libraries.
  [[nodiscard]] Result<std::vector<LibraryPtr>> libraries();

  /// The library with the name, path or database name as the list has it, usable or not; without one, the
  /// only library there is.
  [[nodiscard]] Result<LibraryPtr> listedLibrary(const OptionalString& wanted);

  /// The library with the name, path or database name; without one, the only library there is. Its project
  /// tree is loaded.
  [[nodiscard]] Result<LibraryPtr> library(const OptionalString& wanted);

  /// The project or group named by "name" or "name/group/group"; without one, the only project there is.
  [[nodiscard]] static Result<ProjectPtr> project(const LibraryPtr& library, const OptionalString& wanted);

 private:
  Result<LibraryPtr> loadLibrary(const OptionalString& wanted);

  std::int64_t port_;
};

/// An error when the folder of a local library is missing.
[[nodiscard]] Result<void> checkFolder(const LibraryPtr& library);

/// "name/group/group", or "-" for none.
std::string projectPath(const ProjectPtr& project);

/// The node below the library that the path or identifier names, or null.
ProjectPtr findProject(const LibraryPtr& library, const std::string& path);

/// The names in "name/group/group".
std::vector<std::string> projectNames(const std::string& path);

}  // namespace vornex::cli
