#pragma once

#include <vornex/Value.h>

#include <chrono>
#include <map>
#include <mutex>
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
/// displaces the earlier session, whose device is then refused until it logs in again. The owner of the local
/// libraries may work on any number. Sessions end with a logout or after twelve hours without a request.
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

  /// Notes a request; fails with `alreadyLoggedIn` for a device that was displaced.
  [[nodiscard]] Result<void> admit(const User& user, const Client& client,
                                   Clock::time_point now = Clock::now());

  /// Each with "userid", "username", "host", "deviceuuid", "clienttype" and "logindate" (a date number).
  Array list() const;

 private:
  struct Session {
    std::string userName;
    Client client;
    Date loginDate;
    Clock::time_point lastSeen;
    bool displaced = false;
  };
  using Key = std::pair<std::string, std::string>;

  void dropIdle(Clock::time_point now);
  void makeRoom();

  const std::size_t limit_;
  mutable std::mutex mutex_;
  std::map<Key, Session> sessions_;
};

/// Counts failed logins by user and host and says how long the next refusal should take.
///
/// Thread-safety: safe on any thread.
class FailedLogins {
 public:
  using Clock = std::chrono::steady_clock;

  /// Counts one more failure. The first three cost nothing, each later one twice the time before it, from 200
  /// milliseconds to 5 seconds; a quarter of an hour without a failure forgives.
  std::chrono::milliseconds count(const std::string& userID, const std::string& host,
                                  Clock::time_point now = Clock::now());
  void forget(const std::string& userID, const std::string& host);

 private:
  struct Record {
    int failures = 0;
    Clock::time_point last;
  };
  using Key = std::pair<std::string, std::string>;

  std::mutex mutex_;
  std::map<Key, Record> records_;
};

}  // namespace vornex::server
