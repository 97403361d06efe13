#include <vornex/Log.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQLibraryManager.h>
#include <vornex/TQUser.h>
#include <vornex/TQVornexUtil.h>

#include "core/Coercion.h"
#include "foundation/PropertyList.h"
#include "foundation/SharedDictionaryFile.h"
#include "library/CredentialFile.h"
#include "library/ManagerState.h"

namespace vornex {

static UserPtr networkUser(const Dictionary& users, const OptionalString& dbName) {
  Value none;
  const Value* entry = dbName ? users.find(*dbName) : &none;
  OptionalString id = coerce::string(entry ? entry->find("userid") : nullptr);
  OptionalString password = coerce::string(entry ? entry->find("userpassword") : nullptr);
  return TQUser::userWithID(id, id, kUserTypeNetwork, std::move(password));
}

// Changes the credentials in memory and in the file, which other processes change, too. When the file is gone
// or damaged, those in memory are written.
bool TQLibraryManager::changeNetworkUsers(const char* operation,
                                          const std::function<void(Dictionary& users)>& change) {
  std::lock_guard lock(state_->networkUsersMutex);
  Dictionary& users = state_->networkUsers;
  auto written = changeDictionaryFile(
      TQVornexUtil::networkUserPlist(),
      [&](std::optional<Dictionary> present) {
        if (present) users = std::move(*present);
        change(users);
        return users;
      },
      kCredentialFileMode);
  if (!written) change(users);
  if (!written) logLine(LogLevel::error, std::string(operation) + " exception:" + written.error().message);
  return written.has_value();
}

bool TQLibraryManager::saveNetworkUserFile(const UserPtr& user, const LibraryPtr& library) {
  if (!user || !library) return false;
  if (!library->dbName || !user->id || !user->password) {
    logLine(LogLevel::error, "saveNetworkUserFile exception:no database name, user ID or password");
    return false;
  }
  return changeNetworkUsers("saveNetworkUserFile", [&](Dictionary& users) {
    users.set(*library->dbName, Dictionary{{"userid", user->id}, {"userpassword", user->password}});
  });
}

void TQLibraryManager::deleteNetworkUserWithDBName(const OptionalString& dbName) {
  if (!dbName) return;
  changeNetworkUsers("deleteNetworkUserWithDBName", [&](Dictionary& users) { users.erase(*dbName); });
}

UserPtr TQLibraryManager::networkUserWithDBName(const OptionalString& dbName) const {
  std::lock_guard lock(state_->networkUsersMutex);
  return networkUser(state_->networkUsers, dbName);
}

UserPtr TQLibraryManager::networkUseFromBrindleWithDBName(const OptionalString& dbName) const {
  auto users = readDictionaryFile(TQVornexUtil::networkUserPlistFromBrindle());
  return networkUser(users ? *users : Dictionary(), dbName);
}

}  // namespace vornex
