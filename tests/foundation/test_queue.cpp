#include <gtest/gtest.h>
#include <poll.h>
#include <vornex/Log.h>
#include <vornex/NotificationCenter.h>
#include <vornex/Queue.h>

#include <future>
#include <thread>

using namespace vornex;
using namespace std::chrono_literals;

// A chain in which every task waits for the next one needs as many workers as there are tasks.
TEST(GlobalQueue, TasksMayWaitForOneAnother) {
  constexpr int kDepth = 200;
  std::vector<std::promise<void>> done(kDepth + 1);
  done[kDepth].set_value();
  for (int i = 0; i < kDepth; ++i)
    GlobalQueue::shared().async([&done, i] {
      done[i + 1].get_future().wait();
      done[i].set_value();
    });
  EXPECT_EQ(done[0].get_future().wait_for(20s), std::future_status::ready);
}

TEST(GlobalQueue, RunsEverythingBeforeItIsDestroyed) {
  std::atomic<int> ran = 0;
  {
    GlobalQueue queue;
    for (int i = 0; i < 500; ++i)
      queue.async([&ran, i] {
        if (i % 50 == 0) std::this_thread::sleep_for(1ms);
        ++ran;
      });
  }
  EXPECT_EQ(ran, 500);
}

TEST(GlobalQueue, SurvivesTasksThatThrow) {
  std::vector<std::string> lines;
  setLogSink([&lines](LogLevel, const std::string& line) { lines.push_back(line); });
  {
    GlobalQueue queue;
    queue.async([] { throw std::runtime_error("broken"); });
  }
  setLogSink({});
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_NE(lines[0].find("broken"), std::string::npos);
}

TEST(MainQueue, RunsInOrderUntilStopped) {
  MainQueue queue;
  std::vector<int> order;
  std::thread producer([&] {
    for (int i = 0; i < 1000; ++i) queue.async([&order, i] { order.push_back(i); });
    queue.async([&queue] { queue.stop(); });
  });
  queue.run();
  producer.join();
  ASSERT_EQ(order.size(), 1000u);
  EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
}

static bool readable(const MainQueue& queue) {
  pollfd descriptor{queue.fileDescriptor(), POLLIN, 0};
  return ::poll(&descriptor, 1, 0) == 1;
}

TEST(MainQueue, ItsDescriptorIsReadableWhileTasksWait) {
  MainQueue queue;
  EXPECT_FALSE(readable(queue));
  queue.async([&queue] { queue.async([] {}); });
  EXPECT_TRUE(readable(queue));
  EXPECT_EQ(queue.runPending(), 1u);
  EXPECT_TRUE(readable(queue));
  EXPECT_EQ(queue.runPending(), 1u);
  EXPECT_FALSE(readable(queue));
  queue.stop();
  queue.run();
  EXPECT_FALSE(readable(queue));
}

TEST(NotificationCenter, ReachesObserversByNameInOrder) {
  NotificationCenter center;
  std::vector<std::string> seen;
  auto named = center.addObserver("a", [&](const Notification& n) { seen.push_back("named " + n.name); });
  center.addObserver("", [&](const Notification& n) { seen.push_back("all " + n.name); });
  center.post({"a", {}, {}});
  center.post({"b", {}, {}});
  center.removeObserver(named);
  center.post({"a", {}, {}});
  EXPECT_EQ(seen, (std::vector<std::string>{"named a", "all a", "all b", "all a"}));
}

TEST(NotificationCenter, ObserversMayRemoveEachOtherAndPost) {
  NotificationCenter center;
  int second = 0;
  NotificationCenter::Token token = 0;
  center.addObserver("a", [&](const Notification&) { center.removeObserver(token); });
  token = center.addObserver("a", [&](const Notification&) { ++second; });
  center.addObserver("a", [&](const Notification&) { center.post({"b", {}, {}}); });
  bool nested = false;
  center.addObserver("b", [&](const Notification&) { nested = true; });
  center.post({"a", {}, {}});
  EXPECT_EQ(second, 0);
  EXPECT_TRUE(nested);
}
