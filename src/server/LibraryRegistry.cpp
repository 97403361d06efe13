#include "server/LibraryRegistry.h"

#include <vornex/Log.h>
#include <vornex/Types.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <utility>

#include "core/Coercion.h"
#include "core/DatabaseFolder.h"
#include "core/StorageLayout.h"
#include "foundation/Files.h"
#include "foundation/PropertyList.h"
#include "server/ServerError.h"

namespace vornex::server {
namespace {

constexpr std::size_t kMostOpeners = 8;

Result<void> checkRecord(const Dictionary& record) {
  OptionalString dbName = coerce::string(record.find("dbname"));
  OptionalString name = coerce::string(record.find("name"));
  OptionalString folder = coerce::string(record.find("packagefolder"));
  if (!dbName || !isValidDatabaseName(*dbName)) {
    return serverFailure(StatusCode::invalidRequest,
                         "The library's database name is missing or not allowed.");
  }
  if (!name || !folder || !folder->starts_with('/')) {
    return serverFailure(StatusCode::invalidRequest,
                         fmt::format("The library {} lacks a name or an absolute package folder.", *dbName));
  }
  return {};
}

/// The usable local libraries of the list file by database name.
Result<std::map<std::string, Dictionary>> readListFile() {
  std::map<std::string, Dictionary> libraries;
  std::string path = layout::localLibraryPlist();
  if (!itemExists(path)) return libraries;
  auto file = readDictionaryFile(path);
  if (!file) return tl::unexpected(file.error());
  for (const Value& value : coerce::array(file->find("library"))) {
    const Dictionary* record = value.ifDictionary();
    if (!record || coerce::integer(record->find("type")) != kLibraryTypeLocal) continue;
    if (auto checked = checkRecord(*record); !checked) {
      logLine(LogLevel::warning, path + ": " + checked.error().message);
      continue;
    }
    libraries.emplace(*record->find("dbname")->ifString(), *record);
  }
  return libraries;
}

std::shared_ptr<AssetStore> shareUntil(std::unique_ptr<AssetStore> store,
                                       std::shared_ptr<std::latch> closed) {
  return {store.release(), [closed = std::move(closed)](AssetStore* last) {
            delete last;
            closed->count_down();
          }};
}

}  // namespace

LibraryTrees::LibraryTrees(const std::string& packageFolder)
    : projects(packageFolder),
      liveFolderHash(layout::liveFolderPlist(packageFolder)),
      fcpxLibraryHash(layout::fcpxLibraryPlist(packageFolder)) {}

/// The exclusive right to change one library.
class LibraryRegistry::Turn {
 public:
  enum class Wait { always, unlessLong };

  /// False when nobody waited for what may take long; then it is seen to that somebody looks again.
  Turn(LibraryRegistry& registry, std::string dbName, Wait wait = Wait::always)
      : registry_(registry), dbName_(std::move(dbName)) {
    std::unique_lock lock(registry_.mutex_);
    auto isBusy = [&] { return registry_.busy_.contains(dbName_); };
    auto givesUp = [&] { return wait == Wait::unlessLong && isBusy() && registry_.busy_.at(dbName_); };
    registry_.turnEnded_.wait(lock, [&] { return !isBusy() || givesUp(); });
    isOurs_ = !isBusy();
    if (isOurs_)
      registry_.busy_[dbName_] = false;
    else
      registry_.unsettled_ = true;
  }
  ~Turn() {
    if (!isOurs_) return;
    {
      std::lock_guard lock(registry_.mutex_);
      registry_.busy_.erase(dbName_);
      if (registry_.unsettled_) registry_.woken_ = true;
    }
    registry_.turnEnded_.notify_all();
    registry_.wake_.notify_all();
  }
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;

  explicit operator bool() const { return isOurs_; }

 private:
  LibraryRegistry& registry_;
  const std::string dbName_;
  bool isOurs_ = false;
};

LibraryRegistry::LibraryRegistry(StoreOpener opener, std::chrono::milliseconds timeToLeave)
    : openStore_(std::move(opener)),
      timeToLeave_(timeToLeave),
      keeper_([this](const std::stop_token& stop) { keep(stop); }) {}

LibraryRegistry::~LibraryRegistry() {
  end();
}

void LibraryRegistry::end() {
  keeper_.request_stop();
  if (keeper_.joinable()) keeper_.join();
  closeAll();
}

Result<void> LibraryRegistry::readList() {
  if (auto taken = takeListFile(); !taken) return taken;
  settle();
  return {};
}

/// Brings the entries in line with the list file, as far as no database is opened or closed for it.
Result<void> LibraryRegistry::takeListFile() {
  std::lock_guard reading(listMutex_);
  auto listed = readListFile();
  if (!listed) return tl::unexpected(listed.error());
  {
    std::lock_guard lock(mutex_);
    for (auto& [dbName, entry] : entries_) {
      if (!entry.listed || listed->contains(dbName)) continue;
      entry.listed = false;
      entry.leaves = true;
    }
  }
  for (const auto& [dbName, record] : *listed) takeRecord(record, true);
  return {};
}

/// Stores the record under its database name. Returns whether the library is new.
bool LibraryRegistry::takeRecord(const Dictionary& record, bool listed) {
  const std::string& dbName = *record.find("dbname")->ifString();
  const std::string& packageFolder = *record.find("packagefolder")->ifString();
  bool isNew = false;
  bool changed = false;
  {
    std::lock_guard lock(mutex_);
    isNew = !entries_.contains(dbName);
    Entry& entry = entries_[dbName];
    entry.listed = entry.listed || listed;
    // What was about to be forgotten is as good as new.
    const bool comesBack = std::exchange(entry.leaves, false);
    if (comesBack) entry.keptClosedUntil = {};
    if (listed && (isNew || comesBack)) entry.opens = loaded_;
    if (!isNew && *entry.library.record == record) return false;
    changed = !isNew;
    if (isNew || entry.library.packageFolder != packageFolder) {
      entry.library.trees = std::make_shared<LibraryTrees>(packageFolder);
    }
    entry.library.dbName = dbName;
    entry.library.packageFolder = packageFolder;
    entry.library.record = std::make_shared<const Dictionary>(record);
  }
  if (changed) events_.updated({record});
  return isNew;
}

/// Closes what has left the list and opens what is to be open; a failure has become the library's state.
void LibraryRegistry::settle() {
  letGoOfLeaving();
  std::vector<std::string> opening;
  {
    std::lock_guard lock(mutex_);
    for (const auto& [dbName, entry] : entries_)
      if (entry.opens) opening.push_back(dbName);
  }
  (void)openEach(opening);
}

void LibraryRegistry::letGoOfLeaving() {
  std::vector<std::string> leaving;
  {
    std::lock_guard lock(mutex_);
    unsettled_ = false;
    for (const auto& [dbName, entry] : entries_)
      if (entry.leaves) leaving.push_back(dbName);
  }
  for (const std::string& dbName : leaving) letGo(dbName);
}

void LibraryRegistry::letGo(const std::string& dbName) {
  Turn turn(*this, dbName, Turn::Wait::unlessLong);
  if (!turn) return;
  auto leaves = [&] {
    std::lock_guard lock(mutex_);
    auto found = entries_.find(dbName);
    return found != entries_.end() && found->second.leaves;
  };
  if (!leaves()) return;
  closeLocked(dbName);
  forgetLocked(dbName, Forget::unlisted);
}

Result<LibraryRegistry::LoadReport> LibraryRegistry::load() {
  bool isFirst = false;
  {
    std::lock_guard lock(mutex_);
    isFirst = !std::exchange(loaded_, true);
  }
  if (isFirst) sweepDatabaseRoot();
  if (auto taken = takeListFile(); !taken) return tl::unexpected(taken.error());
  letGoOfLeaving();
  LoadReport report = openEach(names());
  events_.loaded();
  return report;
}

LibraryRegistry::LoadReport LibraryRegistry::openEach(const std::vector<std::string>& dbNames) {
  LoadReport report;
  std::mutex reportMutex;
  std::atomic<std::size_t> next = 0;
  auto openNext = [&] {
    for (std::size_t i = next++; i < dbNames.size(); i = next++) {
      if (isKeptClosed(dbNames[i])) continue;
      // Before: whoever has the turn may give it back at once.
      setOpens(dbNames[i]);
      Turn turn(*this, dbNames[i], Turn::Wait::unlessLong);
      // It may have been closed for its last copy while the turn was waited for.
      if (!turn || isKeptClosed(dbNames[i])) continue;
      auto opened = openLocked(dbNames[i], false);
      std::lock_guard lock(reportMutex);
      if (opened) {
        ++report.open;
      } else {
        report.failures.push_back({dbNames[i], opened.error()});
      }
    }
  };
  {
    std::vector<std::jthread> openers;
    for (std::size_t i = 1; i < std::min(dbNames.size(), kMostOpeners); ++i) openers.emplace_back(openNext);
    openNext();
  }
  std::sort(report.failures.begin(), report.failures.end(),
            [](const Failure& a, const Failure& b) { return a.dbName < b.dbName; });
  return report;
}

Result<void> LibraryRegistry::add(const Dictionary& record, bool mayCreate) {
  if (auto checked = checkRecord(record); !checked) return checked;
  const std::string& dbName = *record.find("dbname")->ifString();
  Turn turn(*this, dbName);
  bool isNew = takeRecord(record, false);
  auto opened = openLocked(dbName, mayCreate);
  if (!opened && isNew) {
    std::lock_guard lock(mutex_);
    if (!entries_.at(dbName).listed) entries_.erase(dbName);
  }
  if (opened && isNew) events_.created({record});
  return opened;
}

Result<void> LibraryRegistry::launch(const std::string& dbName) {
  keepClosed(dbName, {});
  Turn turn(*this, dbName);
  return openLocked(dbName, false);
}

/// Only the holder of the library's turn may call this.
Result<void> LibraryRegistry::openLocked(const std::string& dbName, bool mayCreate) {
  auto library = find(dbName);
  if (!library)
    return serverFailure(StatusCode::databaseNotFound, fmt::format("There is no library {}.", dbName));
  {
    std::lock_guard lock(mutex_);
    entries_.at(dbName).opens = false;
  }
  if (library->state == LibraryState::open) return {};

  std::string folder = layout::databaseFolder(dbName);
  if (!mayCreate && !isDirectory(folder)) {
    logLine(LogLevel::error, fmt::format("The database of library {} is missing", dbName));
    setFailed(dbName);
    return serverFailure(StatusCode::databaseNotFound,
                         fmt::format("The database of library {} is missing.", dbName));
  }
  auto store = openStore_(folder, mayCreate);
  if (!store) {
    logLine(LogLevel::error,
            fmt::format("Cannot open the database of library {}: {}", dbName, store.error().message));
    setFailed(dbName);
    return tl::unexpected(store.error());
  }
  {
    std::lock_guard lock(mutex_);
    Entry& entry = entries_.at(dbName);
    entry.storeClosed = std::make_shared<std::latch>(1);
    entry.library.store = shareUntil(std::move(*store), entry.storeClosed);
    entry.library.state = LibraryState::open;
    entry.keptClosedUntil = {};
    entry.keptClosedFor.reset();
    packed_.erase(dbName);
  }
  events_.stateChanged(dbName, LibraryState::open);
  return {};
}

void LibraryRegistry::setFailed(const std::string& dbName) {
  {
    std::lock_guard lock(mutex_);
    entries_.at(dbName).library.state = LibraryState::failed;
  }
  events_.stateChanged(dbName, LibraryState::failed);
}

void LibraryRegistry::close(const std::string& dbName) {
  Turn turn(*this, dbName);
  closeLocked(dbName);
  forgetLocked(dbName, Forget::unlisted);
}

/// From here on, who need not wait for the library does not. Only the holder of its turn may call this.
void LibraryRegistry::takesLong(const std::string& dbName) {
  {
    std::lock_guard lock(mutex_);
    busy_.at(dbName) = true;
  }
  turnEnded_.notify_all();
}

/// Only the holder of the library's turn may call this.
void LibraryRegistry::closeLocked(const std::string& dbName) {
  std::shared_ptr<AssetStore> store;
  std::shared_ptr<std::latch> closed;
  {
    std::lock_guard lock(mutex_);
    auto found = entries_.find(dbName);
    if (found == entries_.end()) return;
    store = std::move(found->second.library.store);
    closed = std::move(found->second.storeClosed);
    found->second.library.store.reset();
    found->second.storeClosed.reset();
    found->second.library.state = LibraryState::closed;
  }
  if (!store) return;
  takesLong(dbName);
  store.reset();
  closed->wait();
  events_.stateChanged(dbName, LibraryState::closed);
}

void LibraryRegistry::closeAll() {
  for (const std::string& dbName : names()) {
    Turn turn(*this, dbName);
    closeLocked(dbName);
  }
}

Result<void> LibraryRegistry::remove(const std::string& dbName) {
  if (!isValidDatabaseName(dbName)) {
    return serverFailure(StatusCode::invalidRequest, "The database name is not allowed.");
  }
  Turn turn(*this, dbName);
  closeLocked(dbName);
  if (auto removed = removeDatabaseFolder(dbName); !removed) return removed;
  forgetLocked(dbName, Forget::any);
  return {};
}

Result<void> LibraryRegistry::retire(const std::string& dbName) {
  Turn turn(*this, dbName);
  {
    std::lock_guard lock(mutex_);
    if (!packed_.contains(dbName))
      return serverFailure(StatusCode::itemExists,
                           fmt::format("The library {} was used after it had been copied.", dbName));
  }
  closeLocked(dbName);
  if (auto removed = removeDatabaseFolder(dbName); !removed) return removed;
  std::lock_guard lock(mutex_);
  packed_.erase(dbName);
  return {};
}

Result<void> LibraryRegistry::replace(const std::string& dbName) {
  Turn turn(*this, dbName);
  takesLong(dbName);
  if (!find(dbName))
    return serverFailure(StatusCode::databaseNotFound, fmt::format("There is no library {}.", dbName));
  {
    auto staged = openStore_(layout::stagedDatabaseFolder(dbName), false);
    if (!staged) return tl::unexpected(staged.error());
    if (auto sound = (*staged)->checkIntegrity(); !sound) return sound;
  }
  closeLocked(dbName);
  Result<void> done = exchangeStagedDatabase(dbName);
  const bool exchanged = done.has_value();
  if (exchanged) done = openLocked(dbName, false);
  if (done) return {};
  if (exchanged) {
    if (auto undone = exchangeStagedDatabase(dbName); !undone) return undone;
  }
  (void)openLocked(dbName, false);  // a failure has become its state
  return done;
}

Result<void> LibraryRegistry::snapshot(const std::string& dbName, const std::string& folder, bool close,
                                       std::shared_ptr<const ClientPresence> client) {
  if (!isValidDatabaseName(dbName) || !folder.starts_with('/')) {
    return serverFailure(StatusCode::invalidRequest, "The database name or the folder is not allowed.");
  }
  // Who holds the store keeps it open: nobody else has to wait for the copy.
  if (auto library = find(dbName); !close && library && library->store)
    return library->store->snapshot(folder);

  Turn turn(*this, dbName);
  takesLong(dbName);
  const bool wasOpen = close && find(dbName).value_or(Library()).store;
  if (close) {
    keepClosed(dbName, Clock::time_point::max());
    closeLocked(dbName);
  }
  auto store = openStore_(layout::databaseFolder(dbName), false);
  auto copied = store ? (*store)->snapshot(folder) : tl::unexpected(store.error());
  if (store) store->reset();
  if (close && copied) {
    std::lock_guard lock(mutex_);
    packed_.insert(dbName);
  }
  if (close && copied) keepClosed(dbName, Clock::now() + timeToLeave_, std::move(client));
  if (close && !copied) keepClosed(dbName, {});
  if (wasOpen && !copied) (void)openLocked(dbName, false);  // a failure has become its state
  return copied;
}

void LibraryRegistry::keepClosed(const std::string& dbName, Clock::time_point until,
                                 std::shared_ptr<const ClientPresence> client) {
  {
    std::lock_guard lock(mutex_);
    auto found = entries_.find(dbName);
    if (found == entries_.end()) return;
    found->second.keptClosedUntil = until;
    found->second.keptClosedFor = std::move(client);
    woken_ = true;
  }
  wake_.notify_all();
}

void LibraryRegistry::clientLeft() {
  {
    std::lock_guard lock(mutex_);
    woken_ = true;
  }
  wake_.notify_all();
}

void LibraryRegistry::keep(const std::stop_token& stop) {
  while (!stop.stop_requested()) {
    takeOverdue();
    settle();
    std::unique_lock lock(mutex_);
    auto next = Clock::now() + std::chrono::hours(1);
    for (const auto& [dbName, entry] : entries_)
      if (entry.keptClosedUntil != Clock::time_point()) next = std::min(next, entry.keptClosedUntil);
    wake_.wait_until(lock, stop, next, [this] { return std::exchange(woken_, false); });
  }
}

/// What was closed for its last copy and has not left the list in time, or whose client is gone, is to be
/// opened.
void LibraryRegistry::takeOverdue() {
  std::lock_guard lock(mutex_);
  for (auto& [dbName, entry] : entries_) {
    if (entry.keptClosedUntil == Clock::time_point()) continue;
    const bool isLeft = entry.keptClosedFor && entry.keptClosedFor->gone;
    if (!isLeft && entry.keptClosedUntil > Clock::now()) continue;
    entry.keptClosedUntil = {};
    entry.keptClosedFor.reset();
    entry.opens = true;
  }
}

void LibraryRegistry::setOpens(const std::string& dbName) {
  std::lock_guard lock(mutex_);
  auto found = entries_.find(dbName);
  if (found != entries_.end()) found->second.opens = true;
}

bool LibraryRegistry::isKeptClosed(const std::string& dbName) const {
  std::lock_guard lock(mutex_);
  auto found = entries_.find(dbName);
  return found != entries_.end() && Clock::now() < found->second.keptClosedUntil;
}

/// Only the holder of the library's turn may call this; the list file may name it at any time.
void LibraryRegistry::forgetLocked(const std::string& dbName, Forget which) {
  std::shared_ptr<const Dictionary> record;
  {
    std::lock_guard lock(mutex_);
    auto found = entries_.find(dbName);
    if (found == entries_.end()) return;
    if (which == Forget::unlisted && found->second.listed) return;
    record = found->second.library.record;
    entries_.erase(found);
  }
  events_.deleted({*record});
}

std::optional<Library> LibraryRegistry::find(const std::string& dbName) const {
  std::lock_guard lock(mutex_);
  auto found = entries_.find(dbName);
  if (found == entries_.end()) return {};
  return found->second.library;
}

std::vector<Library> LibraryRegistry::all() const {
  std::lock_guard lock(mutex_);
  std::vector<Library> libraries;
  for (const auto& [dbName, entry] : entries_) libraries.push_back(entry.library);
  return libraries;
}

std::vector<std::string> LibraryRegistry::names() const {
  std::lock_guard lock(mutex_);
  std::vector<std::string> result;
  for (const auto& [dbName, entry] : entries_) result.push_back(dbName);
  return result;
}

}  // namespace vornex::server
