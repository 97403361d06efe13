// The service program of the tests: owns the root folder by the lock, then answers like a service without
// libraries. It records in "started" below the root folder how it was started. $FAKE_START and $FAKE_END are
// milliseconds that it takes to listen, and to let go of the lock when it has stopped listening.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <thread>

#include "core/StorageLayout.h"
#include "foundation/Files.h"
#include "sdk/FakeService.h"

using namespace vornex;

static void pauseFor(const char* variable) {
  if (const char* text = std::getenv(variable))
    std::this_thread::sleep_for(std::chrono::milliseconds(std::atoi(text)));
}

int main() {
  int lock = ::open(layout::serviceLockFile().c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (lock < 0 || ::flock(lock, LOCK_EX | LOCK_NB) != 0) {
    std::fputs("another service owns the root folder\n", stderr);
    return 1;
  }
  std::string process = std::to_string(::getpid());
  if (::ftruncate(lock, 0) != 0 || ::pwrite(lock, process.data(), process.size(), 0) < 0) return 1;
  int inherited = 0;
  for (int descriptor = 3; descriptor < 256; ++descriptor)
    if (descriptor != lock && ::fcntl(descriptor, F_GETFD) >= 0) ++inherited;
  if (FILE* record = std::fopen(appendPathComponent(layout::rootFolder(), "started").c_str(), "a")) {
    std::fprintf(record, "%d %d %d %s\n", ::getpid(), ::getsid(0), inherited,
                 std::filesystem::current_path().c_str());
    std::fclose(record);
  }

  pauseFor("FAKE_START");
  std::mutex mutex;
  std::condition_variable changed;
  bool ended = false;
  {
    auto end = [&](const Value&) {
      std::lock_guard guard(mutex);
      ended = true;
      changed.notify_all();
      return Dictionary{{"result", Dictionary()}};
    };
    using vornex::testing::FakeService;
    FakeService service({{"launchWebServer", FakeService::giving({{"port", 4711}})},
                         {"getWebServerState", FakeService::giving({{"state", 1}, {"port", 4711}})},
                         {"getLocalAccountPassword", FakeService::giving({{"password", "secret"}})},
                         {"terminate", end}});
    std::unique_lock guard(mutex);
    changed.wait(guard, [&] { return ended; });
    guard.unlock();
  }
  pauseFor("FAKE_END");
}
