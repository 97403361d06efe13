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
    OptionalString id = coerce::string(dictionary.find("id"));
    OptionalString password = coerce::string(dictionary.find("password"));
    if (!id || !password) return nullptr;
    UserPtr user = userWithID(std::move(id), coerce::string(dictionary.find("name")),
                              coerce::integer(dictionary.find("type")), std::move(password));
    const Value* libraries = dictionary.find("libraries");
    if (libraries && libraries->ifDictionary()) user->libraries = *libraries->ifDictionary();
    return user;
  });
}

std::optional<Dictionary> TQUser::userDictionary() const {
  return conversion::caught("userDictionary exception: ", [&]() -> std::optional<Dictionary> {
    return Dictionary{{"id", conversion::required(id, "id")},
                      {"name", name.value_or("")},
                      {"password", conversion::required(password, "password")},
                      {"type", userType},
                      {"libraries", libraries}};
  });
}

void TQUser::updateNewName(OptionalString newName, OptionalString newPassword, Completion completion) {
  TQUserManager& manager = TQUserManager::sharedManager();
  manager.changeUsers([&] {
    if (newName) name = std::move(newName);
    if (newPassword) password = MD5String(*newPassword);
  });
  if (manager.saveUsersFile()) return completion(true, nullptr);
  logLine(LogLevel::error, "updateNewName, Can't save User Plist");
  completion(false, TQVornexUtil::errorWithCode(10003, LocalizedString("user.error.cannot.save")));
}

bool TQUser::findLibraryName(const std::string& dbName) const {
  return libraries.contains(dbName);
}

void TQUser::addLibraries(const std::vector<LibraryPtr>& added) {
  auto add = [&](const LibraryPtr& library) {
    if (!library) return;
    const std::string& dbName = conversion::required(library->dbName, "database name");
    if (libraries.contains(dbName))
      logLine(LogLevel::info, "Already exist library : " + dbName);
    else
      libraries.set(dbName, conversion::required(library->name, "name"));
  };
  TQUserManager& manager = TQUserManager::sharedManager();
  manager.changeUsers([&] {
    for (const LibraryPtr& library : added)
      conversion::caught("addLibraries exception:", [&] { add(library); });
  });
  manager.saveUsersFile();
}

void TQUser::removeLibraries(const std::vector<LibraryPtr>& removed) {
  TQUserManager::sharedManager().changeUsers([&] {
    for (const LibraryPtr& library : removed) {
      conversion::caught("removeLibraries exception:", [&] {
        if (library) libraries.erase(conversion::required(library->dbName, "database name"));
      });
    }
  });
}

}  // namespace vornex
