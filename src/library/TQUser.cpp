#include <vornex/Log.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQUser.h>
#include <vornex/TQUserManager.h>
#include <vornex/TQVornexUtil.h>

#include "core/Coercion.h"
#include "model/Conversion.h"

namespace vornex {

static const ArchivedClass archivedClass("TQUser", [] { return std::make_shared<TQUser>(); });

std::string TQUser::archivedClassName() const {
  return "TQUser";
}

void TQUser::encodeWithCoder(KeyedArchiver& coder) const {
  std::lock_guard lock(fields_);
  coder.encodeValue("id", id);
  coder.encodeInteger("userType", userType);
  coder.encodeValue("name", name);
  coder.encodeValue("password", password);
  coder.encodeMutableValue("libraries", libraries);
}

void TQUser::initWithCoder(KeyedUnarchiver& coder) {
  id = coder.decodeString("id");
  userType = coder.decodeInteger("userType");
  name = coder.decodeString("parent");
  password = coder.decodeString("password");
  libraries = coder.decodeDictionary("libraries");
}

UserPtr TQUser::userWithID(OptionalString id, OptionalString name, std::int64_t type,
                           OptionalString password) {
  auto user = std::make_shared<TQUser>();
  user->id = std::move(id);
  user->name = std::move(name);
  user->userType = type;
  user->password = std::move(password);
  return user;
}

UserPtr TQUser::userWithDictionary(const Dictionary& dictionary) {
  return conversion::caught("userWithDictionary : ", [&]() -> UserPtr {
    OptionalString storedID = coerce::string(dictionary.find("id"));
    OptionalString storedPassword = coerce::string(dictionary.find("password"));
    if (!storedID || !storedPassword) return nullptr;
    UserPtr user = userWithID(std::move(storedID), coerce::string(dictionary.find("name")),
                              coerce::integer(dictionary.find("type")), std::move(storedPassword));
    const Value* storedLibraries = dictionary.find("libraries");
    if (storedLibraries && storedLibraries->ifDictionary())
      user->libraries = *storedLibraries->ifDictionary();
    return user;
  });
}

std::optional<Dictionary> TQUser::userDictionary() const {
  return conversion::caught("userDictionary exception: ", [&]() -> std::optional<Dictionary> {
    std::lock_guard lock(fields_);
    return Dictionary{{"id", conversion::required(id, "id")},
                      {"name", name.value_or("")},
                      {"password", conversion::required(password, "password")},
                      {"type", userType},
                      {"libraries", libraries}};
  });
}

OptionalString TQUser::currentName() const {
  std::lock_guard lock(fields_);
  return name;
}

void TQUser::updateNewName(OptionalString newName, OptionalString newPassword, Completion completion) {
  {
    std::lock_guard lock(fields_);
    if (newName) name = std::move(newName);
    if (newPassword) password = MD5String(*newPassword);
  }
  TQUserManager::sharedManager().saveAndComplete("updateNewName", completion);
}

bool TQUser::findLibraryName(const std::string& dbName) const {
  std::lock_guard lock(fields_);
  return libraries.contains(dbName);
}

void TQUser::assign(const std::string& dbName, const std::string& libraryName) {
  {
    std::lock_guard lock(fields_);
    if (!libraries.contains(dbName)) return libraries.set(dbName, libraryName);
  }
  logLine(LogLevel::info, "Already exist library : " + dbName);
}

void TQUser::addLibraries(const std::vector<LibraryPtr>& added) {
  conversion::caught("addLibraries exception:", [&] {
    for (const LibraryPtr& library : added) {
      if (!library) continue;
      assign(conversion::required(library->dbName, "database name"),
             conversion::required(library->name, "name"));
    }
  });
  TQUserManager::sharedManager().saveUsersFile();
}

void TQUser::removeLibraries(const std::vector<LibraryPtr>& removed) {
  conversion::caught("removeLibraries exception:", [&] {
    std::lock_guard lock(fields_);
    for (const LibraryPtr& library : removed)
      if (library) libraries.erase(conversion::required(library->dbName, "database name"));
  });
}

}  // namespace vornex
