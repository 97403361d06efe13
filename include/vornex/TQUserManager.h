#pragma once

#include <vornex/Types.h>

#include <mutex>
#include <vector>

namespace vornex {

/// The users of the local libraries, kept in "users.plist".
///
/// Thread-safety: loadUsers, saveUsersFile, createUser, deleteUsers and the local password are safe on any
/// thread; the other operations read a snapshot of the list.
class TQUserManager {
 public:
  /// Made on first use; lives until the process ends.
  static TQUserManager& sharedManager();

  /// Reads "users.plist" on a worker thread; a missing file gives an empty list. Called back there.
  void loadUsers(std::function<void(std::vector<UserPtr> users)> completion);

  /// Writes every user but the local owner, atomically, and tells the local service.
  bool saveUsersFile();

  bool findUserID(const std::string& id) const;
  /// Null when unknown.
  UserPtr userForID(const std::string& id) const;
  /// The users of type 1, in list order.
  std::vector<UserPtr> reviewers() const;
  std::vector<UserPtr> users() const;

  /// Takes the user with the clear password and keeps its MD5 string. Errors: 10000 no user, 10002 the ID is
  /// taken, 10003 the file could not be written. Called back on the caller's thread.
  void createUser(UserPtr user, Completion completion);

  /// Errors: 10000 an empty list, 10003 the file could not be written. Called back on the caller's thread.
  void deleteUsers(const std::vector<UserPtr>& users, Completion completion);

  static std::vector<UserPtr> sortedUsers(std::vector<UserPtr> users);

  /// The local account password and its MD5 string; absent until the local service has been launched.
  OptionalString localPassword() const;
  OptionalString localPasswordMD5() const;
  void setLocalPassword(OptionalString password);

 private:
  TQUserManager() = default;

  mutable std::recursive_mutex monitor_;
  std::vector<UserPtr> users_;
  OptionalString localPassword_;
  OptionalString localPasswordMD5_;
};

}  // namespace vornex
