#include "server/Users.h"

#include <openssl/crypto.h>
#include <sys/stat.h>
#include <vornex/Log.h>

#include <cerrno>

#include "core/Coercion.h"
#include "core/StorageLayout.h"
#include "foundation/Files.h"
#include "foundation/PropertyList.h"
#include "foundation/Text.h"

namespace vornex::server {
namespace {

constexpr std::size_t kLocalPasswordBytes = 16;
constexpr std::size_t kMd5HexLength = 32;

/// Makes a private file private again, should its permissions have been widened.
Result<void> restrictToOwner(const std::string& path) {
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0) return posixFailure(errno, "Cannot examine " + path);
  if ((info.st_mode & 077) == 0) return {};
  logLine(LogLevel::warning, path + " was readable by others; its permissions are restored");
  if (::chmod(path.c_str(), 0600) != 0) return posixFailure(errno, "Cannot protect " + path);
  return {};
}

Result<std::string> makeLocalPassword(const std::string& path) {
  std::string password = randomHex(kLocalPasswordBytes);
  auto bytes = writePropertyList(Dictionary{{"userid", kTQLocalUserID}, {"password", password}});
  if (!bytes) return tl::unexpected(bytes.error());
  if (auto written = writeFileAtomically(path, *bytes, 0600); !written)
    return tl::unexpected(written.error());
  return password;
}

Result<std::string> localAccountPassword() {
  std::string path = layout::localAccountFile();
  if (!itemExists(path)) return makeLocalPassword(path);
  if (auto restricted = restrictToOwner(path); !restricted) return tl::unexpected(restricted.error());
  // What cannot even be read is no matter of its content.
  auto bytes = readFile(path);
  if (!bytes) return tl::unexpected(bytes.error());
  auto account = parsePropertyList(*bytes);
  OptionalString password = account ? coerce::string(account->find("password")) : std::nullopt;
  if (password && !password->empty()) return *password;
  std::string aside = path + ".damaged";
  logLine(LogLevel::warning, path + " holds no password; it is kept as " + aside + " and a new one is made");
  if (::rename(path.c_str(), aside.c_str()) != 0) return posixFailure(errno, "Cannot set aside " + path);
  return makeLocalPassword(path);
}

std::optional<User> userFromDictionary(const Value& value) {
  OptionalString id = coerce::string(value.find("id"));
  OptionalString password = coerce::string(value.find("password"));
  if (!id || id->empty() || *id == kTQLocalUserID || !password || password->size() != kMd5HexLength)
    return {};
  User user{*id,
            coerce::string(value.find("name")).value_or(""),
            coerce::integer(value.find("type")),
            *password,
            {}};
  // Only the process that owns this root folder may be the owner of its libraries.
  if (user.type == kUserTypeLocalOwner) return {};
  const Value* libraries = value.find("libraries");
  if (const Dictionary* assigned = libraries ? libraries->ifDictionary() : nullptr) {
    for (const auto& [dbName, name] : *assigned) user.libraries.insert(dbName);
  }
  return user;
}

Result<std::map<std::string, User>> readUsers() {
  std::map<std::string, User> users;
  std::string path = layout::userPlist();
  if (!itemExists(path)) return users;
  auto file = readDictionaryFile(path);
  if (!file) return tl::unexpected(file.error());
  for (const Value& entry : coerce::array(file->find("users"))) {
    auto user = userFromDictionary(entry);
    if (user) {
      users.insert_or_assign(user->id, *user);
    } else {
      logLine(LogLevel::warning, path + " holds an unusable user, who is left out");
    }
  }
  return users;
}

bool equalInConstantTime(const std::string& given, const std::string& expected) {
  return given.size() == expected.size() &&
         CRYPTO_memcmp(given.data(), expected.data(), expected.size()) == 0;
}

}  // namespace

Result<void> Users::open() {
  auto password = localAccountPassword();
  if (!password) return tl::unexpected(password.error());
  {
    std::lock_guard lock(mutex_);
    localPassword_ = *password;
  }
  if (auto read = reload(); !read) logLine(LogLevel::error, read.error().message);
  return {};
}

Result<void> Users::reload(const std::function<void(const std::set<std::string>& identifiers)>& published) {
  // What was read first must not be taken last.
  std::lock_guard reload(reloading_);
  auto users = readUsers();
  if (!users) return tl::unexpected(users.error());
  {
    std::lock_guard lock(mutex_);
    users_ = std::move(*users);
  }
  if (published) published(identifiers());
  return {};
}

std::optional<User> Users::authenticate(const std::string& id, const std::string& password) const {
  static const User nobody{"", "", kUserTypeNetwork, std::string(kMd5HexLength, '-'), {}};
  User candidate = nobody;
  {
    std::lock_guard lock(mutex_);
    if (id == kTQLocalUserID) {
      candidate = {id, id, kUserTypeLocalOwner, md5Hex(localPassword_), {}};
    } else if (auto found = users_.find(id); found != users_.end()) {
      candidate = found->second;
    }
  }
  bool matches = equalInConstantTime(password, candidate.password);
  if (!matches || candidate.id.empty()) return {};
  return candidate;
}

std::set<std::string> Users::identifiers() const {
  std::lock_guard lock(mutex_);
  std::set<std::string> result;
  for (const auto& [id, user] : users_) result.insert(id);
  return result;
}

std::string Users::localPassword() const {
  std::lock_guard lock(mutex_);
  return localPassword_;
}

}  // namespace vornex::server
