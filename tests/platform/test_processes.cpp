#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "platform/Processes.h"
#include "support/TemporaryFolder.h"

namespace vornex {

using namespace std::chrono_literals;

TEST(Processes, ReportsStatusOutputAndSignal) {
  ProcessOptions options;
  options.outputLimit = 6;
  auto ended = runProcess("sh", {"-c", "echo out; echo error >&2; exit 3"}, options);
  ASSERT_TRUE(ended);
  EXPECT_EQ(ended->exitStatus, 3);
  EXPECT_EQ(ended->output, "out\ner");
  EXPECT_FALSE(ended->succeeded());
  auto killed = runProcess("sh", {"-c", "kill -TERM $$"});
  ASSERT_TRUE(killed);
  EXPECT_EQ(killed->signal, SIGTERM);
  EXPECT_FALSE(killed->timedOut);
  EXPECT_FALSE(runProcess("no-such-program", {}));
  EXPECT_FALSE(findProgram("/etc"));
  EXPECT_EQ(findProgram("/bin/sh"), "/bin/sh");
}

TEST(Processes, TheTimeLimitKillsTheChildrenToo) {
  testing::TemporaryFolder folder;
  std::string mark = folder / "mark";
  ProcessOptions options;
  options.timeLimit = 300ms;
  options.outputLimit = 100;
  auto start = std::chrono::steady_clock::now();
  auto ended = runProcess("sh", {"-c", "(sleep 1; touch " + mark + ") & echo on; sleep 30"}, options);
  ASSERT_TRUE(ended);
  EXPECT_TRUE(ended->timedOut);
  EXPECT_EQ(ended->signal, SIGKILL);
  EXPECT_EQ(ended->output, "on\n");
  EXPECT_LT(std::chrono::steady_clock::now() - start, 5s);
  std::this_thread::sleep_for(1200ms);
  EXPECT_FALSE(std::filesystem::exists(mark));
}

TEST(Processes, MuchOutputAndSpareDescriptorsDoNotBlock) {
  ProcessOptions options;
  options.outputLimit = 10;
  auto ended = runProcess("head", {"-c", "5000000", "/dev/zero"}, options);
  ASSERT_TRUE(ended);
  EXPECT_TRUE(ended->succeeded());
  EXPECT_EQ(ended->output.size(), 10u);
  // A child left behind keeps the output open.
  auto start = std::chrono::steady_clock::now();
  ASSERT_TRUE(runProcess("sh", {"-c", "sleep 20 & exit 0"}, options));
  EXPECT_LT(std::chrono::steady_clock::now() - start, 5s);
}

}  // namespace vornex
