#include <signal.h>
#include <vornex/Queue.h>
#include <vornex/TQLibraryManager.h>
#include <vornex/TQUserManager.h>
#include <vornex/TQVornexUtil.h>
#include <vornex/VornexSDK.h>

#include <filesystem>
#include <thread>

#include "core/StorageLayout.h"
#include "foundation/Files.h"
#include "sdk/SdkFixture.h"

using namespace vornex;
using namespace std::chrono_literals;
using vornex::testing::Outcome;

namespace {

constexpr int kRequests = 50;

class KilledServiceTest : public vornex::testing::SdkTest {
 protected:
  KilledServiceTest() : pump_([] { MainQueue::shared().run(); }) {
    ::setenv("VORNEX_WASD", VORNEX_SERVICE, 1);
    sdk().initializeWAS();
  }
  ~KilledServiceTest() override {
    std::promise<void> ended;
    sdk().terminateWAS([&] { ended.set_value(); });
    ended.get_future().wait();
    MainQueue::shared().stop();
    pump_.join();
  }

  static VornexSDK& sdk() { return VornexSDK::sharedInstance(); }

  static void start() {
    Outcome started;
    sdk().startWASServiceWithPort(0, started.completion());
    ASSERT_TRUE(started.await(60s));
    ASSERT_TRUE(started.ok) << started.error->description();
  }

  static void signalService(int number) {
    ASSERT_EQ(::kill(std::stoi(readFile(layout::serviceLockFile()).value()), number), 0);
  }

  static bool isRunning() {
    auto promise = std::make_shared<std::promise<bool>>();
    sdk().isRunning([promise](bool running) { promise->set_value(running); });
    return promise->get_future().get();
  }

  static std::string url() {
    return "http://127.0.0.1:" + std::to_string(sdk().WASPort) + "/vornex/libraries?type=0";
  }

  /// The code that the request ends with.
  static std::future<std::int64_t> request() {
    auto promise = std::make_shared<std::promise<std::int64_t>>();
    TQVornexUtil::requestURL(
        url(), kTQLocalUserID, TQUserManager::sharedManager().localPasswordMD5(), "GET", std::nullopt,
        [promise](const Value&, const TQErrorPtr& error) { promise->set_value(error ? error->code() : 0); });
    return promise->get_future();
  }

  static std::ptrdiff_t openFiles() {
    auto entries = std::filesystem::directory_iterator("/proc/self/fd");
    return std::distance(begin(entries), end(entries));
  }

  std::thread pump_;
};

TEST_F(KilledServiceTest, EveryRequestUnderWayEndsAndTheNextStartBringsTheServiceBack) {
  start();
  ASSERT_EQ(request().get(), 0);
  std::ptrdiff_t filesAfterFirst = 0;
  for (int round = 0; round < 4; ++round) {
    signalService(SIGSTOP);
    std::this_thread::sleep_for(200ms);  // until its last thread has stopped
    std::vector<std::future<std::int64_t>> ends;
    for (int i = 0; i < kRequests; ++i) ends.push_back(request());
    auto sessions = std::make_shared<std::promise<std::int64_t>>();
    sdk().getUserSessions([sessions](const std::vector<TQSession>&, const TQErrorPtr& error) {
      sessions->set_value(error ? error->code() : 0);
    });
    std::this_thread::sleep_for(200ms);
    signalService(SIGKILL);
    ends.push_back(sessions->get_future());
    auto limit = std::chrono::steady_clock::now() + 10s;
    for (std::future<std::int64_t>& end : ends) {
      ASSERT_EQ(end.wait_until(limit), std::future_status::ready) << "long before the time-out";
      EXPECT_EQ(end.get(), 31);
    }
    EXPECT_FALSE(isRunning());
    start();
    EXPECT_TRUE(isRunning());
    EXPECT_EQ(request().get(), 0);
    if (round == 0) filesAfterFirst = openFiles();
  }
  EXPECT_LE(openFiles(), filesAfterFirst + 2) << "no round leaves a connection behind";
}

}  // namespace
