#include "sdk/FakeService.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>

#include "core/StorageLayout.h"
#include "foundation/Files.h"
#include "foundation/Json.h"
#include "platform/UnixSocket.h"

namespace vornex::testing {

using namespace std::chrono_literals;

FakeService::FakeService(Handlers handlers) : handlers_(std::move(handlers)) {
  std::string path = layout::controlSocket();
  (void)createDirectories(deletingLastPathComponent(path));
  listener_ = listenOnUnixSocket(path).value();
  acceptor_ = std::thread([this, listener = listener_.get()] { serve(listener); });
}

FakeService::~FakeService() {
  ::unlink(layout::controlSocket().c_str());
  ::shutdown(listener_.get(), SHUT_RDWR);
  acceptor_.join();
  hangUp();
  for (std::thread& reader : readers_) reader.join();
}

void FakeService::serve(int listener) {
  for (int connection; (connection = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
    std::lock_guard lock(mutex_);
    connections_.push_back(connection);
    readers_.emplace_back([this, connection] { read(connection); });
  }
}

void FakeService::read(int connection) {
  std::string buffer;
  char chunk[4096];
  for (ssize_t count; (count = ::recv(connection, chunk, sizeof chunk, 0)) > 0;) {
    buffer.append(chunk, static_cast<std::size_t>(count));
    for (std::size_t end; (end = buffer.find('\n')) != std::string::npos; buffer.erase(0, end + 1))
      receive(connection, buffer.substr(0, end));
  }
  std::lock_guard lock(mutex_);
  std::erase(connections_, connection);
  ::close(connection);
}

void FakeService::receive(int connection, const std::string& line) {
  Value message = parseJson(line).value();
  Handler handler = [](const Value&) { return Dictionary{{"result", Dictionary()}}; };
  Value params;
  {
    std::lock_guard lock(mutex_);
    changed_.notify_all();
    const Value* method = message.find("method");
    if (!method) {
      const Value* result = message.find("result");
      answers_[*message.find("id")->ifInteger()] = *(result ? result : message.find("error"));
      return;
    }
    params = *message.find("params");
    received_.emplace_back(*method->ifString(), params);
    auto known = handlers_.find(*method->ifString());
    if (known != handlers_.end()) handler = known->second;
  }
  Dictionary answer = handler(params);
  if (answer.empty()) return;
  answer.set("id", *message.find("id"));
  std::string text = writeJson(answer) + '\n';
  ::send(connection, text.data(), text.size(), MSG_NOSIGNAL);
}

void FakeService::on(const std::string& method, Handler handler) {
  std::lock_guard lock(mutex_);
  handlers_[method] = std::move(handler);
}

void FakeService::answer(const std::string& method, Dictionary result) {
  on(method, giving(std::move(result)));
}

FakeService::Handler FakeService::giving(Dictionary result) {
  return [result = std::move(result)](const Value&) { return Dictionary{{"result", result}}; };
}

void FakeService::fail(const std::string& method, std::int64_t code, const std::string& message) {
  Dictionary error{{"code", code}, {"message", message}, {"data", Dictionary{{"domain", "VORNEX SERVER"}}}};
  on(method, [error](const Value&) { return Dictionary{{"error", error}}; });
}

void FakeService::callBack(const std::string& method, Dictionary params, std::int64_t id) {
  Dictionary message{{"jsonrpc", "2.0"}, {"method", method}, {"params", std::move(params)}};
  if (id) message.set("id", id);
  send(writeJson(message) + '\n');
}

void FakeService::send(const std::string& bytes) {
  std::lock_guard lock(mutex_);
  for (int connection : connections_) ::send(connection, bytes.data(), bytes.size(), MSG_NOSIGNAL);
}

void FakeService::hangUp() {
  std::lock_guard lock(mutex_);
  for (int connection : connections_) ::shutdown(connection, SHUT_RDWR);
}

std::vector<std::string> FakeService::calls() {
  std::lock_guard lock(mutex_);
  std::vector<std::string> methods;
  for (const auto& call : received_) methods.push_back(call.first);
  return methods;
}

std::int64_t FakeService::count(const std::string& method) {
  std::vector<std::string> methods = calls();
  return std::count(methods.begin(), methods.end(), method);
}

Value FakeService::paramsOf(const std::string& method) {
  std::lock_guard lock(mutex_);
  Value params;
  for (const auto& call : received_)
    if (call.first == method) params = call.second;
  return params;
}

bool FakeService::await(const std::string& method, std::int64_t times) {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, 10s, [&] {
    return std::count_if(received_.begin(), received_.end(),
                         [&](const auto& call) { return call.first == method; }) >= times;
  });
}

Value FakeService::awaitAnswer(std::int64_t id) {
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, 10s, [&] { return answers_.contains(id); });
  auto found = answers_.find(id);
  return found == answers_.end() ? Value() : found->second;
}

}  // namespace vornex::testing
