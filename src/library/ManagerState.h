#pragma once

#include <vornex/TQCopyInterface.h>
#include <vornex/TQLibraryManager.h>
#include <vornex/TQVornexUtil.h>
#include <vornex/TQWorkflowEngineInterface.h>
#include <vornex/XMPKit.h>

#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "foundation/Error.h"
#include "library/Published.h"
#include "library/SharedList.h"

namespace vornex {

/// The "version" of a library whose database lives in the shared database folder.
inline constexpr const char* kSharedDatabaseVersion = "1.1";

/// A list of libraries in its order, with the first library of each database name.
struct LibraryList {
  LibraryList() = default;
  explicit LibraryList(std::vector<LibraryPtr> libraries);

  std::vector<LibraryPtr> all;
  std::unordered_map<std::string, LibraryPtr> byDBName;
};

struct TQLibraryManager::State {
  /// Serialises the changes of the list; who changes it reads, copies and publishes while holding it.
  std::recursive_mutex monitor;
  Published<LibraryList> libraries;
  SharedList localList{{TQVornexUtil::localLibraryPlist(), "library", "dbname"}};
  SharedList networkList{{TQVornexUtil::networkLibraryPlist(), "library", "dbname"}};
  /// Guards the file, too.
  std::mutex networkUsersMutex;
  Dictionary networkUsers;
  /// As last read or written; the difference is this process's change.
  Dictionary networkUsersInFile;
  /// Absent when the host application's file was missing at the last look.
  Published<std::optional<Dictionary>> networkUsersFromBrindle;
  /// The host's.
  Published<Array> bookmarks;
  XMPKit xmpKit;
  TQCopyInterface copyInterface;
  TQWorkflowEngineInterface workflowEngineInterface;

  // These need the monitor.

  /// Sorts and publishes.
  void publish(std::vector<LibraryPtr> next);
  void append(const std::vector<LibraryPtr>& added);
  /// The list that holds libraries of the type.
  SharedList& list(std::int64_t type) { return type == kLibraryTypeLocal ? localList : networkList; }
  /// The next save writes them even if another process has removed them from the file.
  void claim(const std::vector<LibraryPtr>& added);
};

/// Whether the file of the local list has a row of the database name, by whatever process. An error for a
/// file that is there and cannot be read.
[[nodiscard]] Result<bool> isInLocalList(const OptionalString& dbName);

/// Gives a local library's connection the local user and the port of the local service.
void connectLocally(const LibraryPtr& library);

}  // namespace vornex
