#include <gmock/gmock.h>
#include <sys/stat.h>

#include <atomic>
#include <future>
#include <thread>

#include "server/RawClient.h"
#include "server/ServerFixture.h"
#include "server/control/ControlProtocol.h"
#include "server/control/ControlServer.h"
#include "server/http/HttpServer.h"

using ::testing::ElementsAre;

namespace vornex::server::testing {
namespace {

using namespace std::chrono_literals;

class ControlTest : public ServerTest {
 protected:
  void SetUp() override {
    openService();
    router_ = std::make_unique<Router>(*service_, limits_);
    webServer_ = std::make_unique<HttpServer>(*router_, "127.0.0.1", limits_);
    protocol_ = std::make_unique<ControlProtocol>(*service_, *webServer_);
    server_ = std::make_unique<ControlServer>(*protocol_, [this] { ended_.set_value(); });
    auto started = server_->start();
    ASSERT_TRUE(started) << started.error().message;
    client_ = std::make_unique<RawClient>(RawClient::unixSocket(layout::controlSocket()));
  }

  static bool eventually(const std::function<bool()>& holds) {
    const auto end = std::chrono::steady_clock::now() + 10s;
    while (!holds() && std::chrono::steady_clock::now() < end) std::this_thread::sleep_for(5ms);
    return holds();
  }

  static Value readMessage(RawClient& client) { return parseJson(client.readUntil("\n")).value_or(Value()); }

  /// Sends a call and gives its answer; notifications before it are kept.
  Value call(const std::string& method, Dictionary params = {}) {
    Dictionary message{
        {"jsonrpc", "2.0"}, {"id", ++lastID_}, {"method", method}, {"params", std::move(params)}};
    if (!client_->send(writeJson(message) + "\n")) return {};
    while (true) {
      Value answer = readMessage(*client_);
      if (answer.isNull() || answer.find("id")) {
        EXPECT_EQ(answer.find("id") ? coerce::integer(answer.find("id")) : -1, lastID_);
        return answer;
      }
      notifications_.push_back(answer);
    }
  }
  Value result(const std::string& method, Dictionary params = {}) {
    Value answer = call(method, std::move(params));
    const Value* found = answer.find("result");
    EXPECT_TRUE(found) << writeJson(answer);
    return found ? *found : Value();
  }
  std::int64_t errorCode(const std::string& method, Dictionary params = {}) {
    Value answer = call(method, std::move(params));
    const Value* error = answer.find("error");
    return error ? coerce::integer(error->find("code")) : 0;
  }
  Value result(const std::string& method, const std::string& dbName) {
    return result(method, Dictionary{{"dbname", dbName}});
  }

  /// What is waiting, and what has been kept, as "method" or "method dbname state".
  std::vector<std::string> takeNotifications() {
    (void)call("getWebServerState");
    std::vector<std::string> texts;
    for (const Value& notification : std::exchange(notifications_, {})) {
      std::string text = coerce::string(notification.find("method")).value_or("");
      const Value* params = notification.find("params");
      if (params->find("dbname")) {
        text += " " + coerce::string(params->find("dbname")).value() + " " +
                std::to_string(coerce::integer(params->find("state")));
      }
      if (const Value* libraries = params->find("libraries")) {
        for (const Value& library : coerce::array(libraries))
          text += " " + coerce::string(library.find("dbname")).value();
      }
      texts.push_back(text);
    }
    return texts;
  }

  Limits limits_;
  std::unique_ptr<Router> router_;
  std::unique_ptr<HttpServer> webServer_;
  std::unique_ptr<ControlProtocol> protocol_;
  std::unique_ptr<ControlServer> server_;
  std::unique_ptr<RawClient> client_;
  std::promise<void> ended_;
  std::int64_t lastID_ = 0;
  std::vector<Value> notifications_;
};

TEST_F(ControlTest, LaunchesAndStopsTheWebServer) {
  Value registered = result("register", {{"device", "d"}, {"clienttype", "Mac"}, {"pid", 1}});
  EXPECT_EQ(coerce::string(registered.find("root")), layout::rootFolder());
  EXPECT_EQ(coerce::integer(registered.find("pid")), ::getpid());
  EXPECT_EQ(coerce::string(registered.find("version")), serverVersion());
  EXPECT_THAT(takeNotifications(), ElementsAre("vornexServiceLaunched"));

  EXPECT_EQ(result("getWebServerState"), Value(Dictionary{{"state", 0}, {"port", 0}}));
  std::int64_t port = coerce::integer(result("launchWebServer", {{"port", 0}}).find("port"));
  EXPECT_GT(port, 0);
  EXPECT_EQ(result("launchWebServer", {{"port", port}}), Value(Dictionary{{"port", port}}));
  EXPECT_EQ(errorCode("launchWebServer", {{"port", port == 65535 ? 1024 : port + 1}}), 10);
  EXPECT_EQ(result("getWebServerState"), Value(Dictionary{{"state", 1}, {"port", port}}));
  EXPECT_EQ(result("stopWebServer"), Value(Dictionary{}));
  EXPECT_EQ(result("getWebServerState"), Value(Dictionary{{"state", 0}, {"port", 0}}));

  HttpServer other(*router_, "127.0.0.1", limits_);
  std::int64_t taken = other.launch(0).value();
  EXPECT_EQ(errorCode("launchWebServer", {{"port", taken}}), 10);
  EXPECT_TRUE(takeNotifications().empty());
}

TEST_F(ControlTest, LoadsWhatItCanAndReportsTheRest) {
  writeListFile({record("good"), record("damaged"), record("missing"), record("../evil"),
                 Dictionary{{"dbname", "bare"}}});
  for (const char* dbName : {"good", "damaged"})
    ASSERT_TRUE(createDirectories(layout::databaseFolder(dbName)));
  (void)result("register");
  Value report = result("loadLibrary");
  EXPECT_EQ(coerce::integer(report.find("libraries")), 1);
  std::vector<std::pair<std::string, std::int64_t>> failures;
  for (const Value& failure : coerce::array(report.find("failures"))) {
    failures.emplace_back(coerce::string(failure.find("dbname")).value(),
                          coerce::integer(failure.find("code")));
  }
  EXPECT_THAT(failures, ElementsAre(std::pair("damaged", 2), std::pair("missing", 8)));
  EXPECT_FALSE(itemExists(layout::databaseFolder("missing"))) << "an empty database would hide the loss";
  EXPECT_THAT(takeNotifications(), ::testing::UnorderedElementsAre(
                                       "vornexServiceLaunched", "vornexLibraryDidChangeState good 1",
                                       "vornexLibraryDidChangeState damaged 2",
                                       "vornexLibraryDidChangeState missing 2", "vornexLibraryDidLoad"));
  EXPECT_EQ(result("getLibraryForDBName", "evil"), Value(Dictionary{{"library", Value()}}));
}

TEST_F(ControlTest, KeepsLibrariesInStepWithTheirList) {
  (void)result("register");
  (void)result("loadLibrary");
  (void)result("addLibrary", {{"library", record("one")}});
  (void)takeNotifications();
  EXPECT_TRUE(isDirectory(layout::databaseFolder("one")));
  (void)result("updateLibrary");
  EXPECT_FALSE(result("getLibraryForDBName", "one").find("library")->isNull()) << "added, but not yet listed";

  ASSERT_TRUE(createDirectories(layout::databaseFolder("two")));
  Dictionary renamed = record("one");
  renamed.set("name", "New name");
  writeListFile({renamed, record("two")});
  (void)result("updateLibrary");
  EXPECT_THAT(takeNotifications(),
              ElementsAre("vornexLibraryUpdated one", "vornexLibraryDidChangeState two 1"));
  Value one = result("getLibraryForDBName", "one");
  EXPECT_EQ(coerce::string(one.find("library")->find("name")), "New name");
  EXPECT_EQ(coerce::integer(one.find("library")->find("dbport")), 0) << "no web server";
  std::int64_t port = coerce::integer(result("launchWebServer", {{"port", 0}}).find("port"));
  EXPECT_EQ(coerce::integer(result("getLibraryForDBName", "one").find("library")->find("dbport")), port);

  (void)result("terminateLibraryForDBName", "one");
  EXPECT_EQ(coerce::integer(result("getLibraryForDBName", "one").find("library")->find("dbport")), 0);
  (void)result("launchLibraryForDBName", "one");
  EXPECT_EQ(coerce::integer(result("getLibraryForDBName", "one").find("library")->find("dbport")), port);
  (void)takeNotifications();
  writeListFile({record("two")});
  (void)result("updateLibrary");
  EXPECT_THAT(takeNotifications(),
              ElementsAre("vornexLibraryDidChangeState one 0", "vornexLibraryDeleted one"));
  EXPECT_TRUE(isDirectory(layout::databaseFolder("one"))) << "leaving the list does not remove the database";
  EXPECT_EQ(errorCode("launchLibraryForDBName", {{"dbname", "one"}}), 8);

  (void)result("shutdownDatabase");
  EXPECT_EQ(coerce::integer(result("getLibraryForDBName", "two").find("library")->find("dbport")), 0);

  ASSERT_TRUE(writeFileAtomically(layout::localLibraryPlist(), "garbage"));
  EXPECT_NE(errorCode("updateLibrary"), 0);
  EXPECT_FALSE(result("getLibraryForDBName", "two").find("library")->isNull());
}

TEST_F(ControlTest, RemovesADatabaseOnlyWhenNobodyUsesIt) {
  (void)result("addLibrary", {{"library", record("one")}});
  auto used = service_->libraries().find("one");
  std::atomic<bool> released = false;
  std::thread request([&] {
    std::this_thread::sleep_for(200ms);
    released = true;
    used.reset();
  });
  (void)result("removeLibraryWithDBName", "one");
  EXPECT_TRUE(released);
  request.join();
  EXPECT_TRUE(std::filesystem::is_empty(layout::databaseRoot()));
  EXPECT_EQ(result("getLibraryForDBName", "one"), Value(Dictionary{{"library", Value()}}));
  (void)result("removeLibraryWithDBName", "one");

  for (const char* name : {"..", "a/b", "", ".hidden", "a b", "a\nb"}) {
    EXPECT_EQ(errorCode("removeLibraryWithDBName", {{"dbname", name}}), 3) << name;
    EXPECT_EQ(errorCode("addLibrary", {{"library", record(name)}}), 3) << name;
  }
  Dictionary relative = record("relative");
  relative.set("packagefolder", "relative/path");
  EXPECT_EQ(errorCode("addLibrary", {{"library", relative}}), 3);
  EXPECT_EQ(errorCode("addLibrary", {{"library", record("damaged")}}), 2);
  EXPECT_EQ(result("getLibraryForDBName", "damaged"), Value(Dictionary{{"library", Value()}}));
}

TEST_F(ControlTest, CopiesADatabaseAndKeepsItClosedOnlyWhenAsked) {
  (void)result("addLibrary", {{"library", record("one")}});
  (void)takeNotifications();
  auto copy = [](const char* dbName, const std::string& folder, bool close) {
    return Dictionary{{"dbname", dbName}, {"folder", folder}, {"close", close}};
  };
  (void)result("snapshotDatabase", copy("one", "/copy", false));
  EXPECT_EQ(service_->libraries().find("one")->state, LibraryState::open);
  (void)result("snapshotDatabase", copy("one", "/copy", true));
  EXPECT_EQ(service_->libraries().find("one")->state, LibraryState::closed);
  (void)result("snapshotDatabase", copy("one", "/copy", true));
  EXPECT_EQ(service_->libraries().find("one")->state, LibraryState::closed);
  (void)result("loadLibrary");
  EXPECT_EQ(service_->libraries().find("one")->state, LibraryState::closed);
  (void)result("launchLibraryForDBName", "one");
  EXPECT_EQ(service_->libraries().find("one")->state, LibraryState::open);
  EXPECT_EQ(errorCode("snapshotDatabase", copy("damaged", "/copy", true)), 2);
  EXPECT_EQ(errorCode("snapshotDatabase", copy("..", "/copy", false)), 3);
  EXPECT_EQ(errorCode("snapshotDatabase", copy("one", "copy", false)), 3);
}

TEST_F(ControlTest, RemovesADatabaseOnlyWhenItsLastCopyHasEverything) {
  const Dictionary last{{"dbname", "one"}, {"folder", "/copy"}, {"close", true}};
  (void)result("addLibrary", {{"library", record("one")}});
  EXPECT_EQ(errorCode("retireDatabase", {{"dbname", "one"}}), 6);
  (void)result("snapshotDatabase", last);
  (void)result("launchLibraryForDBName", "one");  // another client, which may have written
  (void)result("terminateLibraryForDBName", "one");
  EXPECT_EQ(errorCode("retireDatabase", {{"dbname", "one"}}), 6);
  EXPECT_TRUE(isDirectory(layout::databaseFolder("one")));
  (void)result("snapshotDatabase", last);
  (void)result("retireDatabase", "one");
  EXPECT_FALSE(itemExists(layout::databaseFolder("one")));

  LibraryRegistry impatient([this](const std::string& folder, bool) { return openFake(folder); }, 50ms);
  ASSERT_TRUE(impatient.add(record("two"), true));
  ASSERT_TRUE(impatient.snapshot("two", "/copy", true));
  EXPECT_EQ(impatient.find("two")->state, LibraryState::closed);
  EXPECT_TRUE(eventually([&] { return impatient.find("two")->state == LibraryState::open; }));
}

TEST_F(ControlTest, OpensWhatAClientClosedForItsLastCopyWhenThatClientLeaves) {
  writeListFile({record("one")});
  ASSERT_TRUE(createDirectories(layout::databaseFolder("one")));
  (void)result("loadLibrary");
  const Dictionary call{{"id", 1},
                        {"method", "snapshotDatabase"},
                        {"params", Dictionary{{"dbname", "one"}, {"folder", "/copy"}, {"close", true}}}};
  auto state = [this] { return service_->libraries().find("one")->state; };
  {
    RawClient other = RawClient::unixSocket(layout::controlSocket());
    ASSERT_TRUE(other.send(writeJson(call) + "\n"));
    EXPECT_NE(other.readUntil("\n").find("result"), std::string::npos);
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(state(), LibraryState::closed);
  }
  EXPECT_TRUE(eventually([&] { return state() == LibraryState::open; }));
}

TEST_F(ControlTest, ReadsTheListWhileALibraryOfItIsCopied) {
  for (const char* dbName : {"one", "two", "three"})
    ASSERT_TRUE(createDirectories(layout::databaseFolder(dbName)));
  writeListFile({record("one"), record("two")});
  (void)result("loadLibrary");
  std::promise<void> gate;
  onSnapshot_ = [opened = gate.get_future().share()] { opened.wait(); };
  const Dictionary params{{"dbname", "one"}, {"folder", "/copy"}, {"close", true}};
  ASSERT_TRUE(
      client_->send(writeJson(Dictionary{{"method", "snapshotDatabase"}, {"params", params}}) + "\n"));
  ASSERT_TRUE(eventually([&] { return service_->libraries().find("one")->state == LibraryState::closed; }));
  writeListFile({record("two"), record("three")});
  for (int i = 0; i < 8; ++i) (void)result("updateLibrary");
  EXPECT_EQ(service_->libraries().find("three")->state, LibraryState::open);
  EXPECT_TRUE(service_->libraries().find("one"));
  gate.set_value();
  EXPECT_TRUE(eventually([&] { return !service_->libraries().find("one"); }));

  (void)result("addLibrary", {{"library", record("four")}});
  (void)result("terminateLibraryForDBName", "four");
  (void)result("terminateLibraryForDBName", "two");
  EXPECT_FALSE(service_->libraries().find("four")) << "the list never named it";
  EXPECT_TRUE(service_->libraries().find("two"));
}

TEST_F(ControlTest, OpensALibraryThatReturnsToTheListWhileItIsLetGo) {
  ASSERT_TRUE(createDirectories(layout::databaseFolder("one")));
  writeListFile({record("one")});
  (void)result("loadLibrary");
  LibraryRegistry& libraries = service_->libraries();
  auto used = libraries.find("one");
  writeListFile({});
  auto leaving = std::async(std::launch::async, [&] { return libraries.readList(); });
  ASSERT_TRUE(eventually([&] { return libraries.find("one")->state == LibraryState::closed; }));
  writeListFile({record("one")});
  (void)result("updateLibrary");
  used.reset();
  EXPECT_TRUE(leaving.get());
  EXPECT_TRUE(eventually([&] { return libraries.find("one") && libraries.find("one")->store; }));
}

TEST_F(ControlTest, ReplacesADatabaseByASoundCopyOnly) {
  using Opener = std::function<Result<std::unique_ptr<AssetStore>>(const std::string&, bool)>;
  const std::string working = layout::databaseFolder("one");
  const std::string staged = layout::stagedDatabaseFolder("one");
  auto write = [](const std::string& folder, const char* content) {
    ASSERT_TRUE(createDirectories(folder));
    ASSERT_TRUE(writeFileAtomically(folder + "/content", content));
  };
  auto content = [&](const std::string& folder) { return readFile(folder + "/content").value_or(""); };
  bool failsInPlace = false;
  Opener opener = [&](const std::string& folder, bool) -> Result<std::unique_ptr<AssetStore>> {
    const bool isBad =
        content(folder) == "bad" || (failsInPlace && folder == working && content(folder) == "new");
    if (isBad) return serverFailure(StatusCode::databaseFailed, "The database is damaged.");
    return openFake(folder);
  };
  LibraryRegistry libraries(opener);
  write(working, "old");
  EXPECT_FALSE(libraries.replace("one")) << "an unknown library";
  ASSERT_TRUE(libraries.add(record("one"), false));
  for (const bool inPlace : {false, true}) {
    failsInPlace = inPlace;
    write(staged, inPlace ? "new" : "bad");
    EXPECT_FALSE(libraries.replace("one"));
    EXPECT_EQ(content(working), "old");
    EXPECT_EQ(libraries.find("one")->state, LibraryState::open);
  }
  failsInPlace = false;
  write(staged, "new");
  ASSERT_TRUE(libraries.replace("one"));
  EXPECT_EQ(content(working), "new");
  EXPECT_EQ(content(staged), "old");
  EXPECT_EQ(libraries.find("one")->state, LibraryState::open);
}

TEST_F(ControlTest, TellsThePasswordAndTheSessions) {
  std::string password = coerce::string(result("getLocalAccountPassword").find("password")).value();
  EXPECT_GE(password.size(), 32u);
  EXPECT_TRUE(service_->users().authenticate(kTQLocalUserID, md5Hex(password)));
  User ann{"ann", "Ann", 0, "", {}};
  ASSERT_TRUE(service_->sessions().login(ann, {"h", "d", "Mac"}, false));
  Array sessions = coerce::array(result("getUserSessions").find("sessions"));
  ASSERT_EQ(sessions.size(), 1u);
  EXPECT_EQ(coerce::string(sessions[0].find("clienttype")), "Mac");
  ASSERT_TRUE(createDirectories(layout::preferenceFolder()));
  ASSERT_TRUE(writeFileAtomically(layout::userPlist(), "garbage"));
  EXPECT_NE(errorCode("updateUsers"), 0);
  EXPECT_EQ(service_->sessions().list().size(), 1u);
  ASSERT_TRUE(writePropertyListFile(layout::userPlist(), Dictionary{{"users", Array{}}}));
  (void)result("updateUsers");
  EXPECT_TRUE(service_->sessions().list().empty()) << "nobody is left who may have one";

  ASSERT_TRUE(writeFileAtomically(layout::localAccountFile(), "garbage"));
  Users again;
  ASSERT_TRUE(again.open());
  EXPECT_NE(again.localPassword(), password);
  EXPECT_EQ(readFile(layout::localAccountFile() + ".damaged").value_or(""), "garbage");
}

TEST_F(ControlTest, AnswersMalformedMessages) {
  const std::pair<std::string, int> cases[] = {
      {"nonsense", -32700},
      {"{\"id\": 1, \"method\": \"terminate\"", -32700},
      {std::string(100000, '['), -32700},
      {"\"\xff\"", -32700},
      {"[]", -32600},
      {"7", -32600},
      {R"({"jsonrpc": "2.0", "id": 1})", -32600},
      {R"({"jsonrpc": "2.0", "id": 1, "method": 5})", -32600},
      {R"({"jsonrpc": "2.0", "id": 1, "method": "format"})", -32601},
      {R"({"jsonrpc": "2.0", "id": 1, "method": "terminate", "params": [1]})", -32602},
      {R"({"jsonrpc": "2.0", "id": 1, "method": "launchWebServer", "params": {"port": 70000}})", -32602},
      {R"({"jsonrpc": "2.0", "id": 1, "method": "addLibrary", "params": {"library": 1}})", -32602},
      {R"({"jsonrpc": "2.0", "id": 1, "method": "getLibraryForDBName", "params": {"dbname": 1}})", -32602},
  };
  for (const auto& [message, code] : cases) {
    ASSERT_TRUE(client_->send(message + "\n"));
    Value answer = readMessage(*client_);
    ASSERT_TRUE(answer.find("error")) << message.substr(0, 80);
    EXPECT_EQ(coerce::integer(answer.find("error")->find("code")), code) << message.substr(0, 80);
    EXPECT_TRUE(answer.find("error")->find("data")->find("domain"));
  }
  // Answers and notifications take no answer; empty lines are nothing.
  ASSERT_TRUE(client_->send("\n{\"id\": 1, \"result\": {}}\n{\"method\": \"getWebServerState\"}\n"));
  (void)result("getWebServerState");

  (void)client_->send(std::string(ControlServer::kLineLimit + 1, 'x'));
  EXPECT_EQ(client_->readUntil("\n"), "");
  client_ = std::make_unique<RawClient>(RawClient::unixSocket(layout::controlSocket()));
  (void)result("getWebServerState");
}

TEST_F(ControlTest, AnswersEverythingThatAClientSentBeforeItLeft) {
  std::string calls;
  for (int i = 0; i < 50; ++i)
    calls += writeJson(Dictionary{{"id", i}, {"method", "getUserSessions"}}) + "\n";
  ASSERT_TRUE(client_->send(calls));
  client_->finishSending();
  int answers = 0;
  while (!client_->readUntil("\n").empty()) ++answers;
  EXPECT_EQ(answers, 50);
}

TEST_F(ControlTest, DropsAClientThatDoesNotReadAndGoesOnWithTheOthers) {
  server_->stop();
  server_ = std::make_unique<ControlServer>(
      *protocol_, [] {}, ControlLimits{256, 1 << 20});
  ASSERT_TRUE(server_->start());
  client_ = std::make_unique<RawClient>(RawClient::unixSocket(layout::controlSocket()));
  (void)result("register");
  std::vector<RawClient> deaf;
  for (int i = 0; i < 3; ++i) {
    deaf.push_back(RawClient::unixSocket(layout::controlSocket()));
    ASSERT_TRUE(deaf.back().send("{\"id\": 1, \"method\": \"register\"}\n"));
    EXPECT_NE(deaf.back().readUntil("Launched").find("result"), std::string::npos);
  }
  Dictionary large = record("large");
  large.set("comment", std::string(200'000, 'x'));
  for (int i = 0; i < 20; ++i) {
    large.set("name", std::to_string(i));
    (void)result("addLibrary", {{"library", large}});
    (void)result("removeLibraryWithDBName", "large");
  }
  EXPECT_GE(takeNotifications().size(), 40u);
  for (RawClient& client : deaf) {
    while (!client.readUntil("\n").empty()) {
    }
    EXPECT_TRUE(client.atEnd());
  }
}

TEST_F(ControlTest, LongCopiesLeaveEverythingElseAnswered) {
  (void)result("addLibrary", {{"library", record("one")}});
  std::promise<void> gate;
  onSnapshot_ = [opened = gate.get_future().share()] { opened.wait(); };
  std::string copies;
  for (int i = 0; i < 8; ++i) {
    Dictionary params{{"dbname", "one"}, {"folder", "/copy"}, {"close", false}};
    copies += writeJson(Dictionary{{"method", "snapshotDatabase"}, {"params", params}}) + "\n";
  }
  ASSERT_TRUE(client_->send(copies));
  for (const char* quick : {"getWebServerState", "getLocalAccountPassword", "stopWebServer", "terminate"})
    EXPECT_FALSE(result(quick).isNull()) << quick;
  EXPECT_EQ(errorCode("loadLibrary"), 11) << "nothing starts any more";
  gate.set_value();
}

TEST_F(ControlTest, EndsAfterTheAnswerAndLeavesNoSocket) {
  EXPECT_EQ(result("terminate"), Value(Dictionary{}));
  ASSERT_EQ(ended_.get_future().wait_for(10s), std::future_status::ready);
  server_->stop();
  EXPECT_TRUE(client_->atEnd());
  EXPECT_FALSE(itemExists(layout::controlSocket()));
}

TEST_F(ControlTest, LeavesASocketOnWhichSomebodyElseListens) {
  server_->stop();
  std::string place = layout::controlSocket();
  FileDescriptor manager = listenAt(place);
  EXPECT_FALSE(server_->start()) << "beside a socket unit";
  FileDescriptor elsewhere = listenAt(folder_ / "elsewhere.sock");
  EXPECT_FALSE(server_->start(FileDescriptor(::dup(elsewhere.get()))));
  EXPECT_NO_THROW(RawClient::unixSocket(place));
  ASSERT_EQ(::unlink(place.c_str()), 0);
  EXPECT_FALSE(server_->start(FileDescriptor(::dup(manager.get())))) << "nobody can reach it";
  EXPECT_FALSE(itemExists(place)) << "no link to itself";

  ASSERT_TRUE(server_->start());
  ASSERT_EQ(::unlink(place.c_str()), 0);
  FileDescriptor later = listenAt(place);
  server_->stop();
  EXPECT_NO_THROW(RawClient::unixSocket(place)) << "a unit that was enabled meanwhile";
}

TEST_F(ControlTest, TakesASocketThatListensAlreadyAndLeavesItInItsPlace) {
  server_->stop();
  std::string elsewhere = folder_ / "elsewhere.sock";
  for (const std::string& place : {elsewhere, layout::controlSocket()}) {
    FileDescriptor manager = listenAt(place);
    ASSERT_TRUE(server_->start(FileDescriptor(::dup(manager.get()))));
    client_ = std::make_unique<RawClient>(RawClient::unixSocket(layout::controlSocket()));
    (void)result("getWebServerState");
    server_->stop();
    EXPECT_TRUE(itemExists(place));
    EXPECT_NO_THROW(RawClient::unixSocket(place)) << "the manager listens again";
    EXPECT_EQ(itemExists(layout::controlSocket()), place == layout::controlSocket());
  }
}

TEST_F(ControlTest, IsPrivateAndReplacesWhatAKilledServiceLeft) {
  std::string socket = layout::controlSocket();
  struct stat info {};
  ASSERT_EQ(::stat(deletingLastPathComponent(socket).c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0700u);
  ASSERT_EQ(::stat(socket.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600u);

  server_->stop();
  ASSERT_TRUE(writeFileAtomically(socket, "left behind"));
  ASSERT_TRUE(server_->start());
  client_ = std::make_unique<RawClient>(RawClient::unixSocket(socket));
  (void)result("getWebServerState");

  auto second = Service::open([this](const std::string& folder, bool) { return openFake(folder); });
  ASSERT_FALSE(second);
  EXPECT_NE(second.error().message.find(std::to_string(::getpid())), std::string::npos);
}

}  // namespace
}  // namespace vornex::server::testing
