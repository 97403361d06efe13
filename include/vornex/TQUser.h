#pragma once

#include <vornex/KeyedArchive.h>
#include <vornex/Types.h>

#include <vector>

namespace vornex {

/// A person known to a server, with the libraries assigned to that person.
///
/// Thread-safety: the operations that change a user hold the monitor of TQUserManager's list, and so does
/// writing "users.plist". Who sets a field by hand does so while no other thread uses the user.
class TQUser : public Archivable {
 public:
  /// Stores the values unchanged: nothing is hashed.
  static UserPtr userWithID(OptionalString id, OptionalString name, std::int64_t type,
                            OptionalString password);

  /// Null when "id" or "password" is not a string.
  static UserPtr userWithDictionary(const Dictionary& dictionary);

  /// Keys "id", "name" (empty when absent), "password", "type", "libraries"; absent (and logged) without ID
  /// or password.
  std::optional<Dictionary> userDictionary() const;

  /// Sets the name if given and the MD5 string of the password if given, then saves the users file. Called
  /// back on the caller's thread. Error 10003 when the file cannot be written; the new values stay.
  void updateNewName(OptionalString name, OptionalString password, Completion completion);

  /// Whether the database name is among the libraries.
  bool findLibraryName(const std::string& dbName) const;
  /// Assigns or takes away libraries, then (adding only) saves the users file.
  void addLibraries(const std::vector<LibraryPtr>& libraries);
  void removeLibraries(const std::vector<LibraryPtr>& libraries);

  std::string archivedClassName() const override;
  void encodeWithCoder(KeyedArchiver& coder) const override;
  /// The name is read from the key "parent", where no writer puts it: a user comes back without its name.
  void initWithCoder(KeyedUnarchiver& coder) override;

  OptionalString id;
  OptionalString name;
  std::int64_t userType = kUserTypeNetwork;
  /// MD5 string of the password.
  OptionalString password;
  /// Database name to library name.
  Dictionary libraries;
};

}  // namespace vornex
