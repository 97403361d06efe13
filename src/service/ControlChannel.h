#pragma once

#include <vornex/Value.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "foundation/Error.h"

namespace vornex {

/// The client's end of one control connection: calls out with their answers, callbacks in.
///
/// A channel opens once and closes once: when the service closes it, when the bytes on it are no protocol, or
/// by close(). Calls beyond those that the service takes at a time wait for their turn. Everything it calls
/// runs on workers of the global queue, callbacks one after another in the order received; both may block and
/// may call again.
///
/// Thread-safety: safe on any thread.
class ControlChannel {
 public:
  using Answer = std::function<void(Result<Value> result)>;
  /// Gives the result or error to answer with; it is sent when the service asked for one. What it throws
  /// becomes an error.
  using CallbackHandler = std::function<Result<Value>(const std::string& method, const Value& params)>;

  using ClosedHandler = std::function<void()>;

  /// Connects to the socket; `closed` is called once, when the channel has closed. Domain "posix" when nobody
  /// listens there; EACCES when another user's process does.
  [[nodiscard]] static Result<std::shared_ptr<ControlChannel>> open(
      const std::string& socketPath, CallbackHandler handler, ClosedHandler closed = [] {});
  /// Closes.
  ~ControlChannel();
  ControlChannel(const ControlChannel&) = delete;
  ControlChannel& operator=(const ControlChannel&) = delete;

  /// Sends the call; the answer comes exactly once. An error of the service keeps its code, and its domain,
  /// which is empty when it names none. A channel that is closed, or closes before the answer, gives code 31;
  /// no answer within the time limit gives code 9.
  void call(const std::string& method, Value params, std::chrono::milliseconds timeLimit, Answer answer);

  bool isOpen() const;
  /// Ends the connection; calls under way fail.
  void close();

 private:
  struct State;
  explicit ControlChannel(std::shared_ptr<State> state);
  std::shared_ptr<State> state_;
};

}  // namespace vornex
