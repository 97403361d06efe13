// One request of 2 KB with an answer of 2 KB, as the SDK sends it, beside a bare curl loop on the same
// server. The SDK writes and reads JSON and builds its headers besides; the aim is at most 1.3 times the bare
// loop.

#include <benchmark/benchmark.h>
#include <curl/curl.h>
#include <fmt/format.h>
#include <vornex/Queue.h>
#include <vornex/TQVornexUtil.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <vector>

#include "foundation/Json.h"
#include "support/FakeServer.h"

using namespace vornex;
using vornex::testing::FakeReply;
using vornex::testing::FakeRequest;
using vornex::testing::FakeServer;

static Value params() {
  Array items;
  for (int i = 0; i < 12; ++i) {
    items.push_back(Dictionary{{"_id", fmt::format("{:024x}", i)},
                               {"name", fmt::format("IMG_{:04} from the second day", i)},
                               {"importdate", std::int64_t{20240305140709250} + i},
                               {"color", i % 7}});
  }
  return Dictionary{{"items", std::move(items)}};
}

static FakeServer& server() {
  static auto* server =
      new FakeServer([](const FakeRequest& request) { return FakeReply::json(request.body); });
  return *server;
}

static std::size_t ignoreBody(char*, std::size_t size, std::size_t count, void*) {
  return size * count;
}

/// A curl handle that sends the same bytes again and again.
class BareLoop {
 public:
  BareLoop() : body_(writeJson(params(), JsonStyle::pretty)), url_(server().url("/echo")) {
    headers_ = curl_slist_append(headers_, "Content-Type: application/json");
    headers_ = curl_slist_append(headers_, "Expect:");
    curl_easy_setopt(handle_, CURLOPT_URL, url_.c_str());
    curl_easy_setopt(handle_, CURLOPT_HTTPHEADER, headers_);
    curl_easy_setopt(handle_, CURLOPT_POSTFIELDSIZE, static_cast<long>(body_.size()));
    curl_easy_setopt(handle_, CURLOPT_POSTFIELDS, body_.data());
    curl_easy_setopt(handle_, CURLOPT_USERPWD, "user:password");
    curl_easy_setopt(handle_, CURLOPT_WRITEFUNCTION, ignoreBody);
  }
  ~BareLoop() {
    curl_easy_cleanup(handle_);
    curl_slist_free_all(headers_);
  }
  BareLoop(const BareLoop&) = delete;
  BareLoop& operator=(const BareLoop&) = delete;

  bool send() { return curl_easy_perform(handle_) == CURLE_OK; }

 private:
  std::string body_, url_;
  CURL* handle_ = curl_easy_init();
  curl_slist* headers_ = nullptr;
};

static bool sendSync(const std::string& url, const Value& body) {
  TQErrorPtr error;
  benchmark::DoNotOptimize(TQVornexUtil::syncRequestURL(url, "user", "password", "POST", body, &error));
  return !error;
}

static bool sendAsync(const std::string& url, const Value& body) {
  bool succeeded = false;
  TQVornexUtil::requestURL(url, "user", "password", "POST", body, [&](const Value&, const TQErrorPtr& error) {
    succeeded = !error;
    MainQueue::shared().stop();
  });
  MainQueue::shared().run();
  return succeeded;
}

/// In microseconds.
static double median(std::vector<double>& times) {
  std::nth_element(times.begin(), times.begin() + times.size() / 2, times.end());
  return times[times.size() / 2];
}

// One of each in turn, so that whatever else the machine does meets all three alike.
static void requestRoundTrip(benchmark::State& state) {
  const Value body = params();
  const std::string url = server().url("/echo");
  BareLoop bare;
  const std::function<bool()> ways[] = {[&] { return bare.send(); }, [&] { return sendSync(url, body); },
                                        [&] { return sendAsync(url, body); }};
  std::vector<double> times[3];
  for (auto _ : state) {
    for (int way = 0; way < 3; ++way) {
      auto started = std::chrono::steady_clock::now();
      if (!ways[way]()) return state.SkipWithError("the server does not answer");
      times[way].push_back(
          std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - started).count());
    }
  }
  double reference = median(times[0]);
  state.counters["curl_us"] = reference;
  state.counters["sync_ratio"] = median(times[1]) / reference;
  state.counters["async_ratio"] = median(times[2]) / reference;
}
BENCHMARK(requestRoundTrip)->UseRealTime();

BENCHMARK_MAIN();
