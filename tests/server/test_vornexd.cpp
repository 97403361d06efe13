#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vornex/Types.h>

#include <chrono>
#include <csignal>
#include <thread>

#include "core/Coercion.h"
#include "core/StorageLayout.h"
#include "foundation/Files.h"
#include "foundation/Json.h"
#include "foundation/PropertyList.h"
#include "foundation/Text.h"
#include "server/RawClient.h"
#include "support/TemporaryFolder.h"

namespace vornex::server::testing {
namespace {

using namespace std::chrono_literals;

/// One run of the program; what it writes to standard output and error goes into a file.
class Program {
 public:
  /// The listener goes to the program as a service manager would pass it.
  Program(std::vector<std::string> arguments, const std::string& output, int listener = -1) {
    arguments.insert(arguments.begin(), VORNEXD);
    std::vector<char*> words;
    for (std::string& argument : arguments) words.push_back(argument.data());
    words.push_back(nullptr);
    process_ = ::fork();
    if (process_ != 0) return;
    if (listener >= 0) {
      if (listener == 3 ? ::fcntl(3, F_SETFD, 0) < 0 : ::dup2(listener, 3) < 0) ::_exit(126);
      ::setenv("LISTEN_PID", std::to_string(::getpid()).c_str(), 1);
      ::setenv("LISTEN_FDS", "1", 1);
    }
    if (!::freopen(output.c_str(), "w", stdout) || ::dup2(STDOUT_FILENO, STDERR_FILENO) < 0) ::_exit(126);
    ::execv(VORNEXD, words.data());
    ::_exit(127);
  }
  ~Program() {
    if (process_ == 0) return;
    ::kill(process_, SIGKILL);
    (void)end();
  }

  void signal(int number) const { ::kill(process_, number); }

  /// Waits for the end; the exit code, or the signal's number negated.
  int end() {
    int status = 0;
    ::waitpid(process_, &status, 0);
    process_ = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }

 private:
  pid_t process_ = 0;
};

class VornexdTest : public ::testing::Test {
 protected:
  VornexdTest() { ::setenv("VORNEX_ROOT", (folder_ / "root").c_str(), 1); }

  std::string output() const { return readFile(output_).value_or(""); }

  void awaitSocket() {
    for (int i = 0; i < 500 && !itemExists(layout::controlSocket()); ++i) std::this_thread::sleep_for(20ms);
    ASSERT_TRUE(itemExists(layout::controlSocket())) << output();
  }

  /// Waits for the service; the socket of a killed one may still be there.
  static RawClient connect() {
    for (int i = 0; i < 500; ++i) {
      try {
        return RawClient::unixSocket(layout::controlSocket());
      } catch (const std::runtime_error&) {
        std::this_thread::sleep_for(20ms);
      }
    }
    throw std::runtime_error("the service does not start");
  }

  static Value call(RawClient& client, const std::string& method, Dictionary params = {}) {
    (void)client.send(writeJson(Dictionary{{"id", 1}, {"method", method}, {"params", std::move(params)}}) +
                      "\n");
    Value answer = parseJson(client.readUntil("\n")).value_or(Value());
    const Value* result = answer.find("result");
    EXPECT_TRUE(result) << writeJson(answer);
    return result ? *result : Value();
  }

  RawClient::Reply post(const std::string& password, std::int64_t port, const std::string& path,
                        const std::string& body) {
    RawClient client = RawClient::tcp(static_cast<std::uint16_t>(port));
    (void)client.send("POST /vornex/" + path + " HTTP/1.1\r\nAuthorization: Basic " +
                      base64(std::string(kTQLocalUserID) + ":" + md5Hex(password)) +
                      "\r\nContent-Type: application/json\r\nContent-Length: " + std::to_string(body.size()) +
                      "\r\n\r\n" + body);
    return client.readReply();
  }

  vornex::testing::TemporaryFolder folder_;
  std::string output_ = folder_ / "output";
};

TEST_F(VornexdTest, KeepsWhatItHasAcknowledgedWhenItIsKilled) {
  Dictionary library{
      {"dbname", "db"}, {"name", "Library"}, {"packagefolder", folder_ / "package"}, {"type", 0}};
  std::string id;
  for (int run = 0; run < 2; ++run) {
    Program program({"--log-level", "debug"}, output_);
    RawClient client = connect();
    std::string password = *call(client, "getLocalAccountPassword").find("password")->ifString();
    std::int64_t port = *call(client, "launchWebServer", {{"port", 0}}).find("port")->ifInteger();
    if (run == 0) {
      (void)call(client, "addLibrary", {{"library", library}});
      ASSERT_TRUE(createDirectories(layout::preferenceFolder()));
      ASSERT_TRUE(
          writePropertyListFile(layout::localLibraryPlist(), Dictionary{{"library", Array{library}}}));
      RawClient::Reply created =
          post(password, port, "libraries/db/assets/create", R"({"items": [{"name": "clip"}]})");
      ASSERT_EQ(created.status, 200) << created.body;
      id = coerce::string(parseJson(created.body)->find("items")->ifArray()->at(0).find("_id")).value();
      program.signal(SIGKILL);
      EXPECT_EQ(program.end(), -SIGKILL);
    } else {
      Value report = call(client, "loadLibrary");
      EXPECT_EQ(report, Value(Dictionary{{"libraries", 1}, {"failures", Array{}}}));
      RawClient::Reply page =
          post(password, port, "libraries/db/assets/search", R"({"query": "name == \"clip\""})");
      EXPECT_NE(page.body.find(id), std::string::npos) << page.body;
      EXPECT_EQ(call(client, "terminate"), Value(Dictionary{}));
      EXPECT_EQ(program.end(), 0);
      EXPECT_FALSE(itemExists(layout::controlSocket()));
      std::string log = readFile(layout::serviceLogFile()).value_or("");
      EXPECT_NE(log.find("/assets/search 200"), std::string::npos);
      for (const std::string& secret : {password, md5Hex(password), std::string("Basic")}) {
        EXPECT_EQ(log.find(secret), std::string::npos) << "a credential is in the log";
      }
    }
  }
}

TEST_F(VornexdTest, RefusesToServeARootFolderTwice) {
  Program first({"--port", "0"}, folder_ / "first");
  awaitSocket();
  Program second({}, output_);
  EXPECT_EQ(second.end(), 3);
  EXPECT_NE(output().find("already serves"), std::string::npos) << output();
  ASSERT_EQ(::unlink(layout::controlSocket().c_str()), 0);
  FileDescriptor manager = listenAt(layout::controlSocket());
  Program third({}, output_, manager.get());
  EXPECT_EQ(third.end(), 3) << "started by the socket unit";
  EXPECT_NE(output().find("Another vornexd (process "), std::string::npos) << output();
  first.signal(SIGTERM);
  EXPECT_EQ(first.end(), 0);
  EXPECT_TRUE(itemExists(layout::controlSocket())) << "it is the manager's";
  Program beside({"--port", "0"}, output_);
  EXPECT_EQ(beside.end(), 3);
  manager.close();
}

TEST_F(VornexdTest, EndsInPeaceHoweverOftenAClientAsks) {
  Program first({"--port", "0"}, folder_ / "first");
  RawClient client = connect();
  for (int i = 0; i < 3; ++i) (void)client.send("{\"id\": 1, \"method\": \"terminate\"}\n");
  EXPECT_EQ(first.end(), 0);
  for (int signal : {SIGINT, SIGHUP}) {
    Program program({}, output_);
    awaitSocket();
    program.signal(signal);
    EXPECT_EQ(program.end(), 0);
  }
}

TEST_F(VornexdTest, ServesOnTheSocketOfAServiceManagerWhoeverCameFirst) {
  ASSERT_TRUE(createDirectories(layout::serviceFolder(), 0700));
  FileDescriptor listener = listenAt(layout::controlSocket());
  RawClient early = connect();
  ASSERT_TRUE(early.send("{\"id\": 1, \"method\": \"getWebServerState\"}\n"));
  for (int run = 0; run < 2; ++run) {
    Program program({}, output_, listener.get());
    if (run == 0) {
      EXPECT_NE(early.readUntil("\n").find("\"state\":0"), std::string::npos) << output();
    }
    RawClient client = connect();
    EXPECT_EQ(call(client, "terminate"), Value(Dictionary{}));
    EXPECT_EQ(program.end(), 0);
  }
  Program refusing({}, output_, FileDescriptor(::open("/dev/null", O_RDONLY)).get());
  EXPECT_EQ(refusing.end(), 1);
}

TEST_F(VornexdTest, TellsWhyItCannotStart) {
  Program other({"--root", folder_ / "other", "--port", "0", "--log-level", "info"}, folder_ / "first");
  std::string port;
  for (int i = 0; i < 500 && port.empty(); ++i) {
    std::string log = readFile(folder_ / "first").value_or("");
    std::size_t found = log.find("127.0.0.1 port ");
    if (found != std::string::npos) port = log.substr(found + 15, log.find('\n', found) - found - 15);
    std::this_thread::sleep_for(20ms);
  }
  ASSERT_FALSE(port.empty());
  struct {
    std::vector<std::string> arguments;
    int exitCode;
    std::string message;
  } cases[] = {
      {{"--port", port}, 1, "Port " + port + " of 127.0.0.1 is in use"},
      {{"--port", "0", "--address", "localhost"}, 1, "no numeric address"},
      {{"--root", "/proc/none"}, 1, "vornexd: "},
      {{"--port", "70000"}, 2, "--port"},
      {{"--log-level", "loud"}, 2, "--log-level"},
      {{"--unknown"}, 2, "--unknown"},
      {{"--help"}, 0, "--address"},
      {{"--version"}, 0, "vornexd 0."},
  };
  for (const auto& [arguments, exitCode, message] : cases) {
    Program program(arguments, output_);
    EXPECT_EQ(program.end(), exitCode) << arguments.front();
    EXPECT_NE(output().find(message), std::string::npos) << arguments.front() << ": " << output();
  }
}

}  // namespace
}  // namespace vornex::server::testing
