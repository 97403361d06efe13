#pragma once

#include <vornex/Value.h>

#include <chrono>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "foundation/Error.h"
#include "server/Users.h"

namespace vornex::server {

/// Where a request comes from.
struct Client {
  std::string host;
  /// The device's identity; the host stands in for clients that do not send one.
  std::string device;
  std::string type;
};

/// Who is logged in, one session for each user and device.
///
/// A user works on one device at a time: a login from another one is refused, or, when it is forced,
/// displaces the earlier session, whose device is then refused until it logs in again. A request of a device
/// without a session counts as a login that is not forced, so nobody works without one. The owner of the
/// local libraries may work on any number of devices and needs no session. Sessions end with a logout or
/// after twelve hours without a request.
///
/// Thread-safety: safe on any thread.
class Sessions {
 public:
  using Clock = std::chrono::steady_clock;
  static constexpr std::size_t kDefaultLimit = 256;

  explicit Sessions(std::size_t limit = kDefaultLimit) : limit_(limit) {}

  /// Fails with `alreadyLoggedIn` or `tooManySessions`.
  [[nodiscard]] Result<void> login(const User& user, const Client& client, bool force,
                                   Clock::time_point now = Clock::now());
  void logout(const User& user, const Client& client);

  /// Notes a request. Fails like a login; with `alreadyLoggedIn` for a device that was displaced.
  [[nodiscard]] Result<void> admit(const User& user, const Client& client,
                                   Clock::time_point now = Clock::now());

  /// Ends the sessions of everybody but the owner and these users.
  void endOthers(const std::set<std::string>& userIDs);

  /// Each with "userid", "username", "host", "deviceuuid", "clienttype" and "logindate" (a date number).
  Array list(Clock::time_point now = Clock::now());

 private:
  struct Session {
    std::string userName;
    Client client;
    Date loginDate;
    Clock::time_point lastSeen;
    bool displaced = false;
  };
  using Key = std::pair<std::string, std::string>;

  Result<void> open(const User& user, const Client& client, bool force, Clock::time_point now);
  void dropIdle(Clock::time_point now);
  void makeRoom();

  const std::size_t limit_;
  std::mutex mutex_;
  std::map<Key, Session> sessions_;
};

/// Slows guessing of passwords down: after a few failed logins of a user from a host, the next attempts are
/// not looked at for a while.
///
/// Thread-safety: safe on any thread.
class FailedLogins {
 public:
  using Clock = std::chrono::steady_clock;

  /// Whether an attempt is to be looked at now.
  bool mayTry(const std::string& userID, const std::string& host, Clock::time_point now = Clock::now()) const;

  /// Notes a failure. The first three cost nothing, each later one a pause of twice the length, from 200
  /// milliseconds to 5 seconds; a quarter of an hour without a failure forgives.
  void count(const std::string& userID, const std::string& host, Clock::time_point now = Clock::now());
  void forget(const std::string& userID, const std::string& host);

 private:
  struct Record {
    int failures = 0;
    Clock::time_point last;
    Clock::time_point pauseEnd;
  };
  using Key = std::pair<std::string, std::string>;

  mutable std::mutex mutex_;
  std::map<Key, Record> records_;
};

}  // namespace vornex::server
