#pragma once

#include <vornex/KeyedArchive.h>
#include <vornex/Types.h>

#include <mutex>
#include <vector>

namespace vornex {

/// A person known to a server, with the libraries assigned to that person.
///
/// Thread-safety: the operations are safe on any thread and never wait for a file that another thread writes.
/// Who uses a field by hand does so while no other thread changes the user.
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
  /// Assigns or takes away libraries, then (adding only) saves the users file. A library without the text
  /// that is needed is logged and ends the assigning; those before it stay.
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

 private:
  friend class TQUserManager;
  OptionalString currentName() const;
  void assign(const std::string& dbName, const std::string& libraryName);

  /// Held by the operations while they use the fields.
  mutable std::mutex fields_;
};

}  // namespace vornex
