#include "server/Sessions.h"

#include <algorithm>

#include "core/DateNumber.h"
#include "server/ServerError.h"

namespace vornex::server {
namespace {

constexpr auto kIdleLimit = std::chrono::hours(12);
constexpr auto kForgiveAfter = std::chrono::minutes(15);
constexpr int kFreeFailures = 3;
constexpr auto kFirstPause = std::chrono::milliseconds(200);
constexpr auto kLongestPause = std::chrono::milliseconds(5000);
constexpr std::size_t kMostRecords = 4096;

Date now() {
  return std::chrono::time_point_cast<std::chrono::microseconds>(std::chrono::system_clock::now());
}

tl::unexpected<Error> loggedInElsewhere(const User& user) {
  return serverFailure(StatusCode::alreadyLoggedIn,
                       fmt::format("The user {} is logged in from another device.", user.id));
}

}  // namespace

Result<void> Sessions::login(const User& user, const Client& client, bool force, Clock::time_point at) {
  std::lock_guard lock(mutex_);
  dropIdle(at);
  return open(user, client, force, at);
}

Result<void> Sessions::open(const User& user, const Client& client, bool force, Clock::time_point at) {
  if (!user.isOwner()) {
    for (auto& [key, session] : sessions_) {
      if (key.first != user.id || key.second == client.device || session.displaced) continue;
      if (!force) return loggedInElsewhere(user);
      session.displaced = true;
    }
  }
  Key key{user.id, client.device};
  if (!sessions_.contains(key)) {
    makeRoom();
    if (sessions_.size() >= limit_) {
      return serverFailure(StatusCode::tooManySessions,
                           fmt::format("The server has {} sessions already.", limit_));
    }
  }
  sessions_.insert_or_assign(key, Session{user.name, client, now(), at, false});
  return {};
}

void Sessions::logout(const User& user, const Client& client) {
  std::lock_guard lock(mutex_);
  sessions_.erase({user.id, client.device});
}

Result<void> Sessions::admit(const User& user, const Client& client, Clock::time_point at) {
  std::lock_guard lock(mutex_);
  dropIdle(at);
  auto found = sessions_.find({user.id, client.device});
  if (found == sessions_.end()) return user.isOwner() ? Result<void>() : open(user, client, false, at);
  if (found->second.displaced) return loggedInElsewhere(user);
  found->second.lastSeen = at;
  return {};
}

Array Sessions::list(Clock::time_point at) {
  std::lock_guard lock(mutex_);
  dropIdle(at);
  Array result;
  for (const auto& [key, session] : sessions_) {
    if (session.displaced) continue;
    result.push_back(Dictionary{{"userid", key.first},
                                {"username", session.userName},
                                {"host", session.client.host},
                                {"deviceuuid", session.client.device},
                                {"clienttype", session.client.type},
                                {"logindate", dateNumber(session.loginDate)}});
  }
  return result;
}

void Sessions::endOthers(const std::set<std::string>& userIDs) {
  std::lock_guard lock(mutex_);
  std::erase_if(sessions_, [&](const auto& entry) {
    return entry.first.first != kTQLocalUserID && !userIDs.contains(entry.first.first);
  });
}

void Sessions::dropIdle(Clock::time_point at) {
  std::erase_if(sessions_, [at](const auto& entry) { return at - entry.second.lastSeen > kIdleLimit; });
}

/// Displaced sessions are only kept as long as nobody needs their place.
void Sessions::makeRoom() {
  while (sessions_.size() >= limit_) {
    auto displaced = std::find_if(sessions_.begin(), sessions_.end(),
                                  [](const auto& entry) { return entry.second.displaced; });
    if (displaced == sessions_.end()) return;
    sessions_.erase(displaced);
  }
}

bool FailedLogins::mayTry(const std::string& userID, const std::string& host, Clock::time_point at) const {
  std::lock_guard lock(mutex_);
  auto found = records_.find({userID, host});
  return found == records_.end() || found->second.pauseEnd <= at;
}

void FailedLogins::count(const std::string& userID, const std::string& host, Clock::time_point at) {
  std::lock_guard lock(mutex_);
  std::erase_if(records_, [at](const auto& entry) { return at - entry.second.last > kForgiveAfter; });
  if (records_.size() >= kMostRecords) {
    records_.erase(std::min_element(records_.begin(), records_.end(), [](const auto& a, const auto& b) {
      return a.second.last < b.second.last;
    }));
  }
  Record& record = records_[{userID, host}];
  record.last = at;
  ++record.failures;
  auto pause = std::chrono::milliseconds(0);
  for (int failure = kFreeFailures; failure < record.failures && pause < kLongestPause; ++failure) {
    pause = pause.count() == 0 ? kFirstPause : std::min(pause * 2, kLongestPause);
  }
  record.pauseEnd = at + pause;
}

void FailedLogins::forget(const std::string& userID, const std::string& host) {
  std::lock_guard lock(mutex_);
  records_.erase({userID, host});
}

}  // namespace vornex::server
