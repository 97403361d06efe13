#include <vornex/Log.h>
#include <vornex/Queue.h>
#include <vornex/TQUser.h>
#include <vornex/TQUserManager.h>
#include <vornex/TQVornexUtil.h>

#include <algorithm>
#include <mutex>

#include "core/Coercion.h"
#include "core/StorageLayout.h"
#include "foundation/Files.h"
#include "foundation/PropertyList.h"
#include "foundation/SharedDictionaryFile.h"
#include "library/CredentialFile.h"
#include "library/ListMerge.h"
#include "library/Published.h"
#include "service/TQVornexService.h"

namespace vornex {

struct TQUserManager::State {
  std::recursive_mutex monitor;
  Published<std::vector<UserPtr>> users;
  /// The rows of the file as this process last read or wrote them.
  Array savedRows;

  struct LocalAccount {
    OptionalString password, passwordMD5;
  };
  Published<LocalAccount> account;
};

TQUserManager& TQUserManager::sharedManager() {
  static auto* manager = new TQUserManager;
  return *manager;
}

TQUserManager::TQUserManager() : state_(std::make_unique<State>()) {}

namespace {

struct LoadedUsers {
  std::vector<UserPtr> users;
  Array rows;
};

LoadedUsers readUsers() {
  auto file = readDictionaryFile(layout::userPlist());
  if (!file) {
    if (fileExists(layout::userPlist())) logLine(LogLevel::error, file.error().message);
    return {};
  }
  LoadedUsers loaded;
  for (Value& row : coerce::array(file->find("users"))) {
    UserPtr user = row.ifDictionary() ? TQUser::userWithDictionary(*row.ifDictionary()) : nullptr;
    if (!user) {
      logLine(LogLevel::error, "userWithDictionary : a user without id or password");
      continue;
    }
    loaded.users.push_back(std::move(user));
    loaded.rows.push_back(std::move(row));
  }
  return loaded;
}

}  // namespace

void TQUserManager::changeUsers(const std::function<void()>& change) {
  std::lock_guard lock(state_->monitor);
  change();
}

void TQUserManager::loadUsers(std::function<void(std::vector<UserPtr> users)> completion) {
  GlobalQueue::shared().async([this, completion = std::move(completion)] {
    std::lock_guard lock(state_->monitor);
    LoadedUsers loaded = readUsers();
    state_->users.publish(sortedUsers(std::move(loaded.users)));
    state_->savedRows = std::move(loaded.rows);
    completion(users());
  });
}

bool TQUserManager::saveUsersFile() {
  {
    std::lock_guard lock(state_->monitor);
    Array rows;
    for (const UserPtr& user : users()) {
      if (user->id == kTQLocalUserID) continue;
      if (auto row = user->userDictionary()) rows.emplace_back(std::move(*row));
    }
    const bool isNew = !itemExists(layout::userPlist());
    auto merge = [&](Dictionary& file) {
      file.set("users", mergedRows("id", coerce::array(file.find("users")),
                                   isNew ? Array() : state_->savedRows, rows));
    };
    auto written = changeDictionaryFile(layout::userPlist(), merge, kCredentialFileMode);
    if (!written) {
      logLine(LogLevel::error, written.error().message);
      return false;
    }
    state_->savedRows = std::move(rows);
  }
  auto service = TQVornexService();
  if (service) service->updateUsers([](const TQErrorPtr&) {});
  return true;
}

bool TQUserManager::findUserID(const std::string& id) const {
  return userForID(id) != nullptr;
}

UserPtr TQUserManager::userForID(const std::string& id) const {
  auto users = state_->users.read();
  auto found =
      std::find_if(users->begin(), users->end(), [&](const UserPtr& user) { return user->id == id; });
  return found == users->end() ? nullptr : *found;
}

std::vector<UserPtr> TQUserManager::reviewers() const {
  std::vector<UserPtr> result = users();
  std::erase_if(result, [](const UserPtr& user) { return user->userType != kUserTypeReviewer; });
  return result;
}

std::vector<UserPtr> TQUserManager::users() const {
  return *state_->users.read();
}

void TQUserManager::createUser(UserPtr user, Completion completion) {
  if (!user || !user->id || !user->password)
    return completion(false, TQVornexUtil::errorWithCode(10000, LocalizedString("request.error.param.nil")));
  bool exists = false;
  {
    std::lock_guard lock(state_->monitor);
    exists = findUserID(*user->id);
    if (!exists) {
      user->password = MD5String(*user->password);
      std::vector<UserPtr> next = users();
      next.push_back(user);
      state_->users.publish(std::move(next));
    }
  }
  if (exists) {
    logLine(LogLevel::error, "Already exist userID : " + *user->id);
    return completion(false, TQVornexUtil::errorWithCode(10002, LocalizedString("user.message.exist")));
  }
  if (saveUsersFile()) return completion(true, nullptr);
  logLine(LogLevel::error, "createUser, Can't save User Plist");
  completion(false, TQVornexUtil::errorWithCode(10003, LocalizedString("user.error.cannot.save")));
}

void TQUserManager::deleteUsers(const std::vector<UserPtr>& removed, Completion completion) {
  if (removed.empty())
    return completion(false, TQVornexUtil::errorWithCode(10000, LocalizedString("request.error.param.nil")));
  {
    std::lock_guard lock(state_->monitor);
    std::vector<UserPtr> next = users();
    std::erase_if(next, [&](const UserPtr& user) {
      return std::any_of(removed.begin(), removed.end(),
                         [&](const UserPtr& listed) { return listed && listed->id == user->id; });
    });
    state_->users.publish(std::move(next));
  }
  if (saveUsersFile()) return completion(true, nullptr);
  logLine(LogLevel::error, "deleteUsers, Can't save User Plist");
  completion(false, TQVornexUtil::errorWithCode(10003, LocalizedString("user.error.cannot.save")));
}

std::vector<UserPtr> TQUserManager::sortedUsers(std::vector<UserPtr> users) {
  std::stable_sort(users.begin(), users.end(),
                   [](const UserPtr& a, const UserPtr& b) { return a->name < b->name; });
  return users;
}

OptionalString TQUserManager::localPassword() const {
  return state_->account.read()->password;
}
OptionalString TQUserManager::localPasswordMD5() const {
  return state_->account.read()->passwordMD5;
}

void TQUserManager::setLocalPassword(OptionalString password) {
  OptionalString digest;
  if (password) digest = MD5String(*password);
  state_->account.publish({std::move(password), std::move(digest)});
}

}  // namespace vornex
