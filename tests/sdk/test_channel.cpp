#include <algorithm>
#include <stdexcept>
#include <thread>

#include "core/StorageLayout.h"
#include "sdk/FakeService.h"
#include "sdk/SdkFixture.h"
#include "service/ControlChannel.h"

using namespace vornex;
using namespace std::chrono_literals;
using vornex::testing::FakeService;

namespace {

class ChannelTest : public vornex::testing::SdkTest {
 protected:
  void open(ControlChannel::CallbackHandler handler = [](const std::string&, const Value&) {
    return Value();
  }) {
    auto opened = ControlChannel::open(layout::controlSocket(), std::move(handler));
    ASSERT_TRUE(opened) << opened.error().message;
    channel = *opened;
  }

  std::future<Result<Value>> call(const std::string& method, std::chrono::milliseconds limit = 10s) {
    auto promise = std::make_shared<std::promise<Result<Value>>>();
    channel->call(method, Dictionary(), limit,
                  [promise](Result<Value> result) { promise->set_value(std::move(result)); });
    return promise->get_future();
  }

  std::int64_t errorCode(std::future<Result<Value>> future) {
    Result<Value> result = future.get();
    return result ? 0 : result.error().code;
  }

  FakeService service;
  std::shared_ptr<ControlChannel> channel;
};

TEST_F(ChannelTest, AnswersReachTheirCallsInAnyOrder) {
  open();
  service.on("first", [](const Value&) { return Dictionary(); });
  auto first = call("first");
  auto second = call("second");
  EXPECT_TRUE(second.get());
  service.send("{\"jsonrpc\":\"2.0\",\"id\":1,\"result\":{\"n\":1}}\n");
  EXPECT_EQ(*first.get()->find("n"), Value(1));
}

TEST_F(ChannelTest, CallsBeyondWhatTheServiceTakesWaitForTheirTurn) {
  open();
  service.on("hang", [](const Value&) { return Dictionary(); });
  constexpr std::int64_t kCalls = 300, kAtATime = 64;
  std::vector<std::future<Result<Value>>> answers;
  for (std::int64_t i = 0; i < kCalls; ++i) answers.push_back(call("hang"));
  for (std::int64_t done = 0; done < kCalls; done += kAtATime) {
    std::int64_t sent = std::min(done + kAtATime, kCalls);
    ASSERT_TRUE(service.await("hang", sent));
    std::this_thread::sleep_for(20ms);
    EXPECT_EQ(service.count("hang"), sent);
    for (std::int64_t id = done + 1; id <= sent; ++id)
      service.send("{\"id\":" + std::to_string(id) + ",\"result\":{}}\n");
  }
  for (auto& answer : answers) EXPECT_TRUE(answer.get());
}

TEST_F(ChannelTest, AnErrorKeepsItsCodeDomainAndMessage) {
  open();
  service.fail("launch", 10, "taken");
  Result<Value> result = call("launch").get();
  ASSERT_FALSE(result);
  EXPECT_EQ(result.error().code, 10);
  EXPECT_EQ(result.error().domain, "VORNEX SERVER");
  EXPECT_EQ(result.error().message, "taken");
}

TEST_F(ChannelTest, AHangingCallFailsAtItsLimitAndALateAnswerIsIgnored) {
  open();
  service.on("hang", [](const Value&) { return Dictionary(); });
  EXPECT_EQ(errorCode(call("hang", 100ms)), 9);
  service.send("{\"id\":1,\"result\":{}}\n");
  EXPECT_EQ(errorCode(call("other")), 0);
}

TEST_F(ChannelTest, CallsUnderWayAndLaterOnesFailWhenTheServiceHangsUp) {
  open();
  service.on("hang", [](const Value&) { return Dictionary(); });
  auto pending = call("hang");
  ASSERT_TRUE(service.await("hang"));
  service.hangUp();
  EXPECT_EQ(errorCode(std::move(pending)), 31);
  EXPECT_FALSE(channel->isOpen());
  EXPECT_EQ(errorCode(call("later")), 31);
}

TEST_F(ChannelTest, BytesThatAreNoMessageEndTheConnection) {
  for (std::string bytes : {"no message\n", "[]\n", "{\"method\":7}\n"}) {
    open();
    service.on("hang", [](const Value&) { return Dictionary(); });
    std::int64_t before = service.count("hang");
    auto pending = call("hang");
    ASSERT_TRUE(service.await("hang", before + 1));
    service.send(bytes);
    EXPECT_EQ(errorCode(std::move(pending)), 31) << bytes;
  }
}

TEST_F(ChannelTest, ACallbackThatThrowsIsAnswered) {
  open([](const std::string&, const Value&) -> Result<Value> { throw std::runtime_error("no matter"); });
  ASSERT_TRUE(call("first").get());
  service.callBack("any", {}, 3);
  EXPECT_EQ(*service.awaitAnswer(3).find("code"), Value(-32603));
}

TEST_F(ChannelTest, AnAnswerOfSeveralMegabytesArrivesWhole) {
  open();
  std::string text(5 << 20, 'x');
  service.answer("big", {{"text", text}});
  EXPECT_EQ(*call("big").get()->find("text"), Value(text));
}

}  // namespace
