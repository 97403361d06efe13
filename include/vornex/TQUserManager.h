#pragma once

#include <vornex/Types.h>

#include <vector>

namespace vornex {

/// The users of the local libraries, kept in "users.plist", and the local account.
///
/// Thread-safety: safe on any thread. Operations that change the list hold its monitor, which one thread may
/// enter repeatedly; lookups read a published snapshot and never wait for a writer.
class TQUserManager {
 public:
  /// Made on first use; lives until the process ends. The list is empty until loadUsers.
  static TQUserManager& sharedManager();

  /// Reads "users.plist" on a worker thread, in the order of the names; a missing file gives an empty list.
  /// Called back there, while the list's monitor is held: the completion must not wait for another thread
  /// that changes the list.
  void loadUsers(std::function<void(std::vector<UserPtr> users)> completion);

  /// Writes every user but the local owner, atomically, and has the service, if it runs, read the file again.
  /// What other processes have added, changed or removed meanwhile stays as they left it, unless this one has
  /// changed the same; the list learns of it when it is loaded again.
  bool saveUsersFile();

  bool findUserID(const std::string& id) const;
  /// Null when unknown.
  UserPtr userForID(const std::string& id) const;
  /// The users of type 1, in list order.
  std::vector<UserPtr> reviewers() const;
  /// A snapshot, in list order.
  std::vector<UserPtr> users() const;

  /// Takes the user with the clear password and keeps its MD5 string. Errors: 10000 no user, or one without
  /// ID or password; 10002 the ID is taken; 10003 the file could not be written, and the user stays in the
  /// list. The service lets nobody in whose ID is empty, longer than 256 bytes or the owner's, nor a user of
  /// type 2. Called back on the caller's thread.
  void createUser(UserPtr user, Completion completion);

  /// Errors: 10000 an empty list, 10003 the file could not be written. Called back on the caller's thread.
  void deleteUsers(const std::vector<UserPtr>& users, Completion completion);

  /// By the code points of the name, letters with accents after the letter alone however they are encoded;
  /// users without a name come first.
  static std::vector<UserPtr> sortedUsers(std::vector<UserPtr> users);

  /// The local account password and its MD5 string; absent until the local service has been launched.
  OptionalString localPassword() const;
  OptionalString localPasswordMD5() const;
  void setLocalPassword(OptionalString password);

 private:
  TQUserManager();
  ~TQUserManager() = delete;
  friend class TQUser;
  /// Error 10003, logged under the operation's name, when the file cannot be written.
  void saveAndComplete(const char* operation, const Completion& completion);
  struct State;
  const std::unique_ptr<State> state_;
};

}  // namespace vornex
