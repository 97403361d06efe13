#include <dlfcn.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <vornex/Log.h>
#include <vornex/NotificationCenter.h>
#include <vornex/Queue.h>
#include <vornex/TQVornexUtil.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <future>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "core/ServerRequest.h"
#include "foundation/Json.h"
#include "foundation/Text.h"
#include "support/FakeServer.h"

using namespace vornex;
using namespace vornex::testing;
using Then = FakeReply::Then;

namespace {

constexpr const char* kSlowName = "slow.test";
constexpr std::chrono::seconds kSlowness{4};

}  // namespace

/// Stands before the system's: one name takes long, as names do when no name server answers.
extern "C" int getaddrinfo(const char* node, const char* service, const addrinfo* hints, addrinfo** found) {
  if (node && std::string_view(node) == kSlowName) {
    std::this_thread::sleep_for(kSlowness);
    return EAI_AGAIN;
  }
  static auto* next = reinterpret_cast<decltype(&getaddrinfo)>(::dlsym(RTLD_NEXT, "getaddrinfo"));
  return next(node, service, hints, found);
}

namespace {

/// Sends one request to a server that always gives this reply.
ServerReply ask(const FakeReply& reply, const std::string& path = "/vornex/version") {
  FakeServer server([&](const FakeRequest&) { return reply; });
  ServerRequest request{server.url(path), "u", "p", "GET", std::nullopt};
  request.timeLimit = std::chrono::milliseconds(300);
  request.answerLimit = 1000;
  return sendServerRequest(request);
}

std::int64_t codeOf(const ServerReply& reply) {
  return reply.error ? reply.error->code() : 0;
}

/// Posts of any name while it lives, with the object's text.
struct Posts {
  Posts() {
    token = NotificationCenter::defaultCenter().addObserver("", [this](const Notification& notification) {
      auto object = std::any_cast<std::string>(&notification.object);
      names.push_back(notification.name + (object ? " " + *object : ""));
    });
  }
  ~Posts() { NotificationCenter::defaultCenter().removeObserver(token); }

  NotificationCenter::Token token;
  std::vector<std::string> names;
};

/// A status as the server puts it into its answers.
FakeReply statusReply(int code) {
  return FakeReply::json(
      R"({"Status": {"code": )" + std::to_string(code) + R"(, "msg": "m", "domain": "D"}})", 400);
}

}  // namespace

TEST(Requests, CarryBodyCredentialsAndIdentityOverOneConnection) {
  ::setenv("http_proxy", "http://127.0.0.1:1", 1);  // must not come between
  FakeServer server([](const FakeRequest&) { return FakeReply::json(R"({"items": [1]})"); });
  std::string url = server.url("/vornex/libraries/db/assets/search");
  Value params = Dictionary{{"page", 1}, {"query", "name == \"ü\""}};
  TQErrorPtr error;
  Value response = TQVornexUtil::syncRequestURL(url, "user", "geheim", "POST", params, &error);
  EXPECT_FALSE(error);
  EXPECT_EQ(response, Value(Dictionary{{"items", Array{1}}}));
  TQVornexUtil::syncRequestURL(url, "user", "geheim", "POST", Dictionary{}, &error);
  TQVornexUtil::syncRequestURL(url, "user", "geheim", "GET", std::nullopt, &error);
  TQVornexUtil::syncRequestURL(url, "user", "geheim", "POST", Value(), &error);

  std::vector<FakeRequest> requests = server.requests();
  ASSERT_EQ(requests.size(), 4u);
  FakeRequest first = requests[0];
  EXPECT_EQ(first.method + " " + first.target, "POST /vornex/libraries/db/assets/search");
  EXPECT_EQ(first.body, writeJson(params, JsonStyle::pretty));
  EXPECT_EQ(first.headers["content-type"], "application/json");
  EXPECT_EQ(first.headers["authorization"], "Basic " + base64("user:geheim"));
  EXPECT_EQ(first.headers["x-vornex-client"], "Mac");
  EXPECT_EQ(first.headers["x-vornex-device"], TQVornexUtil::systemUUID().value_or("no identity"));
  EXPECT_EQ(requests[1].body, writeJson(Dictionary{}, JsonStyle::pretty));
  EXPECT_EQ(requests[2].method, "GET");
  for (std::size_t i : {2u, 3u}) {
    EXPECT_EQ(requests[i].body, "");
    EXPECT_FALSE(requests[i].headers.contains("content-type"));
  }
  EXPECT_EQ(server.connectionCount(), 1u);
}

TEST(Requests, ServerFailuresKeepTheirCode) {
  ServerReply reply = ask(statusReply(27), "/vornex/libraries/my%20db/projects");
  ASSERT_TRUE(reply.error);
  EXPECT_EQ(reply.error->code(), 27);
  EXPECT_EQ(reply.error->domain(), "D");
  EXPECT_EQ(reply.error->message(), "m");
  EXPECT_EQ(*reply.error->userInfo().find("dbname"), Value("my db"));
  EXPECT_FALSE(ask(statusReply(27), "/vornex/libraries?type=0").error->userInfo().contains("dbname"));

  EXPECT_EQ(codeOf(ask(FakeReply::json(R"({"Status": {"code": 8}})"))), 8);
  EXPECT_EQ(codeOf(ask(FakeReply::json(R"([{"Status": {"code": 0}}, {"Status": {"code": "8"}}])"))), 8);
  EXPECT_EQ(codeOf(ask(FakeReply::json(R"({"Status": {"code": 0}})"))), 0);
  EXPECT_EQ(codeOf(ask(FakeReply::json(R"({"Status": {"code": 0}})", 500))), 1);
  EXPECT_EQ(codeOf(ask(FakeReply::json("<html>", 401, "text/html"))), 26);
  EXPECT_EQ(codeOf(ask(FakeReply::json("{}", 403))), 4);
  reply = ask(FakeReply::json("", 404));
  EXPECT_EQ(codeOf(reply), 8);
  EXPECT_EQ(reply.error->message(), LocalizedString("request.error.status"));
  EXPECT_EQ(*reply.error->userInfo().find(kLocalizedFailureReasonKey), Value("HTTP 404"));
  EXPECT_TRUE(reply.error->description().ends_with(" (HTTP 404)"));
  EXPECT_EQ(codeOf(ask(FakeReply::json("{", 503))), 1);
}

TEST(Requests, AnswersThatReportOnItemsComeBesideTheirError) {
  ServerReply reply = ask(FakeReply::json(R"({"Status": {"code": 6}, "items": [{"_id": "a"}]})", 400));
  EXPECT_EQ(codeOf(reply), 6);
  EXPECT_TRUE(reply.response.find("items"));
  EXPECT_TRUE(ask(statusReply(6)).response.isNull());
}

TEST(Requests, BrokenServersGiveAnErrorInTime) {
  auto started = std::chrono::steady_clock::now();
  std::string head = "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: 50\r\n\r\n";
  EXPECT_EQ(codeOf(ask({"", Then::hang})), 31);
  EXPECT_EQ(codeOf(ask({head + "{\"items\"", Then::hang})), 31);
  EXPECT_EQ(codeOf(ask({head + "{\"items\"", Then::close})), 31);
  EXPECT_EQ(codeOf(ask({"", Then::close})), 31);
  EXPECT_EQ(codeOf(ask({"", Then::reset})), 31);
  EXPECT_EQ(codeOf(ask({head, Then::reset})), 31);
  EXPECT_EQ(codeOf(ask({"SSH-2.0-nothing for you\r\n", Then::close})), 31);
  EXPECT_EQ(codeOf(ask(FakeReply::json("\"" + std::string(2000, 'x') + "\""))), 7);
  EXPECT_EQ(codeOf(ask(FakeReply::json("{}", 200, "text/plain"))), 1);
  EXPECT_EQ(codeOf(ask(FakeReply::json("{\"items\": [", 200))), 1);
  EXPECT_EQ(codeOf(ask(FakeReply::json("", 200))), 1);
  FakeReply redirect{"HTTP/1.1 302 Found\r\nLocation: /vornex/elsewhere\r\nContent-Length: 0\r\n\r\n"};
  EXPECT_EQ(codeOf(ask(redirect)), 1);
  FakeReply empty{"HTTP/1.1 204 No Content\r\n\r\n"};
  EXPECT_EQ(codeOf(ask(empty)), 0);
  EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(5));
}

TEST(Requests, NothingIsSentForUnusableArguments) {
  FakeServer server([](const FakeRequest&) { return FakeReply::json("{}"); });
  auto send = [](const std::string& url, const std::string& method) {
    return codeOf(sendServerRequest({url, "u", "p", method, std::nullopt}));
  };
  EXPECT_EQ(send("file:///etc/passwd", "GET"), 10001);
  EXPECT_EQ(send("", "GET"), 10001);
  EXPECT_EQ(send(server.url("/a\r\nX: y"), "GET"), 10001);
  EXPECT_EQ(send(server.url("/a"), "GET / HTTP/1.1\r\nX: y\r\n\r\nGET"), 10001);
  EXPECT_EQ(send(server.url("/a"), "HEAD"), 10001);

  int calls = 0;
  auto completion = [&](const Value& response, const TQErrorPtr& error) {
    ++calls;
    EXPECT_TRUE(response.isNull());
    EXPECT_EQ(error->code(), 10000);
    EXPECT_EQ(error->message(), LocalizedString("request.error.param.nil"));
  };
  TQVornexUtil::requestURL(server.url("/a"), "u", std::nullopt, "GET", std::nullopt, completion);
  EXPECT_EQ(calls, 1) << "called at once";
  TQErrorPtr untouched = TQVornexUtil::errorWithCode(7, "old");
  TQErrorPtr error = untouched;
  EXPECT_TRUE(TQVornexUtil::syncRequestURL(server.url("/a"), "u", std::nullopt, "GET", std::nullopt, &error)
                  .isNull());
  EXPECT_EQ(error, untouched);
  EXPECT_TRUE(server.requests().empty());
}

TEST(Requests, AsynchronousOnesLogCompleteAndAnnounceInThisOrderOnTheMainQueue) {
  FakeServer server([](const FakeRequest& request) {
    return request.target.ends_with("projects") ? statusReply(38) : FakeReply::json("{\"a\": 1}");
  });
  std::vector<std::string> events;
  setLogSink([&](LogLevel, const std::string& line) { events.push_back(line); });
  auto observer = NotificationCenter::defaultCenter().addObserver(
      "", [&](const Notification& notification) { events.push_back(notification.name); });
  auto mainThread = std::this_thread::get_id();
  auto send = [&](const std::string& path) {
    TQVornexUtil::requestURL(server.url(path), "u", "p", "GET", std::nullopt,
                             [&](Value response, TQErrorPtr error) {
                               EXPECT_EQ(std::this_thread::get_id(), mainThread);
                               events.push_back(error ? "failed" : "answered " + writeJson(response));
                               MainQueue::shared().stop();
                               if (error) throw std::runtime_error("no matter");
                             });
    MainQueue::shared().run();
  };
  send("/vornex/libraries/db/projects");
  send("/vornex/version");
  setLogSink(nullptr);
  NotificationCenter::defaultCenter().removeObserver(observer);
  EXPECT_EQ(events,
            (std::vector<std::string>{
                "Vornex Error:D 38: m", "failed", "a task of the completion of a request threw: no matter",
                "sendNotificationWithError:D 38: m", "다른 장비에서 로그인... NOTI!!!!!!",
                "TQNetworkLibraryAlreadyLoginNotification", "answered {\"a\":1}"}));
}

TEST(Requests, SynchronousOnesAnnounceOnlyWhatConcernsTheSession) {
  std::atomic<int> code = 0;
  FakeServer server([&](const FakeRequest&) { return statusReply(code); });
  Posts posts;
  auto send = [&](int status, const std::string& path, bool wantsError = true) {
    code = status;
    TQErrorPtr error;
    TQVornexUtil::syncRequestURL(server.url(path), "u", "p", "GET", std::nullopt,
                                 wantsError ? &error : nullptr);
    EXPECT_EQ(error != nullptr, wantsError);
  };
  for (int silent : {2, 4, 8, 26, 27, 35}) send(silent, "/vornex/libraries/db/projects");
  for (const char* login : {"/vornex/login", "/vornex/login/check", "/vornex/libraries/mylogindb"})
    send(31, login);
  send(31, "/vornex/libraries/db/projects", false);
  EXPECT_TRUE(posts.names.empty());
  for (int loud : {31, 38, 39, 40}) send(loud, "/vornex/libraries/db/projects?login=1");
  EXPECT_EQ(posts.names,
            (std::vector<std::string>{
                "TQLibraryCannotConnectToHostNotification db", "TQNetworkLibraryAlreadyLoginNotification db",
                "TQNetwokLibraryExceedSessionCountNotification db", "TQClientNeedUpdateNotification db"}));
}

TEST(Requests, AsynchronousLoginsAnnounceNothing) {
  FakeServer server([](const FakeRequest& request) {
    return statusReply(std::stoi(request.target.substr(request.target.rfind('/') + 1)));
  });
  Posts posts;
  for (int code : {31, 39, 40}) {
    std::int64_t received = 0;
    TQVornexUtil::requestURL(server.url("/vornex/login/" + std::to_string(code)), "u", "p", "POST",
                             Dictionary(), [&](const Value&, const TQErrorPtr& error) {
                               received = error->code();
                               MainQueue::shared().stop();
                             });
    MainQueue::shared().run();
    EXPECT_EQ(received, code);
  }
  EXPECT_TRUE(posts.names.empty());
}

TEST(Requests, AnObserverThatThrowsHarmsNeitherTheRequestNorOtherObservers) {
  FakeServer server([](const FakeRequest&) { return statusReply(38); });
  auto thrower = NotificationCenter::defaultCenter().addObserver(
      "", [](const Notification&) { throw std::runtime_error("no matter"); });
  Posts posts;
  TQErrorPtr error;
  TQVornexUtil::syncRequestURL(server.url("/vornex/version"), "u", "p", "GET", std::nullopt, &error);
  NotificationCenter::defaultCenter().removeObserver(thrower);
  ASSERT_TRUE(error);
  EXPECT_EQ(posts.names.size(), 1u);
}

TEST(Requests, ANameThatDoesNotResolveHoldsUpNobody) {
  FakeServer good([](const FakeRequest&) { return FakeReply::json("{}"); });
  auto started = std::chrono::steady_clock::now();
  ServerRequest unknown{std::string("http://") + kSlowName + "/a", "u", "p", "GET", std::nullopt};
  unknown.timeLimit = std::chrono::milliseconds(300);
  std::promise<std::int64_t> late, answered;
  sendServerRequest(unknown, [&](const ServerReply& reply) { late.set_value(codeOf(reply)); });
  EXPECT_EQ(codeOf(sendServerRequest(unknown)), 31);
  EXPECT_EQ(late.get_future().get(), 31);
  sendServerRequest({good.url("/b"), "u", "p", "GET", std::nullopt},
                    [&](const ServerReply& reply) { answered.set_value(codeOf(reply)); });
  EXPECT_EQ(answered.get_future().get(), 0);
  EXPECT_LT(std::chrono::steady_clock::now() - started, kSlowness - std::chrono::seconds(1));
}

TEST(Requests, AHangingServerHoldsUpNeitherOthersNorTheProcess) {
  FakeServer hanging([](const FakeRequest&) { return FakeReply{"", Then::hang}; });
  FakeServer good([](const FakeRequest& request) { return FakeReply::json(request.body); });
  std::mutex mutex;
  std::condition_variable changed;
  std::vector<std::int64_t> codes;
  auto note = [&](const ServerReply& reply) {
    std::lock_guard lock(mutex);
    codes.push_back(codeOf(reply));
    changed.notify_all();
  };
  ServerRequest request{hanging.url("/a"), "u", "p", "GET", std::nullopt};
  request.timeLimit = std::chrono::milliseconds(1000);
  constexpr int kHanging = 100, kGood = 50;
  auto started = std::chrono::steady_clock::now();
  for (int i = 0; i < kHanging; ++i) sendServerRequest(request, note);
  for (int i = 0; i < kGood; ++i) sendServerRequest({good.url("/b"), "u", "p", "POST", "{\"n\": 1}"}, note);
  std::unique_lock lock(mutex);
  ASSERT_TRUE(
      changed.wait_for(lock, std::chrono::seconds(10), [&] { return codes.size() == kHanging + kGood; }));
  EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(8)) << "waiting has an end";
  EXPECT_EQ(std::count(codes.begin(), codes.begin() + kGood, 0), kGood) << "answers come before time-outs";
  auto neverSent = std::count(codes.begin(), codes.end(), 7);
  EXPECT_GT(neverSent, 0) << "what was never sent says nothing of the server";
  EXPECT_EQ(std::count(codes.begin(), codes.end(), 31) + neverSent, kHanging);
  EXPECT_LE(good.connectionCount(), 16u);
}

TEST(Requests, ManyThreadsShareTheHandles) {
  FakeServer server([](const FakeRequest& request) { return FakeReply::json(request.body); });
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 8; ++thread) {
    threads.emplace_back([&server, thread] {
      for (int i = 0; i < 25; ++i) {
        Value params = Dictionary{{"n", thread * 100 + i}};
        TQErrorPtr error;
        EXPECT_EQ(TQVornexUtil::syncRequestURL(server.url("/echo"), "u", "p", "POST", params, &error),
                  params);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_LE(server.connectionCount(), 8u);
}
