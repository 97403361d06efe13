#include <fmt/format.h>
#include <vornex/Log.h>
#include <vornex/TQConnection.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQLibraryManager.h>
#include <vornex/TQUser.h>
#include <vornex/TQVornexUtil.h>

#include "core/Coercion.h"
#include "foundation/PropertyList.h"
#include "foundation/SharedDictionaryFile.h"
#include "library/CredentialFile.h"
#include "library/ListMerge.h"
#include "library/ManagerState.h"

namespace vornex {

// Null, and logged, when the entry is no dictionary.
static UserPtr networkUser(const char* operation, const Dictionary& users, const OptionalString& dbName) {
  const Value* entry = dbName ? users.find(*dbName) : nullptr;
  if (entry && !entry->ifDictionary()) {
    logLine(LogLevel::error,
            fmt::format("{} exception:the entry of {} is no dictionary", operation, *dbName));
    return nullptr;
  }
  OptionalString id = coerce::string(entry ? entry->find("userid") : nullptr);
  OptionalString password = coerce::string(entry ? entry->find("userpassword") : nullptr);
  return TQUser::userWithID(id, id, kUserTypeNetwork, std::move(password));
}

// Changes the credentials in memory and in the file, which other processes change, too. When the file is gone
// or damaged, those in memory are written; what cannot be written now is written with the next change.
bool TQLibraryManager::changeNetworkUsers(const char* operation,
                                          const std::function<void(Dictionary& users)>& change) {
  std::lock_guard lock(state_->networkUsersMutex);
  Dictionary& users = state_->networkUsers;
  Dictionary& inFile = state_->networkUsersInFile;
  change(users);
  auto written = changeDictionaryFile(
      TQVornexUtil::networkUserPlist(),
      [&](std::optional<Dictionary> present) {
        if (present) users = mergedEntries(*present, inFile, users);
        change(users);  // also what another process has undone
        return users;
      },
      kCredentialFileMode);
  if (written) inFile = users;
  if (!written) logLine(LogLevel::error, std::string(operation) + " exception:" + written.error().message);
  return written.has_value();
}

// Whether the credentials have everything; logged when not.
static bool addCredentials(Dictionary& users, const TQUser& user, const OptionalString& dbName) {
  if (!dbName || !user.id || !user.password) {
    logLine(LogLevel::error, "saveNetworkUserFile exception:no database name, user ID or password");
    return false;
  }
  users.set(*dbName, Dictionary{{"userid", user.id}, {"userpassword", user.password}});
  return true;
}

bool TQLibraryManager::saveNetworkUserFile(const UserPtr& user, const LibraryPtr& library) {
  if (!user || !library) return false;
  Dictionary added;
  return addCredentials(added, *user, library->dbName) && saveNetworkUsers(added);
}

bool TQLibraryManager::saveNetworkUsers(const std::vector<LibraryPtr>& libraries) {
  Dictionary added;
  for (const LibraryPtr& library : libraries) {
    if (!library || library->libraryType != kLibraryTypeNetwork || !library->connection) continue;
    if (UserPtr user = library->connection->user) addCredentials(added, *user, library->dbName);
  }
  return added.empty() || saveNetworkUsers(added);
}

bool TQLibraryManager::saveNetworkUsers(const Dictionary& added) {
  return changeNetworkUsers("saveNetworkUserFile", [&](Dictionary& users) {
    for (const auto& [dbName, credentials] : added) users.set(dbName, credentials);
  });
}

// What is not written yet stays, and so does everything when the file is gone or damaged.
void TQLibraryManager::loadNetworkUsers() {
  std::lock_guard lock(state_->networkUsersMutex);
  auto file = readDictionaryFile(TQVornexUtil::networkUserPlist());
  if (!file) return;
  state_->networkUsers = mergedEntries(*file, state_->networkUsersInFile, state_->networkUsers);
  state_->networkUsersInFile = std::move(*file);
}

Dictionary TQLibraryManager::networkUserDict() const {
  std::lock_guard lock(state_->networkUsersMutex);
  return state_->networkUsers;
}

void TQLibraryManager::deleteNetworkUserWithDBName(const OptionalString& dbName) {
  if (!dbName) return;
  changeNetworkUsers("deleteNetworkUserWithDBName", [&](Dictionary& users) { users.erase(*dbName); });
}

UserPtr TQLibraryManager::networkUserWithDBName(const OptionalString& dbName) const {
  std::lock_guard lock(state_->networkUsersMutex);
  return networkUser("networkUserWithDBName", state_->networkUsers, dbName);
}

UserPtr TQLibraryManager::networkUseFromBrindleWithDBName(const OptionalString& dbName) const {
  auto users = readDictionaryFile(TQVornexUtil::networkUserPlistFromBrindle());
  state_->networkUsersFromBrindle.publish(users ? std::make_optional(*users) : std::nullopt);
  return networkUser("networkUseFromBrindleWithDBName", users ? *users : Dictionary(), dbName);
}

std::optional<Dictionary> TQLibraryManager::networkUserDictFromBrindle() const {
  return *state_->networkUsersFromBrindle.read();
}

}  // namespace vornex
