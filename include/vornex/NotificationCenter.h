#pragma once

#include <vornex/Value.h>

#include <any>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace vornex {

/// What an observer receives.
struct Notification {
  std::string name;
  /// What the notification is about; empty when there is none. Each notification documents the type it holds:
  /// std::string, Value, or a shared pointer to a model object.
  std::any object;
  Dictionary userInfo;
};

/// Broadcasts named notifications to whoever observes them.
///
/// Thread-safety: every operation is safe on any thread. Observers are called on the posting thread, in the
/// order in which they were added, without a lock held: they may add, remove and post. What an observer
/// throws is logged and reaches neither the poster nor the other observers.
class NotificationCenter {
 public:
  using Observer = std::function<void(const Notification&)>;
  /// Names one observer; 0 is never given out.
  using Token = std::uint64_t;

  /// The process's default centre, made on first use.
  static NotificationCenter& defaultCenter();

  NotificationCenter();
  ~NotificationCenter();
  NotificationCenter(const NotificationCenter&) = delete;
  NotificationCenter& operator=(const NotificationCenter&) = delete;

  /// An empty name observes every notification.
  Token addObserver(std::string name, Observer observer);

  /// After the return no new call of the observer starts; a call already running on another thread may still
  /// be under way. An unknown token is ignored.
  void removeObserver(Token token);

  /// Returns when every observer has been called.
  void post(const Notification& notification);

  /// Posts on the main queue, later; returns at once.
  void postOnMainQueue(Notification notification);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace vornex
