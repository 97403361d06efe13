// One request of 2 KB with an answer of 2 KB, as the SDK sends it, beside a bare curl loop on the same
// server. The SDK writes and reads JSON and builds its headers besides; the aim is at most 1.3 times the bare
// loop.

#include <benchmark/benchmark.h>
#include <curl/curl.h>
#include <vornex/Queue.h>
#include <vornex/TQVornexUtil.h>

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

static void bareCurlLoop(benchmark::State& state) {
  std::string body = writeJson(params(), JsonStyle::pretty);
  CURL* handle = curl_easy_init();
  std::string url = server().url("/echo");
  curl_slist* headers = curl_slist_append(nullptr, "Content-Type: application/json");
  headers = curl_slist_append(headers, "Expect:");
  curl_easy_setopt(handle, CURLOPT_URL, url.c_str());
  curl_easy_setopt(handle, CURLOPT_HTTPHEADER, headers);
  curl_easy_setopt(handle, CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
  curl_easy_setopt(handle, CURLOPT_POSTFIELDS, body.data());
  curl_easy_setopt(handle, CURLOPT_USERPWD, "user:password");
  curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, ignoreBody);
  for (auto _ : state)
    if (curl_easy_perform(handle) != CURLE_OK) state.SkipWithError("the server does not answer");
  curl_slist_free_all(headers);
  curl_easy_cleanup(handle);
  state.SetLabel(fmt::format("{} bytes each way", body.size()));
}

static void syncRequestURL(benchmark::State& state) {
  Value body = params();
  std::string url = server().url("/echo");
  for (auto _ : state) {
    TQErrorPtr error;
    benchmark::DoNotOptimize(TQVornexUtil::syncRequestURL(url, "user", "password", "POST", body, &error));
    if (error) state.SkipWithError(error->description().c_str());
  }
}

static void requestURL(benchmark::State& state) {
  Value body = params();
  std::string url = server().url("/echo");
  for (auto _ : state) {
    TQVornexUtil::requestURL(url, "user", "password", "POST", body,
                             [&](const Value&, const TQErrorPtr& error) {
                               if (error) state.SkipWithError(error->description().c_str());
                               MainQueue::shared().stop();
                             });
    MainQueue::shared().run();
  }
}

// Turn by turn, so that whatever else the machine does meets all three alike.
BENCHMARK(bareCurlLoop)->UseRealTime();
BENCHMARK(syncRequestURL)->UseRealTime();
BENCHMARK(requestURL)->UseRealTime();

namespace {

/// Prints the medians as multiples of the bare loop's, after the usual table.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs)
      if (run.aggregate_name == "median")
        medians_.emplace_back(run.run_name.function_name, run.GetAdjustedRealTime());
  }
  void Finalize() override {
    for (const auto& [name, time] : medians_)
      GetOutputStream() << fmt::format("{:<16} {:5.2f} times the bare loop\n", name,
                                       time / medians_.front().second);
  }

 private:
  std::vector<std::pair<std::string, double>> medians_;
};

}  // namespace

int main(int argc, char** argv) {
  std::vector<char*> arguments(argv, argv + argc);
  std::string repeat = "--benchmark_repetitions=9",
              interleave = "--benchmark_enable_random_interleaving=true",
              aggregates = "--benchmark_report_aggregates_only=true";
  arguments.insert(arguments.begin() + 1, {repeat.data(), interleave.data(), aggregates.data()});
  argc = static_cast<int>(arguments.size());
  benchmark::Initialize(&argc, arguments.data());
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  return 0;
}
