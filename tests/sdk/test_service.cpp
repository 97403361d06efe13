#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <unistd.h>
#include <vornex/NotificationCenter.h>
#include <vornex/Queue.h>
#include <vornex/TQConnection.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQLibraryManager.h>
#include <vornex/TQLiveFolder.h>
#include <vornex/TQUser.h>
#include <vornex/TQUserManager.h>
#include <vornex/TQVornexUtil.h>
#include <vornex/TQWorkflowEngineInterface.h>
#include <vornex/VornexSDK.h>

#include <algorithm>
#include <fstream>
#include <stdexcept>
#include <thread>

#include "core/StorageLayout.h"
#include "foundation/FileDescriptor.h"
#include "sdk/FakeService.h"
#include "sdk/SdkFixture.h"
#include "service/ServiceCallbacks.h"
#include "service/TQVornexService.h"

using namespace vornex;
using namespace std::chrono_literals;
using vornex::testing::FakeService;
using vornex::testing::Outcome;

namespace {

// How one run of the service program was started.
struct Launch {
  pid_t process = 0, session = 0;
  int inheritedFiles = 0;
  std::string workingFolder;
};

class ServiceTest : public vornex::testing::SdkTest {
 protected:
  ServiceTest() { ::setenv("VORNEX_WASD", VORNEX_FAKE_SERVICE, 1); }
  ~ServiceTest() override {
    ::unsetenv("FAKE_START");
    ::unsetenv("FAKE_END");
    for (const Launch& launch : launches()) ::kill(launch.process, SIGKILL);
    TQVornexTerminate([] {});
  }

  std::vector<Launch> launches() {
    std::vector<Launch> result;
    std::ifstream record(folder / "root/started");
    for (Launch launch;
         record >> launch.process >> launch.session >> launch.inheritedFiles >> launch.workingFolder;)
      result.push_back(launch);
    return result;
  }

  bool start(Outcome& outcome, std::int64_t port = 0) {
    VornexSDK::sharedInstance().startWASServiceWithPort(port, outcome.completion());
    return outcome.await();
  }

  std::pair<bool, std::int64_t> state() {
    auto promise = std::make_shared<std::promise<std::pair<bool, std::int64_t>>>();
    VornexSDK::sharedInstance().serviceState([promise](bool running, std::int64_t port) {
      promise->set_value({running, port});
    });
    return promise->get_future().get();
  }

  // Whether no service owns the root folder any more, soon.
  bool isAbandoned() {
    FileDescriptor lock(::open(layout::serviceLockFile().c_str(), O_RDWR | O_CLOEXEC));
    for (int i = 0; i < 500; ++i) {
      if (::flock(lock.get(), LOCK_EX | LOCK_NB) == 0) return true;
      std::this_thread::sleep_for(10ms);
    }
    return false;
  }

  void terminate() {
    std::promise<void> ended;
    VornexSDK::sharedInstance().terminateWAS([&] { ended.set_value(); });
    ended.get_future().get();
  }
};

TEST_F(ServiceTest, StartsTheServiceDetachedAndKnowsThePasswordWhenDone) {
  VornexSDK& sdk = VornexSDK::sharedInstance();
  sdk.initializeWAS();
  EXPECT_EQ(state(), std::pair(false, std::int64_t{0}));
  Outcome started;
  ASSERT_TRUE(start(started));
  ASSERT_TRUE(started.ok) << started.error->description();
  EXPECT_EQ(sdk.WASPort, 4711);
  EXPECT_EQ(TQUserManager::sharedManager().localPasswordMD5(), MD5String("secret"));
  EXPECT_EQ(state(), std::pair(true, std::int64_t{4711}));
  ConnectionPtr engine = TQLibraryManager::sharedManager().workflowEngineInterface().connection();
  ASSERT_TRUE(engine);
  EXPECT_EQ(engine->port, 4711);
  EXPECT_EQ(engine->user->password, MD5String("secret"));

  ASSERT_EQ(launches().size(), 1u);
  Launch launch = launches().front();
  EXPECT_NE(launch.session, ::getsid(0));
  EXPECT_EQ(launch.inheritedFiles, 0);
  EXPECT_EQ(launch.workingFolder, "/");
}

TEST_F(ServiceTest, FindsTheServiceAgainAfterItWasKilledAndEndsItOnTerminate) {
  VornexSDK::sharedInstance().initializeWAS();
  Outcome first, second, third;
  ASSERT_TRUE(start(first) && first.ok);
  ASSERT_EQ(::kill(launches().back().process, SIGKILL), 0);
  for (int i = 0; i < 500 && TQVornexService()->isConnected(); ++i) std::this_thread::sleep_for(10ms);
  EXPECT_FALSE(state().first);
  ASSERT_TRUE(start(second));
  EXPECT_TRUE(second.ok) << second.error->description();
  EXPECT_EQ(launches().size(), 2u);

  terminate();
  EXPECT_FALSE(TQVornexService());
  // The service that leaves may still hold the lock and the socket.
  VornexSDK::sharedInstance().initializeWAS();
  ASSERT_TRUE(start(third));
  EXPECT_TRUE(third.ok) << third.error->description();
  EXPECT_EQ(launches().size(), 3u);
}

TEST_F(ServiceTest, AnEndDuringAStartLeavesNoService) {
  ::setenv("FAKE_START", "500", 1);
  VornexSDK::sharedInstance().initializeWAS();
  Outcome outcome;
  VornexSDK::sharedInstance().startWASServiceWithPort(0, outcome.completion());
  for (int i = 0; i < 500 && launches().empty(); ++i) std::this_thread::sleep_for(10ms);
  terminate();
  ASSERT_TRUE(outcome.await());
  EXPECT_FALSE(outcome.ok);
  EXPECT_EQ(outcome.code(), 31);
  EXPECT_TRUE(isAbandoned());
  std::this_thread::sleep_for(500ms);
  EXPECT_EQ(launches().size(), 1u) << "nobody brings it back";
}

TEST_F(ServiceTest, AStartWaitsForAServiceThatTakesLongToEnd) {
  ::setenv("FAKE_END", "6000", 1);
  VornexSDK::sharedInstance().initializeWAS();
  Outcome first, second;
  ASSERT_TRUE(start(first) && first.ok);
  std::promise<void> twice;
  VornexSDK::sharedInstance().terminateWAS(
      [&] { VornexSDK::sharedInstance().terminateWAS([&] { twice.set_value(); }); });
  twice.get_future().get();
  VornexSDK::sharedInstance().initializeWAS();
  ASSERT_TRUE(start(second));
  EXPECT_TRUE(second.ok) << second.error->description();
  EXPECT_EQ(launches().size(), 2u);
}

TEST_F(ServiceTest, ALostServiceIsFoundAgainAndItsReportsGoOn) {
  FakeService service;
  ASSERT_TRUE(writeFileAtomically(layout::serviceLockFile(), std::to_string(::getpid())));
  VornexSDK::sharedInstance().initializeWAS();
  ASSERT_TRUE(service.await("register"));
  for (std::int64_t connection = 2; connection < 4; ++connection) {
    service.hangUp();
    ASSERT_TRUE(service.await("register", connection)) << "without any operation";
  }
  std::string seen;
  auto token = NotificationCenter::defaultCenter().addObserver(
      kTQLibraryDBDidChangeStatusNotification,
      [&](const Notification& notification) { seen += *notification.userInfo.find("dbname")->ifString(); });
  service.callBack("vornexLibraryDidChangeState", {{"dbname", "db"}, {"state", 1}});
  service.callBack("vornexScanStatusForLiveFolder", {{"dbname", "db"}}, 9);
  (void)service.awaitAnswer(9);
  MainQueue::shared().runPending();
  NotificationCenter::defaultCenter().removeObserver(token);
  EXPECT_EQ(seen, "db");
  service.fail("register", 1, "not now");
  service.hangUp();
  EXPECT_TRUE(service.await("register", 5)) << "until the service calls back";
}

TEST_F(ServiceTest, EndsInOrderAndRunsOnlyInStateOne) {
  FakeService service;
  service.answer("getLocalAccountPassword", {{"password", "p"}});
  VornexSDK::sharedInstance().initializeWAS();
  for (std::int64_t value : {0, 1, 2, -1}) {
    service.answer("getWebServerState", {{"state", value}, {"port", 5}});
    EXPECT_EQ(state(), std::pair(value == 1, std::int64_t{value == 1 ? 5 : 0}));
  }
  service.fail("loadLibrary", 11, "about to end");
  std::thread later([&] {
    (void)service.await("loadLibrary", 2);
    service.answer("loadLibrary", {});
  });
  Outcome started;
  ASSERT_TRUE(start(started));
  later.join();
  EXPECT_TRUE(started.ok);
  EXPECT_EQ(service.count("getLocalAccountPassword"), 1);

  std::size_t before = service.calls().size();
  service.on("terminate", [&](const Value&) {
    service.hangUp();
    return Dictionary();
  });
  terminate();
  std::vector<std::string> calls = service.calls();
  calls.erase(calls.begin(), calls.begin() + static_cast<std::ptrdiff_t>(before));
  EXPECT_EQ(calls, (std::vector<std::string>{"stopWebServer", "shutdownDatabase", "terminate"}));
}

TEST_F(ServiceTest, SeveralStartersAtOnceShareOneService) {
  auto client = std::make_shared<ServiceCallbacks>();
  std::vector<std::thread> starters;
  std::atomic<int> failures = 0;
  for (int i = 0; i < 4; ++i)
    starters.emplace_back([&] {
      if (std::make_shared<ServiceProxy>(client)->start()) ++failures;
    });
  for (std::thread& starter : starters) starter.join();
  EXPECT_EQ(failures, 0);
  EXPECT_EQ(launches().size(), 1u);
}

TEST_F(ServiceTest, AServiceThatCannotBeStartedIsReported) {
  VornexSDK::sharedInstance().initializeWAS();
  for (std::string program : {folder / "missing", std::string("/bin/false")}) {
    ::setenv("VORNEX_WASD", program.c_str(), 1);
    Outcome outcome;
    ASSERT_TRUE(start(outcome)) << program;
    EXPECT_FALSE(outcome.ok);
    EXPECT_EQ(outcome.code(), 31) << program;
    EXPECT_FALSE(outcome.error->message().empty());
  }
}

TEST_F(ServiceTest, ErrorsOfTheServiceArePassedOn) {
  FakeService service;
  VornexSDK::sharedInstance().initializeWAS();
  service.fail("launchWebServer", 10, "another port");
  Outcome taken, unloaded;
  ASSERT_TRUE(start(taken, 9000));
  EXPECT_EQ(taken.code(), 10);
  EXPECT_EQ(taken.error->domain(), "VORNEX SERVER");
  EXPECT_EQ(service.count("loadLibrary"), 0);
  EXPECT_EQ(VornexSDK::sharedInstance().WASPort, 9000);

  service.answer("launchWebServer", {{"port", 9000}});
  service.fail("loadLibrary", 0, "no failure");
  service.on("getLocalAccountPassword", [&](const Value&) {
    service.hangUp();
    return Dictionary();
  });
  ASSERT_TRUE(start(unloaded, 9000));
  EXPECT_TRUE(unloaded.ok) << "the service runs and has its libraries";
  EXPECT_TRUE(logged("vornexServiceLaunched error"));
}

TEST_F(ServiceTest, ACompletionThatThrowsKeepsNoOtherFromComing) {
  FakeService service;
  service.on("getLocalAccountPassword", [](const Value&) { return Dictionary(); });
  VornexSDK& sdk = VornexSDK::sharedInstance();
  sdk.initializeWAS();
  Outcome second;
  sdk.startWASServiceWithPort(0, [](bool, const TQErrorPtr&) { throw std::runtime_error("no matter"); });
  ASSERT_TRUE(service.await("getLocalAccountPassword"));
  sdk.startWASServiceWithPort(0, second.completion());
  ASSERT_TRUE(service.await("loadLibrary", 2));
  std::this_thread::sleep_for(50ms);
  std::vector<std::string> calls = service.calls();
  auto asked = std::find(calls.begin(), calls.end(), "getLocalAccountPassword") - calls.begin();
  service.send("{\"id\":" + std::to_string(asked + 1) + ",\"result\":{\"password\":\"p\"}}\n");
  ASSERT_TRUE(second.await());
  EXPECT_TRUE(second.ok);
}

TEST_F(ServiceTest, WithoutAServiceOperationsCompleteAtOnce) {
  VornexSDK& sdk = VornexSDK::sharedInstance();
  auto library = TQLibrary::libraryWithName("Films", std::nullopt, kLibraryTypeLocal, false, true, true,
                                            folder.path(), std::nullopt, std::make_shared<TQConnection>());
  ASSERT_TRUE(TQLibraryManager::sharedManager().addLibraries({library}));
  const std::string lock = folder / (".sysUUID_" + TQVornexUtil::systemUUID().value_or("(null)") + ".lock");
  ASSERT_TRUE(writeFileAtomically(lock, ""));
  int completed = 0;
  sdk.startWASServiceWithPort(0, [](bool, const TQErrorPtr&) { ADD_FAILURE(); });
  sdk.getUserSessions([](const std::vector<TQSession>&, const TQErrorPtr&) { ADD_FAILURE(); });
  sdk.stopWASService([&] { ++completed; });
  sdk.terminateWAS([&] { ++completed; });
  sdk.isRunning([&](bool running) { completed += running ? 0 : 1; });
  EXPECT_EQ(completed, 3);
  EXPECT_FALSE(fileExists(lock)) << "the end of the host gives its libraries free";
}

TEST_F(ServiceTest, SessionsAreReadInTheOrderReported) {
  FakeService service;
  VornexSDK::sharedInstance().initializeWAS();
  service.answer("getUserSessions",
                 {{"sessions", Array{Dictionary{{"userid", "ann"},
                                                {"username", 7},
                                                {"host", "10.0.0.2"},
                                                {"deviceuuid", "D"},
                                                {"clienttype", "Mac"},
                                                {"logindate", std::int64_t{20250307101112345}}},
                                     Dictionary{{"userid", "bob"}}}}});
  std::promise<std::vector<TQSession>> promise;
  VornexSDK::sharedInstance().getUserSessions(
      [&](std::vector<TQSession> sessions, const TQErrorPtr&) { promise.set_value(std::move(sessions)); });
  std::vector<TQSession> sessions = promise.get_future().get();
  ASSERT_EQ(sessions.size(), 2u);
  EXPECT_EQ(sessions[0].description(),
            "session userID:ann, userName:(null), deviceUUID:D, host:10.0.0.2, clientType:Mac, "
            "loginDate:2025-03-07T10:11:12.345Z");
  EXPECT_EQ(sessions[1].userID, "bob");
  EXPECT_FALSE(sessions[1].loginDate);
}

TEST_F(ServiceTest, CallbacksBecomeNotificationsOnTheMainQueueInOrder) {
  FakeService service;
  std::vector<std::string> seen;
  auto token = NotificationCenter::defaultCenter().addObserver("", [&](const Notification& notification) {
    std::string line = notification.name;
    if (const Value* status = notification.userInfo.find("status"))
      line += " " + *notification.userInfo.find("dbname")->ifString() + std::to_string(*status->ifInteger());
    if (const Value* libraries = std::any_cast<Value>(&notification.object))
      line += " " + std::to_string(libraries->ifArray()->size());
    seen.push_back(line);
  });
  VornexSDK::sharedInstance().initializeWAS();
  ASSERT_TRUE(service.await("register"));
  service.callBack("vornexLibraryDidChangeState", {{"dbname", "unknown"}, {"state", 2}});
  service.callBack("vornexLibraryUpdated", {{"libraries", Array{Dictionary(), Dictionary()}}});
  service.callBack("vornexLibraryCreated", {{"libraries", Array{Dictionary()}}});
  service.callBack("vornexLibraryDeleted", {{"libraries", Array()}});
  service.callBack("vornexNewerThanThisClient", {}, 4);
  EXPECT_EQ(*service.awaitAnswer(4).find("code"), Value(-32601));
  service.callBack("vornexScanStatusForLiveFolder", {{"dbname", "unknown"}}, 5);
  EXPECT_EQ(service.awaitAnswer(5), Value(Dictionary{{"status", Dictionary()}}));
  EXPECT_TRUE(seen.empty()) << "before the main queue ran";
  MainQueue::shared().runPending();
  NotificationCenter::defaultCenter().removeObserver(token);
  EXPECT_EQ(seen, (std::vector<std::string>{"TQLibraryDBDidChangeStatusNotification unknown2",
                                            "TQLibraryUpdateNotification 2", "TQLibraryCreateNotification 1",
                                            "TQLibraryDidDeleteNotification 0"}));
}

TEST_F(ServiceTest, TheServiceAsksForAndIsToldTheStateOfLiveFolders) {
  auto connection = TQConnection::connectionWithAddress("127.0.0.1", 1, nullptr);
  auto library = TQLibrary::libraryWithName("Shoot", std::nullopt, kLibraryTypeNetwork, false, true, true,
                                            folder.path(), std::nullopt, connection);
  auto node = [&](const char* id, std::int64_t status, std::vector<LiveFolderPtr> below = {}) {
    auto made = TQLiveFolder::liveFolderWithID(id, folder / id, "1", library->dbName, false, std::nullopt);
    made->scanStatus = status;
    made->subFolders = std::move(below);
    return made;
  };
  library->liveFolders = {node("A", 1, {node("A1", 2, {node("A11", 3)}), node("A2", 4)}), node("B", 5)};
  ASSERT_TRUE(TQLibraryManager::sharedManager().addLibraries({library}));
  std::vector<std::string> scans;
  auto token = NotificationCenter::defaultCenter().addObserver(
      kTQLiveFolderManualScanNotification, [&](const Notification& notification) {
        const Value* file = notification.userInfo.find("scanfilename");
        scans.push_back(std::any_cast<LiveFolderPtr>(notification.object)->ID.value_or("") + " " +
                        (file ? *file->ifString() : "all"));
      });
  FakeService service;
  VornexSDK::sharedInstance().initializeWAS();
  ASSERT_TRUE(service.await("register"));
  for (const char* id : {"A11", "gone"})
    service.callBack("vornexManualScanForLiveFolder", {{"livefolderid", id}, {"dbname", *library->dbName}});
  service.callBack("vornexManualScanForLiveFolder",
                   {{"livefolderid", "B"}, {"filename", "a.mov"}, {"dbname", *library->dbName}});
  service.callBack("vornexScanStatusForLiveFolder", {{"dbname", *library->dbName}}, 7);
  Dictionary status{{"A", 1}, {"A1", 2}, {"A11", 3}, {"A2", 4}, {"B", 5}};
  EXPECT_EQ(service.awaitAnswer(7), Value(Dictionary{{"status", status}}));
  MainQueue::shared().runPending();
  NotificationCenter::defaultCenter().removeObserver(token);
  EXPECT_EQ(scans, (std::vector<std::string>{"A11 all", "B a.mov"}));
  EXPECT_TRUE(logged("liveFolder is nil"));
}

TEST_F(ServiceTest, ALaunchReportedLaterRenewsThePassword) {
  FakeService service;
  VornexSDK::sharedInstance().initializeWAS();
  ASSERT_TRUE(service.await("register"));
  for (std::string password : {"first", "second"}) {
    service.answer("getLocalAccountPassword", {{"password", password}});
    service.callBack("vornexServiceLaunched", {});
    for (int i = 0; i < 500 && TQUserManager::sharedManager().localPassword() != password; ++i)
      std::this_thread::sleep_for(10ms);
    EXPECT_EQ(TQUserManager::sharedManager().localPassword(), password);
  }
}

}  // namespace
