#include "core/HttpExchange.h"

#include <vornex/Queue.h>

#include <algorithm>
#include <deque>
#include <exception>
#include <map>
#include <mutex>
#include <thread>

#include "core/HttpTransfer.h"
#include "foundation/RunTask.h"

namespace vornex {
namespace {

using Clock = std::chrono::steady_clock;
using Done = std::function<void(Result<HttpAnswer> answer)>;

/// Who is to answer; what cannot be requested has a queue of its own.
std::string serverOf(const std::string& url) {
  std::optional<UrlParts> parts = parseHttpUrl(url);
  return parts ? parts->server : "";
}

Result<std::unique_ptr<HttpTransfer>> makeTransfer(HttpExchange exchange, HandlePool& pool) {
  try {
    return HttpTransfer::make(std::move(exchange), pool);
  } catch (const std::exception& exception) {
    return failure("curl", CURLE_OUT_OF_MEMORY, exception.what());
  }
}

/// Nobody who waits for an answer may stop the others' thread.
void complete(const Done& done, Result<HttpAnswer> answer) {
  runTask([&] { done(std::move(answer)); }, "requests");
}

tl::unexpected<Error> curlFailure(CURLcode code) {
  return failure("curl", code, curl_easy_strerror(code));
}

/// The thread that carries requests nobody waits for.
///
/// Thread-safety: submit() is safe on any thread; the rest belongs to the loop's own thread.
class HttpLoop {
 public:
  static HttpLoop& shared() {
    // Never destroyed: its thread works while the process ends.
    static HttpLoop* loop = new HttpLoop;
    return *loop;
  }

  void submit(HttpExchange exchange, Done done) {
    if (!multi_) {
      return GlobalQueue::shared().async(
          [done = std::move(done)] { complete(done, curlFailure(CURLE_FAILED_INIT)); });
    }
    Clock::time_point deadline = Clock::now() + exchange.timeLimit * kPatience;
    {
      std::lock_guard lock(mutex_);
      submitted_.push_back({std::move(exchange), std::move(done), deadline});
    }
    curl_multi_wakeup(multi_);
  }

 private:
  struct Waiting {
    HttpExchange exchange;
    Done done;
    /// For being sent.
    Clock::time_point deadline;
  };
  /// A server that does not answer must not hold up the requests to others.
  struct Server {
    std::deque<Waiting> waiting;
    std::size_t running = 0;
  };
  struct Running {
    std::string server;
    std::unique_ptr<HttpTransfer> transfer;
    Done done;
  };

  static constexpr std::size_t kMostRunning = 16;
  static constexpr int kPatience = 4;
  static constexpr int kPauseMs = 250;
  static constexpr int kIdlePauseMs = 60'000;

  HttpLoop() : multi_(curl_multi_init()) {
    if (multi_) std::thread([this] { run(); }).detach();
  }

  [[noreturn]] void run() {
    for (;;) {
      takeSubmitted();
      for (auto server = servers_.begin(); server != servers_.end();) {
        expire(server->second);
        start(server->first, server->second);
        bool isIdle = server->second.running == 0 && server->second.waiting.empty();
        server = isIdle ? servers_.erase(server) : std::next(server);
      }
      int ignored = 0;
      curl_multi_perform(multi_, &ignored);
      if (finishEnded()) continue;
      curl_multi_poll(multi_, nullptr, 0, servers_.empty() ? kIdlePauseMs : kPauseMs, nullptr);
    }
  }

  void takeSubmitted() {
    std::vector<Waiting> submitted;
    {
      std::lock_guard lock(mutex_);
      submitted.swap(submitted_);
    }
    for (Waiting& request : submitted)
      servers_[serverOf(request.exchange.url)].waiting.push_back(std::move(request));
  }

  static void expire(Server& server) {
    auto now = Clock::now();
    auto late = std::stable_partition(server.waiting.begin(), server.waiting.end(),
                                      [now](const Waiting& request) { return request.deadline > now; });
    for (auto request = late; request != server.waiting.end(); ++request)
      complete(request->done, failure("curl", kNeverSent, "too many requests to the server were under way"));
    server.waiting.erase(late, server.waiting.end());
  }

  void start(const std::string& name, Server& server) {
    while (server.running < kMostRunning && !server.waiting.empty()) {
      Waiting next = std::move(server.waiting.front());
      server.waiting.pop_front();
      auto transfer = makeTransfer(std::move(next.exchange), handles_);
      if (!transfer) {
        complete(next.done, tl::unexpected(transfer.error()));
        continue;
      }
      CURL* handle = (*transfer)->handle();
      if (CURLMcode added = curl_multi_add_handle(multi_, handle); added != CURLM_OK) {
        complete(next.done, failure("curl", CURLE_FAILED_INIT, curl_multi_strerror(added)));
        continue;
      }
      running_.emplace(handle, Running{name, std::move(*transfer), std::move(next.done)});
      ++server.running;
    }
  }

  bool finishEnded() {
    bool anyEnded = false;
    int ignored = 0;
    while (CURLMsg* message = curl_multi_info_read(multi_, &ignored)) {
      CURLcode code = message->data.result;
      auto ended = running_.extract(message->easy_handle);
      curl_multi_remove_handle(multi_, ended.key());
      --servers_[ended.mapped().server].running;
      complete(ended.mapped().done, ended.mapped().transfer->finish(code));
      anyEnded = true;
    }
    return anyEnded;
  }

  HandlePool handles_;
  CURLM* const multi_;
  std::mutex mutex_;
  std::vector<Waiting> submitted_;
  std::map<std::string, Server> servers_;
  std::map<CURL*, Running> running_;
};

HandlePool& handlesOfCallers() {
  // Never destroyed: workers may send while the process ends.
  static auto* pool = new HandlePool;
  return *pool;
}

}  // namespace

Result<HttpAnswer> exchangeHttp(HttpExchange exchange) {
  auto transfer = HttpTransfer::make(std::move(exchange), handlesOfCallers());
  if (!transfer) return tl::unexpected(transfer.error());
  return (*transfer)->finish(curl_easy_perform((*transfer)->handle()));
}

void exchangeHttp(HttpExchange exchange, std::function<void(Result<HttpAnswer> answer)> done) {
  HttpLoop::shared().submit(std::move(exchange), std::move(done));
}

}  // namespace vornex
