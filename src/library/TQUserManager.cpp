#include <vornex/Log.h>
#include <vornex/Queue.h>
#include <vornex/TQUser.h>
#include <vornex/TQUserManager.h>
#include <vornex/TQVornexUtil.h>

#include <algorithm>
#include <mutex>

#include "core/StorageLayout.h"
#include "foundation/Text.h"
#include "library/CredentialFile.h"
#include "library/Published.h"
#include "library/SharedList.h"
#include "service/ServiceLauncher.h"
#include "service/TQVornexService.h"

namespace vornex {

struct TQUserManager::State {
  std::recursive_mutex monitor;
  Published<std::vector<UserPtr>> users;
  SharedList file{{layout::userPlist(), "users", "id", kCredentialFileMode}};

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

void TQUserManager::loadUsers(std::function<void(std::vector<UserPtr> users)> completion) {
  GlobalQueue::shared().async([this, completion = std::move(completion)] {
    std::lock_guard lock(state_->monitor);
    std::vector<UserPtr> loaded;
    auto read = state_->file.load([&](const Value& row) {
      UserPtr user = row.ifDictionary() ? TQUser::userWithDictionary(*row.ifDictionary()) : nullptr;
      if (user)
        loaded.push_back(user);
      else
        logLine(LogLevel::error, "userWithDictionary : a user without id or password");
      return user != nullptr;
    });
    if (!read) logLine(LogLevel::error, read.error().message);
    state_->users.publish(sortedUsers(std::move(loaded)));
    completion(users());
  });
}

bool TQUserManager::saveUsersFile() {
  {
    std::lock_guard lock(state_->monitor);
    Array rows;
    for (const UserPtr& user : users()) {
      if (user->id == kTQLocalUserID) continue;
      auto row = user->userDictionary();
      // A user who cannot be written stays in the file as he was.
      const Value* former = row || !user->id ? nullptr : state_->file.knownRow(*user->id);
      if (row)
        rows.emplace_back(std::move(*row));
      else if (former)
        rows.push_back(*former);
    }
    if (auto written = state_->file.save(std::move(rows)); !written) {
      logLine(LogLevel::error, written.error().message);
      return false;
    }
  }
  auto service = TQVornexService();
  // One that starts later reads the file.
  if (service && (service->isConnected() || isServiceAlive())) service->updateUsers([](const TQErrorPtr&) {});
  return true;
}

void TQUserManager::saveAndComplete(const char* operation, const Completion& completion) {
  if (saveUsersFile()) return completion(true, nullptr);
  logLine(LogLevel::error, std::string(operation) + ", Can't save User Plist");
  completion(false, TQVornexUtil::errorWithCode(10003, LocalizedString("user.error.cannot.save")));
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
      {
        std::lock_guard fields(user->fields_);
        user->password = MD5String(*user->password);
      }
      std::vector<UserPtr> next = users();
      next.push_back(user);
      state_->users.publish(std::move(next));
      state_->file.claim(*user->id);
    }
  }
  if (exists) {
    logLine(LogLevel::error, "Already exist userID : " + *user->id);
    return completion(false, TQVornexUtil::errorWithCode(10002, LocalizedString("user.message.exist")));
  }
  saveAndComplete("createUser", completion);
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
  saveAndComplete("deleteUsers", completion);
}

std::vector<UserPtr> TQUserManager::sortedUsers(std::vector<UserPtr> users) {
  using Named = std::pair<OptionalString, UserPtr>;
  std::vector<Named> named;
  for (UserPtr& user : users) {
    OptionalString name = user->currentName();
    if (name) name = decomposed(*name);
    named.emplace_back(std::move(name), std::move(user));
  }
  std::stable_sort(named.begin(), named.end(),
                   [](const Named& a, const Named& b) { return a.first < b.first; });
  std::transform(named.begin(), named.end(), users.begin(),
                 [](Named& entry) { return std::move(entry.second); });
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
