#pragma once

#include <vornex/Value.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <latch>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "foundation/Error.h"
#include "server/TreeHash.h"
#include "server/store/AssetStore.h"
#include "server/store/ProjectTree.h"

namespace vornex::server {

enum class LibraryState { closed = 0, open = 1, failed = 2 };

/// The trees in a package folder.
struct LibraryTrees {
  explicit LibraryTrees(const std::string& packageFolder);
  ProjectTree projects;
  TreeHash liveFolderHash;
  TreeHash fcpxLibraryHash;
};

/// A library as one request sees it. While somebody holds it, its database stays open.
struct Library {
  std::string dbName;
  std::string packageFolder;
  /// The 17-key dictionary.
  std::shared_ptr<const Dictionary> record;
  LibraryState state = LibraryState::closed;
  /// Null unless the state is open.
  std::shared_ptr<AssetStore> store;
  std::shared_ptr<LibraryTrees> trees;
};

/// Whether a client of the control channel is still there.
struct ClientPresence {
  std::atomic<bool> gone = false;
};

/// What happens to libraries, told to the clients of the control channel.
struct LibraryEvents {
  std::function<void(const std::string& dbName, LibraryState state)> stateChanged = [](auto&&...) {};
  std::function<void()> loaded = [] {};
  std::function<void(Array records)> created = [](auto&&...) {};
  std::function<void(Array records)> updated = [](auto&&...) {};
  std::function<void(Array records)> deleted = [](auto&&...) {};
};

/// The local libraries: those of the list file and those added since, each with its database.
///
/// Thread-safety: safe on any thread, but for listen(), during which no library may be changing. Changes of
/// one library wait for one another; those of different libraries run side by side. Reading the list does not
/// wait for what may take long, like a copy: what it means for a library that is busy so is done afterwards.
/// Events are delivered on the changing thread, without locks.
class LibraryRegistry {
 public:
  using StoreOpener =
      std::function<Result<std::unique_ptr<AssetStore>>(const std::string& folder, bool mayCreate)>;

  struct Failure {
    std::string dbName;
    Error error;
  };
  struct LoadReport {
    /// How many libraries are open.
    std::size_t open = 0;
    std::vector<Failure> failures;
  };

  /// A library that was closed for its last copy has `timeToLeave` to leave the list, if its client stays.
  explicit LibraryRegistry(StoreOpener opener, std::chrono::milliseconds timeToLeave = std::chrono::hours(1));
  ~LibraryRegistry();

  void listen(LibraryEvents events) { events_ = std::move(events); }

  /// Reads the list file: libraries that left it are closed and forgotten, changed records are taken over,
  /// and new ones are known, and open when load() has run. Libraries that add() brought and that the file
  /// never named stay.
  [[nodiscard]] Result<void> readList();

  /// Reads the list file and opens every library that is not open, several at a time. A library whose
  /// database is missing or damaged is a failure and does not stop the others.
  [[nodiscard]] Result<LoadReport> load();

  /// Takes the library in and opens its database, made when it is missing and `mayCreate`. A known one gets
  /// the new record.
  [[nodiscard]] Result<void> add(const Dictionary& record, bool mayCreate);

  /// Opens the database of a known library; `databaseNotFound` when the library or its database is unknown.
  [[nodiscard]] Result<void> launch(const std::string& dbName);

  /// Closes the database after the requests that use it have ended, and forgets a library that the list file
  /// has not named. Closing what is closed is a success.
  void close(const std::string& dbName);
  void closeAll();
  /// Closes all, and opens nothing of itself any more; no other call may be under way or follow.
  void end();

  /// Closes, forgets and removes the database folder, also of a library that is unknown.
  [[nodiscard]] Result<void> remove(const std::string& dbName);

  /// Removes the database of a library that leaves the list. Refused with `itemExists` when it was opened
  /// since its last copy with `close`: the copy may lack what was written.
  [[nodiscard]] Result<void> retire(const std::string& dbName);

  /// Puts the copy staged beside the database in its place; what was there is staged then. Nobody can open
  /// the library meanwhile. A copy that is damaged or cannot be opened is refused, and the database stays.
  [[nodiscard]] Result<void> replace(const std::string& dbName);

  /// Writes a consistent copy of the database into the folder, which must exist and be empty, while requests
  /// go on. The library may be closed or unknown. With `close` its database is closed first, after the
  /// requests that use it have ended, and unless the copy fails it stays closed: the copy is its last state.
  /// Until its time to leave the list is over, or the client, if it is given, is gone, only launch() opens
  /// it; then it is opened again.
  [[nodiscard]] Result<void> snapshot(const std::string& dbName, const std::string& folder, bool close,
                                      std::shared_ptr<const ClientPresence> client = nullptr);

  /// Some client is gone.
  void clientLeft();

  std::optional<Library> find(const std::string& dbName) const;
  std::vector<Library> all() const;

 private:
  using Clock = std::chrono::steady_clock;

  struct Entry {
    Library library;
    /// When it is opened again, or as soon as the client is gone; load() leaves it alone before.
    Clock::time_point keptClosedUntil;
    std::shared_ptr<const ClientPresence> keptClosedFor;
    /// Named by the list file.
    bool listed = false;
    /// No longer named by it: to be closed and forgotten.
    bool leaves = false;
    /// To be opened.
    bool opens = false;
    /// Counted down when the last holder of the open store lets go of it.
    std::shared_ptr<std::latch> storeClosed;
  };
  class Turn;

  [[nodiscard]] Result<void> open(const std::string& dbName, bool mayCreate);
  [[nodiscard]] Result<void> openLocked(const std::string& dbName, bool mayCreate);
  void closeLocked(const std::string& dbName);
  void takesLong(const std::string& dbName);
  void keepClosed(const std::string& dbName, Clock::time_point until,
                  std::shared_ptr<const ClientPresence> client = nullptr);
  bool isKeptClosed(const std::string& dbName) const;
  void keep(const std::stop_token& stop);
  void takeOverdue();
  void settle();
  void letGoOfLeaving();
  void letGo(const std::string& dbName);
  void setOpens(const std::string& dbName);
  enum class Forget { any, unlisted };
  void forgetLocked(const std::string& dbName, Forget which);
  void setFailed(const std::string& dbName);
  std::vector<std::string> names() const;
  Result<void> takeListFile();
  LoadReport openEach(const std::vector<std::string>& dbNames);
  bool takeRecord(const Dictionary& record, bool listed);

  const StoreOpener openStore_;
  const std::chrono::milliseconds timeToLeave_;
  LibraryEvents events_;

  mutable std::mutex mutex_;
  std::condition_variable turnEnded_;
  std::map<std::string, Entry> entries_;
  /// Those whose last copy, made with `close`, has everything.
  std::set<std::string> packed_;
  /// The libraries that are being changed, and whether that may take long.
  std::map<std::string, bool> busy_;
  bool loaded_ = false;
  /// Something was left for when a library is no longer busy.
  bool unsettled_ = false;
  bool woken_ = false;
  std::condition_variable_any wake_;
  /// One reading of the list file at a time.
  std::mutex listMutex_;
  /// Does later what could not be done at once.
  std::jthread keeper_;
};

}  // namespace vornex::server
