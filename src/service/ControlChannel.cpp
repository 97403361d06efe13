#include "service/ControlChannel.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vornex/Log.h>
#include <vornex/Queue.h>

#include <algorithm>
#include <cerrno>
#include <deque>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

#include "core/StatusCode.h"
#include "foundation/FileDescriptor.h"
#include "foundation/Json.h"
#include "platform/UnixSocket.h"
#include "service/SerialQueue.h"

namespace vornex {
namespace {

using Clock = std::chrono::steady_clock;

// JSON-RPC's.
constexpr std::int64_t kInternalError = -32603;
// The service closes the connection of a client with more than 256.
constexpr std::size_t kMostUnderWay = 64;
constexpr std::size_t kLineLimit = std::size_t{16} << 20;
// A service that does not take a message for this long is taken for dead.
constexpr timeval kSendLimit{10, 0};
// A call made meanwhile may be noticed to be late by this much.
constexpr std::chrono::milliseconds kLongestPause{250};

tl::unexpected<Error> serviceFailure(StatusCode code, std::string message) {
  return failure(kServerErrorDomain, static_cast<std::int64_t>(code), std::move(message));
}

bool sendAll(int socket, std::string_view bytes) {
  while (!bytes.empty()) {
    ssize_t sent = ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) continue;
    if (sent < 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
  return true;
}

// Whatever the handler throws, the service gets an answer.
Result<Value> handled(const ControlChannel::CallbackHandler& handler, const std::string& method,
                      const Value& params) {
  try {
    return handler(method, params);
  } catch (const std::exception& exception) {
    return failure("exception", kInternalError, method + ": " + exception.what());
  } catch (...) {
    return failure("exception", kInternalError, method + " threw");
  }
}

Error callError(const Value& error) {
  Error result{"", static_cast<std::int64_t>(StatusCode::internalError), ""};
  if (const Value* code = error.find("code"); code && code->ifInteger()) result.code = *code->ifInteger();
  if (const Value* message = error.find("message"); message && message->ifString())
    result.message = *message->ifString();
  const Value* data = error.find("data");
  const Value* domain = data ? data->find("domain") : nullptr;
  if (domain && domain->ifString()) result.domain = *domain->ifString();
  return result;
}

}  // namespace

// The reader thread shares the state, so that the channel may be released anywhere. It never runs foreign
// code: answers and callbacks go to other threads.
struct ControlChannel::State {
  struct Pending {
    Answer answer;
    Clock::time_point deadline;
    // Null once it is sent.
    Value message;

    bool isSent() const { return message.isNull(); }
  };

  FileDescriptor socket;
  CallbackHandler handler;
  ClosedHandler closed;
  SerialQueue callbacks, sends;
  std::mutex sending;
  mutable std::mutex mutex;
  std::map<std::int64_t, Pending> pending;
  std::deque<std::int64_t> waiting;
  std::size_t underWay = 0;
  std::int64_t nextId = 1;
  bool open = true;

  void send(const Value& message) {
    std::lock_guard lock(sending);
    sendLine(message);
  }

  // Only the holder of `sending` may call this.
  void sendLine(const Value& message) {
    std::string line = writeJson(message) + '\n';
    // A message cut short cannot be mended.
    if (line.size() > kLineLimit || !sendAll(socket.get(), line)) close();
  }

  // The next call that may be sent; null when there is none.
  Value nextMessage() {
    std::lock_guard lock(mutex);
    while (underWay < kMostUnderWay && !waiting.empty()) {
      auto found = pending.find(waiting.front());
      waiting.pop_front();
      if (found == pending.end()) continue;  // its time is over
      ++underWay;
      return std::exchange(found->second.message, Value());
    }
    return Value();
  }

  void sendWaiting() {
    std::lock_guard lock(sending);
    for (Value message = nextMessage(); !message.isNull(); message = nextMessage()) sendLine(message);
  }

  static void sendMore(const std::shared_ptr<State>& state) {
    {
      std::lock_guard lock(state->mutex);
      if (state->waiting.empty()) return;
    }
    state->sends.async([state] { state->sendWaiting(); });
  }

  // Only the holder of `mutex` may call this.
  Answer remove(std::map<std::int64_t, Pending>::iterator call) {
    if (call->second.isSent()) --underWay;
    Answer answer = std::move(call->second.answer);
    pending.erase(call);
    return answer;
  }

  void close() {
    std::map<std::int64_t, Pending> lost;
    bool wasOpen = false;
    {
      std::lock_guard lock(mutex);
      wasOpen = std::exchange(open, false);
      lost.swap(pending);
      waiting.clear();
    }
    if (wasOpen) GlobalQueue::shared().async(closed);
    ::shutdown(socket.get(), SHUT_RDWR);
    for (auto& entry : lost)
      deliver(std::move(entry.second.answer),
              serviceFailure(StatusCode::cannotConnectToHost, "the connection to the service was lost"));
  }

  static void deliver(Answer answer, Result<Value> result) {
    GlobalQueue::shared().async(
        [answer = std::move(answer), result = std::move(result)]() mutable { answer(std::move(result)); });
  }

  Answer take(std::int64_t id) {
    std::lock_guard lock(mutex);
    auto found = pending.find(id);
    if (found == pending.end()) return nullptr;
    return remove(found);
  }

  // Fails the calls whose time is over; gives how long the next one has, within the longest pause.
  std::chrono::milliseconds expire() {
    std::vector<Answer> expired;
    auto next = std::chrono::duration_cast<Clock::duration>(kLongestPause);
    {
      std::lock_guard lock(mutex);
      auto now = Clock::now();
      for (auto entry = pending.begin(); entry != pending.end();) {
        auto left = entry->second.deadline - now;
        if (left > Clock::duration::zero()) {
          next = std::min(next, left);
          ++entry;
          continue;
        }
        expired.push_back(remove(entry++));
      }
    }
    for (Answer& answer : expired)
      deliver(std::move(answer), serviceFailure(StatusCode::timedOut, "the service did not answer in time"));
    return std::chrono::ceil<std::chrono::milliseconds>(next);
  }

  static void answerCallback(const std::shared_ptr<State>& state, const Value& message,
                             const std::string& method) {
    const Value* params = message.find("params");
    Result<Value> result = handled(state->handler, method, params ? *params : Value());
    if (!result) logLine(LogLevel::warning, "A call of the service failed: " + result.error().message);
    const Value* id = message.find("id");
    if (!id) return;
    Dictionary answer{{"jsonrpc", "2.0"}, {"id", *id}};
    if (result)
      answer.set("result", std::move(*result));
    else
      answer.set("error", Dictionary{{"code", result.error().code}, {"message", result.error().message}});
    state->send(answer);
  }

  // False when the line is no message.
  static bool receive(const std::shared_ptr<State>& state, std::string_view line) {
    auto message = parseJson(line);
    if (!message || !message->ifDictionary()) return false;
    if (const Value* method = message->find("method")) {
      if (!method->ifString()) return false;
      std::string name = *method->ifString();
      state->callbacks.async([state, name = std::move(name), message = std::move(*message)] {
        answerCallback(state, message, name);
      });
      return true;
    }
    const Value* id = message->find("id");
    Answer answer = id && id->ifInteger() ? state->take(*id->ifInteger()) : nullptr;
    if (!answer) return true;  // The call has timed out.
    sendMore(state);
    if (const Value* error = message->find("error"); error && !error->isNull()) {
      deliver(std::move(answer), tl::unexpected(callError(*error)));
    } else {
      const Value* result = message->find("result");
      deliver(std::move(answer), result ? *result : Value());
    }
    return true;
  }

  // Whether the socket has more; calls fail at their time limit meanwhile.
  static bool awaitInput(const std::shared_ptr<State>& state) {
    pollfd wanted{state->socket.get(), POLLIN, 0};
    for (;;) {
      auto pause = state->expire();
      sendMore(state);
      int ready = ::poll(&wanted, 1, static_cast<int>(pause.count()));
      if (ready > 0) return true;
      if (ready < 0 && errno != EINTR) return false;
    }
  }

  static void readLines(const std::shared_ptr<State>& state) {
    std::string buffer;
    std::vector<char> chunk(64 << 10);
    while (awaitInput(state)) {
      ssize_t count = ::recv(state->socket.get(), chunk.data(), chunk.size(), 0);
      if (count < 0 && errno == EINTR) continue;
      if (count <= 0) break;
      std::size_t scanned = buffer.size();
      buffer.append(chunk.data(), static_cast<std::size_t>(count));
      std::size_t start = 0;
      for (std::size_t end; (end = buffer.find('\n', std::max(start, scanned))) != std::string::npos;
           start = end + 1) {
        if (receive(state, std::string_view(buffer).substr(start, end - start))) continue;
        logLine(LogLevel::error, "The service sent a line that is no message; the connection is closed");
        return;
      }
      buffer.erase(0, start);
      if (buffer.size() <= kLineLimit) continue;
      logLine(LogLevel::error, "The service sent a line that is too long; the connection is closed");
      return;
    }
  }
};

ControlChannel::ControlChannel(std::shared_ptr<State> state) : state_(std::move(state)) {}

ControlChannel::~ControlChannel() {
  close();
}

Result<std::shared_ptr<ControlChannel>> ControlChannel::open(const std::string& socketPath,
                                                             CallbackHandler handler, ClosedHandler closed) {
  auto socket = connectToUnixSocket(socketPath, kSendLimit);
  if (!socket) return tl::unexpected(socket.error());
  auto state = std::make_shared<State>();
  state->socket = std::move(*socket);
  state->handler = std::move(handler);
  state->closed = std::move(closed);
  std::thread([state] {
    State::readLines(state);
    state->close();
  }).detach();
  return std::shared_ptr<ControlChannel>(new ControlChannel(std::move(state)));
}

void ControlChannel::call(const std::string& method, Value params, std::chrono::milliseconds timeLimit,
                          Answer answer) {
  std::int64_t id = 0;
  {
    std::lock_guard lock(state_->mutex);
    if (state_->open) {
      id = state_->nextId++;
      Dictionary message{{"jsonrpc", "2.0"}, {"id", id}, {"method", method}, {"params", std::move(params)}};
      state_->pending.emplace(
          id, State::Pending{std::move(answer), Clock::now() + timeLimit, std::move(message)});
      state_->waiting.push_back(id);
    }
  }
  if (id == 0) {
    State::deliver(std::move(answer),
                   serviceFailure(StatusCode::cannotConnectToHost, "the connection to the service was lost"));
    return;
  }
  state_->sendWaiting();
}

bool ControlChannel::isOpen() const {
  std::lock_guard lock(state_->mutex);
  return state_->open;
}

void ControlChannel::close() {
  state_->close();
}

}  // namespace vornex
