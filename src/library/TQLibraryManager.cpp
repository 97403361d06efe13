#include <fmt/format.h>
#include <unistd.h>
#include <vornex/Log.h>
#include <vornex/Queue.h>
#include <vornex/TQConnection.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQLibraryManager.h>
#include <vornex/TQUser.h>
#include <vornex/TQUserManager.h>
#include <vornex/TQVornexUtil.h>
#include <vornex/VornexSDK.h>

#include <algorithm>
#include <unordered_set>

#include "core/Coercion.h"
#include "foundation/Files.h"
#include "foundation/PropertyList.h"
#include "library/ManagerState.h"
#include "service/TQVornexService.h"

namespace vornex {
namespace {

UserPtr localUser() {
  return TQUser::userWithID(kTQLocalUserID, kTQLocalUserID, kUserTypeLocalOwner,
                            TQUserManager::sharedManager().localPasswordMD5());
}

void createDefaultFolders() {
  for (const std::string& folder :
       {TQVornexUtil::rootFolder(), TQVornexUtil::preferenceFolder(), TQVornexUtil::dbFolder()}) {
    if (createDirectories(folder)) continue;
    logLine(LogLevel::error, fmt::format("createDefaultFolder, Can't create directory:{}", folder));
    return;
  }
}

std::string listPath(std::int64_t type) {
  return type ? TQVornexUtil::networkLibraryPlist() : TQVornexUtil::localLibraryPlist();
}

// The version tells a later load that the database lives in the shared database folder.
void markSharedDatabase(Dictionary& row) {
  OptionalString dbName = coerce::string(row.find("dbname"));
  if (coerce::string(row.find("version")) == kSharedDatabaseVersion || !dbName || dbName->empty()) return;
  if (fileExists(appendPathComponent(TQVornexUtil::mongoDBFolder(), *dbName)))
    row.set("version", kSharedDatabaseVersion);
}

/// Null, and logged, when the row is no library.
LibraryPtr libraryOf(const TQLibraryManager& manager, const Value& row, const std::string& path) {
  LibraryPtr library = row.ifDictionary() ? TQLibrary::libraryWithDictionary(*row.ifDictionary()) : nullptr;
  if (!library)
    logLine(LogLevel::error, "libraryWithDictionary exception:a row of " + path + " is no library");
  else if (library->libraryType == kLibraryTypeNetwork)
    library->connection->user = manager.networkUserWithDBName(library->dbName);
  else if (library->libraryType == kLibraryTypeLocal)
    connectLocally(library);
  return library;
}

void logUnreadable(const Error& error) {
  logLine(LogLevel::error, "Can't read Library Plist: " + error.message);
}

}  // namespace

LibraryList::LibraryList(std::vector<LibraryPtr> libraries) : all(std::move(libraries)) {
  byDBName.reserve(all.size());
  for (const LibraryPtr& library : all)
    if (library->dbName) byDBName.emplace(*library->dbName, library);
}

void TQLibraryManager::State::publish(std::vector<LibraryPtr> next) {
  // A name may change on another thread while the list is sorted.
  std::vector<std::pair<std::pair<std::int64_t, OptionalString>, LibraryPtr>> ordered;
  ordered.reserve(next.size());
  for (LibraryPtr& library : next) ordered.emplace_back(library->listOrder(), std::move(library));
  std::stable_sort(ordered.begin(), ordered.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  std::transform(ordered.begin(), ordered.end(), next.begin(),
                 [](auto& entry) { return std::move(entry.second); });
  libraries.publish(LibraryList(std::move(next)));
}

void TQLibraryManager::State::append(const std::vector<LibraryPtr>& added) {
  std::vector<LibraryPtr> next = libraries.read()->all;
  next.insert(next.end(), added.begin(), added.end());
  publish(std::move(next));
}

void TQLibraryManager::State::claim(const std::vector<LibraryPtr>& added) {
  for (const LibraryPtr& library : added) {
    if (!library || !library->dbName) continue;
    localList.claim(*library->dbName);
    networkList.claim(*library->dbName);
  }
}

void connectLocally(const LibraryPtr& library) {
  library->connection->user = localUser();
  library->connection->port = VornexSDK::sharedInstance().WASPort;
}

TQLibraryManager& TQLibraryManager::sharedManager() {
  static auto* manager = new TQLibraryManager;
  return *manager;
}

TQLibraryManager::TQLibraryManager() : state_(std::make_unique<State>()) {
  createDefaultFolders();
  XMPKit::XMPKitInit();
  loadNetworkUsers();
  state_->networkUsersFromBrindle.publish(
      readDictionaryFile(TQVornexUtil::networkUserPlistFromBrindle()).value_or(Dictionary()));
}

TQCopyInterface& TQLibraryManager::copyInterface() {
  return state_->copyInterface;
}

const XMPKit& TQLibraryManager::xmpKit() const {
  return state_->xmpKit;
}

Array TQLibraryManager::bookmarks() const {
  return *state_->bookmarks.read();
}

void TQLibraryManager::setBookmarks(Array bookmarks) {
  state_->bookmarks.publish(std::move(bookmarks));
}

void TQLibraryManager::loadAllLibraries(std::function<void(std::vector<LibraryPtr> libraries)> completion) {
  GlobalQueue::shared().async([this, completion = std::move(completion)] {
    std::lock_guard lock(state_->monitor);
    loadNetworkUsers();
    std::vector<LibraryPtr> loaded;
    for (std::int64_t type : {kLibraryTypeLocal, kLibraryTypeNetwork}) {
      auto read = state_->list(type).load([&](const Value& row) {
        LibraryPtr library = libraryOf(*this, row, listPath(type));
        if (library) loaded.push_back(library);
        return library != nullptr;
      });
      if (!read) logUnreadable(read.error());
    }
    state_->publish(std::move(loaded));
    createLockFiles();
    completion(libraries());
  });
}

std::optional<std::vector<LibraryPtr>> TQLibraryManager::loadLibrariesFromPlistFile(const std::string& path) {
  auto file = readDictionaryFile(path);
  if (!file) {
    if (fileExists(path)) logUnreadable(file.error());
    return std::nullopt;
  }
  std::lock_guard lock(state_->monitor);
  std::vector<LibraryPtr> result;
  for (const Value& row : coerce::array(file->find("library")))
    if (LibraryPtr library = libraryOf(*this, row, path)) result.push_back(std::move(library));
  return result;
}

std::vector<LibraryPtr> TQLibraryManager::libraries() const {
  return state_->libraries.read()->all;
}

std::vector<LibraryPtr> TQLibraryManager::localLibraries() const {
  std::vector<LibraryPtr> result = libraries();
  std::erase_if(result, [](const LibraryPtr& library) { return library->libraryType != kLibraryTypeLocal; });
  return result;
}

std::vector<LibraryPtr> TQLibraryManager::networkLibraries() const {
  std::vector<LibraryPtr> result = libraries();
  std::erase_if(result,
                [](const LibraryPtr& library) { return library->libraryType != kLibraryTypeNetwork; });
  return result;
}

void TQLibraryManager::sortLibraries() {
  std::lock_guard lock(state_->monitor);
  state_->publish(libraries());
}

LibraryPtr TQLibraryManager::libraryForDBName(const OptionalString& dbName) const {
  if (!dbName) return nullptr;
  auto list = state_->libraries.read();
  auto found = list->byDBName.find(*dbName);
  return found == list->byDBName.end() ? nullptr : found->second;
}

bool TQLibraryManager::findLibrary(const LibraryPtr& library) const {
  return library && libraryForDBName(library->dbName) != nullptr;
}

std::vector<LibraryPtr> TQLibraryManager::findNetworkLibrariesWithBonjourName(
    const OptionalString& name) const {
  if (!name) return {};
  std::vector<LibraryPtr> result = networkLibraries();
  std::erase_if(result, [&](const LibraryPtr& library) { return library->bonjourName != name; });
  return result;
}

std::vector<LibraryPtr> TQLibraryManager::findNetworkLibrariesWithIP(const OptionalString& address) const {
  if (!address) return {};
  std::vector<LibraryPtr> result = networkLibraries();
  std::erase_if(result, [&](const LibraryPtr& library) {
    return !library->connection || library->connection->address != address;
  });
  return result;
}

bool TQLibraryManager::addLibraries(const std::vector<LibraryPtr>& added) {
  // Until both lists are saved: who loads them meanwhile must not drop what is new.
  std::lock_guard lock(state_->monitor);
  std::vector<LibraryPtr> unknown;
  std::unordered_set<std::string> names;
  for (const LibraryPtr& library : added) {
    if (!library || findLibrary(library)) continue;
    if (!library->dbName || names.insert(*library->dbName).second) unknown.push_back(library);
  }
  saveNetworkUsers(added);
  state_->append(unknown);
  state_->claim(added);
  return saveLibrariesFileWithType(kLibraryTypeLocal) && saveLibrariesFileWithType(kLibraryTypeNetwork);
}

// What can be written is, also when a record has neither a dictionary form nor a row that is known.
bool TQLibraryManager::writeList(std::int64_t type) {
  std::lock_guard lock(state_->monitor);
  SharedList& list = state_->list(type);
  bool isWhole = true;
  Array rows;
  for (const LibraryPtr& library : libraries()) {
    if (library->libraryType != type) continue;
    auto row = library->libDictionary();
    const Value* former = row || !library->dbName ? nullptr : list.knownRow(*library->dbName);
    if (row) {
      markSharedDatabase(*row);
      rows.emplace_back(std::move(*row));
    } else if (former) {
      rows.push_back(*former);
    } else {
      isWhole = false;
    }
  }
  auto written = list.save(std::move(rows));
  if (!written) logLine(LogLevel::error, written.error().message);
  return written && isWhole;
}

bool TQLibraryManager::saveLibrariesFileWithType(std::int64_t type) {
  if (!writeList(type)) return false;
  if (auto service = TQVornexService()) service->updateLibrary([](const TQErrorPtr&) {});
  return true;
}

bool TQLibraryManager::deleteLibraryPlist(const LibraryPtr& library) {
  if (!library) return false;
  // Until it is saved: who loads the list meanwhile must not bring the library back.
  std::lock_guard lock(state_->monitor);
  std::vector<LibraryPtr> next = libraries();
  auto found = std::find_if(next.begin(), next.end(), [&](const LibraryPtr& known) {
    return known == library || (library->dbName && known->dbName == library->dbName);
  });
  if (found != next.end()) next.erase(found);
  state_->publish(std::move(next));
  return saveLibrariesFileWithType(library->libraryType);
}

bool TQLibraryManager::deleteRemoteLibrary(const LibraryPtr& library) {
  if (!library) return false;
  deleteNetworkUserWithDBName(library->dbName);
  return deleteLibraryPlist(library);
}

bool TQLibraryManager::deleteLocalPlist() {
  return ::unlink(TQVornexUtil::localLibraryPlist().c_str()) == 0;
}

void TQLibraryManager::updateLocalPassword() {
  std::lock_guard lock(state_->monitor);
  UserPtr current = localUser();
  for (const LibraryPtr& library : localLibraries()) {
    if (!library->connection) continue;
    UserPtr user = library->connection->user;
    const bool isCurrent = user && user->id == current->id && user->name == current->name &&
                           user->userType == current->userType && user->password == current->password;
    if (!isCurrent) library->connection->user = current;
  }
}

void TQLibraryManager::createLockFiles() {
  for (const LibraryPtr& library : localLibraries()) library->createLibaryLockFileWithError(nullptr);
}

void TQLibraryManager::deleteLockFiles() {
  for (const LibraryPtr& library : libraries())
    if (library->libraryType != kLibraryTypeNetwork) library->removeLibraryLockFile();
}

void TQLibraryManager::startWorkflows() {
  workflowEngineInterface().startWorkFlowWithPort(VornexSDK::sharedInstance().WASPort,
                                                  TQUserManager::sharedManager().localPasswordMD5());
  copyInterface().startAllBookmarks();
}

void TQLibraryManager::startAllBookmarks() {
  auto service = TQVornexService();
  if (service) service->startAllBoookmarks([](const TQErrorPtr&) {});
  copyInterface().startAllBookmarks();
  workflowEngineInterface().startAllBookmarks();
}

}  // namespace vornex
