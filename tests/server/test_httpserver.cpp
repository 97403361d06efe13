#include <condition_variable>
#include <future>
#include <mutex>
#include <thread>

#include "server/RawClient.h"
#include "server/ServerFixture.h"
#include "server/http/HttpServer.h"

namespace vornex::server::testing {
namespace {

using namespace std::chrono_literals;

/// Searches wait at the gate while it is closed.
class Gate {
 public:
  void close() {
    std::lock_guard lock(mutex_);
    closed_ = true;
  }
  void open() {
    std::lock_guard lock(mutex_);
    closed_ = false;
    changed_.notify_all();
  }
  void pass() {
    std::unique_lock lock(mutex_);
    ++waiting_;
    changed_.notify_all();
    changed_.wait(lock, [this] { return !closed_; });
    --waiting_;
  }
  void awaitArrivals(int count) {
    std::unique_lock lock(mutex_);
    ASSERT_TRUE(changed_.wait_for(lock, 10s, [&] { return waiting_ >= count; }));
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool closed_ = false;
  int waiting_ = 0;
};

class HttpServerTest : public RouterTest {
 protected:
  void SetUp() override {
    RouterTest::SetUp();
    onSearch_ = [this] { gate_.pass(); };
  }
  void TearDown() override {
    gate_.open();
    server_.reset();
  }

  void launch() {
    server_ = std::make_unique<HttpServer>(*router_, "127.0.0.1", limits_);
    auto port = server_->launch(0);
    ASSERT_TRUE(port) << port.error().message;
    port_ = *port;
  }

  RawClient connect() const { return RawClient::tcp(port_); }

  std::string request(const std::string& method, const std::string& path, const std::string& body = "",
                      const std::string& more = "") const {
    std::string text = method + " /vornex/" + path +
                       " HTTP/1.1\r\nHost: h\r\nAuthorization: " + authorization_ + "\r\n" + more;
    if (method == "POST")
      text += "Content-Type: application/json\r\nContent-Length: " + std::to_string(body.size()) + "\r\n";
    return text + "\r\n" + body;
  }
  std::string search() const { return request("POST", library("/assets/search"), "{}"); }

  Gate gate_;
  std::unique_ptr<HttpServer> server_;
  std::uint16_t port_ = 0;
};

TEST_F(HttpServerTest, AnswersRequestAfterRequestOnAConnection) {
  launch();
  RawClient client = connect();
  ASSERT_TRUE(client.send(request("GET", "version") + request("GET", "nothing") + search()));
  EXPECT_EQ(client.readReply().body, std::string("{\"version\":\"") + serverVersion() + "\"}");
  EXPECT_EQ(client.readReply().status, 404);
  EXPECT_EQ(client.readReply().status, 200);
  ASSERT_TRUE(client.send(request("HEAD", "version")));
  std::string head = client.readUntil("\r\n\r\n");
  EXPECT_NE(head.find("200 OK"), std::string::npos);
  ASSERT_TRUE(client.send(request("POST", library("/assets/search"), "{}", "Expect: 100-continue\r\n")));
  EXPECT_EQ(client.readReply().status, 100);
  EXPECT_EQ(client.readReply().status, 200);
  ASSERT_TRUE(client.send(request("GET", "version", "", "Connection: close\r\n")));
  EXPECT_EQ(client.readReply().status, 200);
  EXPECT_TRUE(client.atEnd());
}

TEST_F(HttpServerTest, SurvivesMalformedRequests) {
  limits_.headerBytes = 4096;
  limits_.bodyBytes = 1000;
  launch();
  struct {
    std::string text;
    int status;
  } cases[] = {
      {"nonsense\r\n\r\n", 400},
      {"GET /vornex/version HTTP/9.9\r\n\r\n", 400},
      {"GET /vornex/version HTTP/1.1\r\nContent-Length: -5\r\n\r\n", 400},
      {"GET /vornex/version HTTP/1.1\r\nbad header\r\n\r\n", 400},
      {std::string("\x16\x03\x01\x02\x00\x01\x00", 7) + "\r\n\r\n", 400},
      {"GET /vornex/version HTTP/1.1\r\nX: " + std::string(5000, 'x') + "\r\n\r\n", 431},
      {"GET /" + std::string(5000, 'x') + " HTTP/1.1\r\n\r\n", 431},
      {request("POST", library("/assets/create"), std::string(1001, ' ')), 413},
      {request("POST", library("/assets/create"), "", "Transfer-Encoding: chunked\r\n"), 400},
      {"POST /vornex/" + library("/assets/create") + " HTTP/1.1\r\nAuthorization: " + authorization_ +
           "\r\nContent-Type: application/json; charset=utf-8\r\nTransfer-Encoding: chunked\r\n\r\n800\r\n" +
           std::string(2048, ' ') + "\r\n0\r\n\r\n",
       413},
      {"POST /vornex/login HTTP/1.1\r\nContent-Length: 100000\r\n\r\n", 413},
      {"POST /vornex/login HTTP/1.1\r\nContent-Length: 900\r\n\r\n", 415},
      {"GET http://h/vornex/version HTTP/1.1\r\nAuthorization: " + authorization_ + "\r\n\r\n", 400},
  };
  for (const auto& [text, status] : cases) {
    RawClient client = connect();
    ASSERT_TRUE(client.send(text));
    RawClient::Reply reply = client.readReply();
    EXPECT_EQ(reply.status, status) << text.substr(0, 60);
    EXPECT_NE(reply.body.find("\"Status\""), std::string::npos) << text.substr(0, 60);
  }
  for (const char* cut : {"", "GET", "GET /vornex/version HTTP/1.1\r\n"}) {
    RawClient client = connect();
    ASSERT_TRUE(client.send(cut));
    client.finishSending();
    EXPECT_TRUE(client.atEnd()) << cut;
  }
  RawClient client = connect();
  ASSERT_TRUE(client.send(request("GET", "version")));
  EXPECT_EQ(client.readReply().status, 200);
}

TEST_F(HttpServerTest, DoesNotWaitForSlowClients) {
  limits_.idle = 300ms;
  limits_.header = 300ms;
  limits_.body = 300ms;
  launch();
  RawClient silent = connect();
  RawClient slowHeader = connect();
  RawClient slowBody = connect();
  ASSERT_TRUE(slowHeader.send("GET /vornex/vers"));
  std::string complete = request("POST", library("/assets/search"), "{\"page\": 0}");
  ASSERT_TRUE(slowBody.send(complete.substr(0, complete.size() - 3)));
  EXPECT_TRUE(silent.atEnd());
  EXPECT_EQ(slowHeader.readReply().status, 408);
  EXPECT_EQ(slowBody.readReply().status, 408);
}

TEST_F(HttpServerTest, DoesNotWaitForClientsThatNeverPause) {
  limits_.header = 300ms;
  launch();
  auto keepsOn = [](RawClient client, const std::string& piece, std::chrono::milliseconds pause) {
    auto started = std::chrono::steady_clock::now();
    while (client.send(piece) && std::chrono::steady_clock::now() - started < 10s)
      std::this_thread::sleep_for(pause);
    return std::chrono::steady_clock::now() - started;
  };
  RawClient dripping = connect();
  ASSERT_TRUE(dripping.send("GET /vornex/version HTTP/1.1\r\nX: "));
  authorization_ = "Basic none";
  RawClient streaming = connect();
  ASSERT_TRUE(
      streaming.send("POST /vornex/login HTTP/1.1\r\nContent-Type: application/json\r\n"
                     "Content-Length: 60000000000\r\n\r\n"));
  auto drip = std::async(std::launch::async, keepsOn, std::move(dripping), "x", 1ms);
  EXPECT_LT(keepsOn(std::move(streaming), std::string(1 << 16, 'x'), 0ms), 8s) << "after its refusal";
  EXPECT_LT(drip.get(), 8s);
}

TEST_F(HttpServerTest, GivesUpOnClientsThatDoNotRead) {
  limits_.stall = 300ms;
  writePackageFile("Media/Master/big.mov", std::string(64 << 20, 'x'));
  launch();
  RawClient client = connect();
  ASSERT_TRUE(client.send(request("GET", library("/master/big.mov"))));
  std::this_thread::sleep_for(1500ms);
  (void)client.readUntil("\r\n\r\n");
  EXPECT_LT(client.readBytes(64 << 20).size(), std::size_t{64} << 20);
}

TEST_F(HttpServerTest, SendsFilesWholeAndInParts) {
  std::string content;
  for (int i = 0; content.size() < (std::size_t{5} << 20); ++i) content += std::to_string(i) + ",";
  writePackageFile("Media/Master/big.mov", content);
  writePackageFile("Media/Master/empty.mov", "");
  launch();
  RawClient client = connect();
  ASSERT_TRUE(client.send(request("GET", library("/master/big.mov")) +
                          request("GET", library("/master/big.mov"), "", "Range: bytes=1000-2000999\r\n") +
                          request("HEAD", library("/master/big.mov"))));
  EXPECT_TRUE(client.readReply().body == content);
  RawClient::Reply part = client.readReply();
  EXPECT_EQ(part.status, 206);
  EXPECT_TRUE(part.body == content.substr(1000, 2000000));
  EXPECT_NE(client.readUntil("\r\n\r\n").find("Content-Length: " + std::to_string(content.size())),
            std::string::npos);
  ASSERT_TRUE(client.send(request("GET", library("/master/empty.mov")) + request("GET", "version")));
  EXPECT_EQ(client.readReply().body, "");
  EXPECT_EQ(client.readReply().status, 200);
}

TEST_F(HttpServerTest, RefusesMoreThanItCanBear) {
  limits_.connections = 3;
  limits_.requestsInFlight = 1;
  launch();
  gate_.close();
  RawClient first = connect();
  RawClient second = connect();
  RawClient third = connect();
  ASSERT_TRUE(first.send(search()));
  gate_.awaitArrivals(1);
  ASSERT_TRUE(second.send(search()));
  RawClient::Reply busy = second.readReply();
  EXPECT_EQ(busy.status, 503);
  EXPECT_NE(busy.body.find("\"code\":7"), std::string::npos);
  ASSERT_TRUE(third.send(request("GET", "nothing")));
  EXPECT_EQ(third.readReply().status, 404) << "a refusal needs no worker";
  EXPECT_EQ(connect().readReply().status, 503);
  gate_.open();
  EXPECT_EQ(first.readReply().status, 200);
  ASSERT_TRUE(second.send(search()));
  EXPECT_EQ(second.readReply().status, 200);
}

TEST_F(HttpServerTest, SlowSearchesHoldNothingElseUp) {
  limits_.workers = 1;
  writePackageFile("Media/Master/drawing.svg", "<svg/>");
  launch();
  gate_.close();
  RawClient searching = connect();
  RawClient queued = connect();
  ASSERT_TRUE(searching.send(search()));
  gate_.awaitArrivals(1);
  ASSERT_TRUE(queued.send(search()));
  RawClient client = connect();
  for (const std::string& other :
       {request("GET", "version"), request("GET", library("/projects")),
        request("POST", library("/assets/create"), R"({"items": [{"name": "x"}]})"),
        request("GET", library("/master/drawing.svg"))}) {
    ASSERT_TRUE(client.send(other));
    RawClient::Reply reply = client.readReply();
    EXPECT_EQ(reply.status, 200) << other;
    for (const char* header :
         {"X-Content-Type-Options: nosniff", "Content-Security-Policy: default-src 'none'"})
      EXPECT_NE(reply.head.find(header), std::string::npos) << "what a file holds must not run in a browser";
  }
  gate_.open();
  EXPECT_EQ(searching.readReply().status, 200);
  EXPECT_EQ(queued.readReply().status, 200);
}

TEST_F(HttpServerTest, AnswersForAWorkerThatTakesTooLong) {
  limits_.handling = 200ms;
  launch();
  gate_.close();
  RawClient client = connect();
  ASSERT_TRUE(client.send(search()));
  RawClient::Reply reply = client.readReply();
  EXPECT_EQ(reply.status, 504);
  EXPECT_NE(reply.body.find("\"code\":9"), std::string::npos);
  gate_.open();
  ASSERT_TRUE(client.send(search()));
  EXPECT_EQ(client.readReply().status, 200);
}

TEST_F(HttpServerTest, HasOnePortAndTellsWhenItIsTaken) {
  launch();
  EXPECT_EQ(server_->launch(0).value(), port_);
  EXPECT_EQ(server_->launch(port_).value(), port_);
  auto elsewhere = server_->launch(static_cast<std::uint16_t>(port_ + 1));
  ASSERT_FALSE(elsewhere);
  EXPECT_EQ(statusCodeOf(elsewhere.error()), StatusCode::portInUse);
  HttpServer other(*router_, "127.0.0.1", limits_);
  auto taken = other.launch(port_);
  ASSERT_FALSE(taken);
  EXPECT_EQ(statusCodeOf(taken.error()), StatusCode::portInUse);
  EXPECT_EQ(other.port(), 0);
  server_->stop();
  EXPECT_EQ(server_->port(), 0);
  EXPECT_EQ(server_->launch(port_).value(), port_) << "the port is free again";
  RawClient client = connect();
  ASSERT_TRUE(client.send(request("GET", "version")));
  EXPECT_EQ(client.readReply().status, 200);
}

TEST_F(HttpServerTest, LetsRunningRequestsEndWhenItStops) {
  launch();
  RawClient idle = connect();
  ASSERT_TRUE(idle.send(request("GET", "version")));
  EXPECT_EQ(idle.readReply().status, 200);
  gate_.close();
  RawClient busy = connect();
  ASSERT_TRUE(busy.send(search()));
  gate_.awaitArrivals(1);
  std::thread stopping([this] { server_->stop(); });
  EXPECT_TRUE(idle.atEnd());
  gate_.open();
  EXPECT_EQ(busy.readReply().status, 200);
  EXPECT_TRUE(busy.atEnd());
  stopping.join();
}

TEST_F(HttpServerTest, ServesManyClientsAtOnce) {
  launch();
  std::atomic<int> succeeded = 0;
  std::vector<std::jthread> clients;
  for (int i = 0; i < 8; ++i) {
    clients.emplace_back([&] {
      RawClient client = connect();
      for (int n = 0; n < 50; ++n) {
        std::string create = request("POST", library("/assets/create"), R"({"items": [{"name": "x"}]})");
        if (client.send(create + search()) && client.readReply().status == 200 &&
            client.readReply().status == 200) {
          ++succeeded;
        }
      }
    });
  }
  clients.clear();
  EXPECT_EQ(succeeded, 400);
  EXPECT_EQ(service_->libraries().find(kDbName)->store->count().value(), 400);
}

}  // namespace
}  // namespace vornex::server::testing
