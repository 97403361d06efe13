#include <gtest/gtest.h>

#include <cerrno>

#include "Fixtures.h"
#include "platform/ContainedMedia.h"
#include "platform/MediaWorkers.h"
#include "support/TemporaryFolder.h"

namespace vornex {

using namespace std::chrono_literals;

// A reader that does on demand what a decoder does at the worst; otherwise it tells its process.
constexpr const char* kBadReader = R"(#!/usr/bin/env python3
import json, os, signal, socket, struct, time
channel = socket.socket(fileno=0)
served = 0
def answer(message):
    text = json.dumps(message).encode()
    channel.sendall(struct.pack("I", len(text)) + text)
while head := channel.recv(4):
    what = json.loads(channel.recv(struct.unpack("I", head)[0]))["path"]
    if what == "crash" or what == "tired" and served: os.kill(os.getpid(), signal.SIGSEGV)
    if what == "hang": time.sleep(60)
    if what == "noise": channel.sendall(b"\xff" * 1000)
    if what == "words": channel.sendall(struct.pack("I", 5) + b"words")
    if what == "bomb": answer({"pictures": [{"width": 65500, "height": 65500, "channels": 4}]})
    if what == "stump": answer({"pictures": [{"width": 10, "height": 10, "channels": 3}]}); os._exit(0)
    if what == "error": answer({"error": {"domain": "image", "code": 7, "message": "no"}})
    else: answer({"facts": {"process": os.getpid()}})
    served += 1
)";

TEST(MediaWorkers, AFileThatKillsOrKeepsItsReaderCostsItsOwnAnswerOnly) {
  testing::TemporaryFolder folder;
  testing::write(folder / "reader", kBadReader);
  std::filesystem::permissions(folder / "reader", std::filesystem::perms::owner_all);
  MediaWorkers workers(folder / "reader", 30s);
  auto process = [&](const char* path) {
    auto answer = workers.ask({{"path", path}});
    EXPECT_TRUE(answer) << path << ": " << answer.error().message;
    return answer ? answer->facts.find("process")->ifInteger()[0] : 0;
  };
  auto first = process("plain");
  EXPECT_EQ(process("plain"), first);
  for (const char* path : {"crash", "noise", "words", "bomb", "stump"}) {
    SCOPED_TRACE(path);
    auto answer = workers.ask({{"path", path}});
    ASSERT_FALSE(answer);
    EXPECT_EQ(answer.error().domain, "decoder");
    EXPECT_NE(process("plain"), first);
  }
  auto late = MediaWorkers(folder / "reader", 500ms).ask({{"path", "hang"}});
  ASSERT_FALSE(late);
  EXPECT_EQ(late.error().code, ETIMEDOUT);
  auto refused = workers.ask({{"path", "error"}});
  ASSERT_FALSE(refused);
  EXPECT_EQ(refused.error().domain, "image");
  // A reader that dies of old age is no fault of the file.
  auto used = process("plain");
  EXPECT_NE(process("tired"), used);

  EXPECT_EQ(MediaWorkers("/no/such/reader", 1s).ask({}).error().domain, "decoder");
}

TEST(MediaWorkers, ServeManyThreads) {
  testing::TemporaryFolder folder;
  testing::photo(800, 600).jpegsave((folder / "p\xff.jpg").c_str());
  std::atomic<int> good = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 6; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < 4; ++round) {
        auto pictures = contained::loadThumbnails(folder / "p\xff.jpg", {400, 100});
        bool whole = pictures && pictures->front().width() == 400 && pictures->back().height() == 75;
        auto facts = contained::imageInformation(folder / "p\xff.jpg");
        if (whole && facts && *facts->find("image_width") == Value(800)) ++good;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(good, 24);
}

TEST(Containment, BarsTheNetworkAndBoundsWhatAProgramTakes) {
  auto python = [](const std::string& script) {
    auto ended = runContained("python3", {"-c", "import socket, resource\n" + script});
    return ended && ended->succeeded();
  };
  EXPECT_TRUE(python("socket.socket(socket.AF_UNIX)"));
  EXPECT_FALSE(python("socket.socket(socket.AF_INET)"));
  EXPECT_FALSE(python("socket.socket(socket.AF_INET6, socket.SOCK_DGRAM)"));
  EXPECT_TRUE(python("assert resource.getrlimit(resource.RLIMIT_CORE)[1] == 0"));
  EXPECT_TRUE(python("assert resource.getrlimit(resource.RLIMIT_CPU)[0] > 0"));
  EXPECT_TRUE(python("assert open('/proc/self/oom_score_adj').read() == '1000\\n'"));
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
  EXPECT_TRUE(python("assert 0 < resource.getrlimit(resource.RLIMIT_AS)[1] <= 8 << 30"));
#endif
}

}  // namespace vornex
