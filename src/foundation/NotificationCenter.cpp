#include <vornex/NotificationCenter.h>
#include <vornex/Queue.h>

#include <map>
#include <mutex>

#include "foundation/RunTask.h"

namespace vornex {

struct NotificationCenter::State {
  struct Entry {
    std::string name;
    std::shared_ptr<const Observer> observer;
  };

  std::mutex mutex;
  // Tokens grow, so the order of the map is the order of adding.
  std::map<Token, Entry> observers;
  Token lastToken = 0;
};

NotificationCenter& NotificationCenter::defaultCenter() {
  // Never destroyed: other threads may post while the process ends.
  static NotificationCenter* center = new NotificationCenter;
  return *center;
}

NotificationCenter::NotificationCenter() : state_(std::make_unique<State>()) {}
NotificationCenter::~NotificationCenter() = default;

NotificationCenter::Token NotificationCenter::addObserver(std::string name, Observer observer) {
  std::lock_guard lock(state_->mutex);
  Token token = ++state_->lastToken;
  state_->observers.emplace(
      token, State::Entry{std::move(name), std::make_shared<const Observer>(std::move(observer))});
  return token;
}

void NotificationCenter::removeObserver(Token token) {
  std::lock_guard lock(state_->mutex);
  state_->observers.erase(token);
}

void NotificationCenter::post(const Notification& notification) {
  std::vector<Token> interested;
  {
    std::lock_guard lock(state_->mutex);
    for (const auto& [token, entry] : state_->observers)
      if (entry.name.empty() || entry.name == notification.name) interested.push_back(token);
  }
  for (Token token : interested) {
    std::shared_ptr<const Observer> observer;
    {
      std::lock_guard lock(state_->mutex);
      auto found = state_->observers.find(token);
      if (found != state_->observers.end()) observer = found->second.observer;
    }
    if (observer) runTask([&] { (*observer)(notification); }, "notification centre");
  }
}

void NotificationCenter::postOnMainQueue(Notification notification) {
  MainQueue::shared().async([this, notification = std::move(notification)] { post(notification); });
}

}  // namespace vornex
