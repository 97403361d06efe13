#include <vornex/Log.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQLibraryManager.h>
#include <vornex/TQUser.h>
#include <vornex/TQVornexUtil.h>

#include "core/Coercion.h"
#include "foundation/PropertyList.h"
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

static bool writeNetworkUsers(const Dictionary& users, const char* operation) {
  auto written = writeCredentialFile(TQVornexUtil::networkUserPlist(), users);
  if (!written) logLine(LogLevel::error, std::string(operation) + " exception:" + written.error().message);
  return written.has_value();
}

bool TQLibraryManager::saveNetworkUserFile(const UserPtr& user, const LibraryPtr& library) {
  if (!user || !library) return false;
  if (!library->dbName || !user->id || !user->password) {
    logLine(LogLevel::error, "saveNetworkUserFile exception:no database name, user ID or password");
    return false;
  }
  std::lock_guard lock(state_->networkUsersMutex);
  state_->networkUsers.set(*library->dbName,
                           Dictionary{{"userid", user->id}, {"userpassword", user->password}});
  return writeNetworkUsers(state_->networkUsers, "saveNetworkUserFile");
}

void TQLibraryManager::deleteNetworkUserWithDBName(const OptionalString& dbName) {
  if (!dbName) return;
  std::lock_guard lock(state_->networkUsersMutex);
  state_->networkUsers.erase(*dbName);
  writeNetworkUsers(state_->networkUsers, "deleteNetworkUserWithDBName");
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
