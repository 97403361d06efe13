#pragma once

#include <vornex/Value.h>

#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "foundation/FileDescriptor.h"

namespace vornex::testing {

/// A control-channel server without anything behind it: answers, errs, hangs and hangs up as it is told.
///
/// Calls without a handler answer {}. Listens on this process's control socket from its construction to its
/// destruction.
class FakeService {
 public:
  /// The whole answer but its id: {"result": …} or {"error": …}; empty to leave the call without one.
  using Handler = std::function<Dictionary(const Value& params)>;

  using Handlers = std::map<std::string, Handler>;

  /// The handlers are there before the first client is.
  explicit FakeService(Handlers handlers = {});
  ~FakeService();

  static Handler giving(Dictionary result);
  void on(const std::string& method, Handler handler);
  void answer(const std::string& method, Dictionary result);
  void fail(const std::string& method, std::int64_t code, const std::string& message);

  /// Calls the client back; `id` asks for an answer.
  void callBack(const std::string& method, Dictionary params, std::int64_t id = 0);
  /// Sends raw bytes.
  void send(const std::string& bytes);
  /// Closes the connections; the next ones are served.
  void hangUp();

  std::vector<std::string> calls();
  std::int64_t count(const std::string& method);
  /// The parameters of the last call of the method.
  Value paramsOf(const std::string& method);
  /// Waits, up to 10 seconds, until the method has been called so often.
  bool await(const std::string& method, std::int64_t times = 1);
  /// The client's result of a callback, or its error; null when none comes in 10 seconds.
  Value awaitAnswer(std::int64_t id);

 private:
  void serve(int listener);
  void read(int connection);
  void receive(int connection, const std::string& line);

  std::mutex mutex_;
  std::condition_variable changed_;
  Handlers handlers_;
  std::vector<std::pair<std::string, Value>> received_;
  std::map<std::int64_t, Value> answers_;
  std::vector<int> connections_;
  FileDescriptor listener_;
  std::thread acceptor_;
  std::vector<std::thread> readers_;
};

}  // namespace vornex::testing
