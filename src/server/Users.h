#pragma once

#include <vornex/Types.h>

#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>

#include "foundation/Error.h"

namespace vornex::server {

/// Somebody who may use the server.
struct User {
  std::string id;
  std::string name;
  std::int64_t type = kUserTypeNetwork;
  /// MD5 of the password, 32 upper-case hexadecimal digits.
  std::string password;
  /// Database names of the libraries assigned to the user.
  std::set<std::string> libraries;

  /// The owner of the local libraries may do everything with each of them.
  bool isOwner() const { return type == kUserTypeLocalOwner; }
};

/// The users in "users.plist" and the owner of the local libraries, whose password is made at random on first
/// use, and anew when its file is damaged, which is kept beside it.
///
/// Thread-safety: safe on any thread.
class Users {
 public:
  /// Reads or makes the local account, and reads the users. An unreadable users file is logged: the owner can
  /// still work.
  [[nodiscard]] Result<void> open();

  /// Reads the users file again; when it cannot be read the users stay as they are. A missing file means
  /// none. `published` is told whom there is now, before anything is read again.
  [[nodiscard]] Result<void> reload(
      const std::function<void(const std::set<std::string>& identifiers)>& published = {});

  /// The user with these credentials; the password in MD5 form. Takes as long for a wrong password as for an
  /// unknown user.
  std::optional<User> authenticate(const std::string& id, const std::string& password) const;

  /// Of the users in the file.
  std::set<std::string> identifiers() const;

  /// The owner's password in clear.
  std::string localPassword() const;

 private:
  std::mutex reloading_;
  mutable std::mutex mutex_;
  std::string localPassword_;
  std::map<std::string, User> users_;
};

}  // namespace vornex::server
