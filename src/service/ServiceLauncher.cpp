#include "service/ServiceLauncher.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <vector>

#include "core/StorageLayout.h"
#include "foundation/Files.h"
#include "platform/Processes.h"

namespace vornex {
namespace {

constexpr const char* kServiceName = "vornexd";
constexpr int kReportLimitMs = 10'000;

std::string programFolder() {
  std::error_code ignored;
  return std::filesystem::read_symlink("/proc/self/exe", ignored).parent_path();
}

std::string libraryFolder() {
  Dl_info info{};
  if (::dladdr(reinterpret_cast<const void*>(&serviceExecutable), &info) == 0 || !info.dli_fname) return "";
  std::error_code ignored;
  return std::filesystem::canonical(info.dli_fname, ignored).parent_path();
}

// Everything that the new process needs, made before the fork: after it nothing may allocate.
struct LaunchPlan {
  std::vector<std::string> words, variables;
  std::vector<char*> arguments, environment;
  FileDescriptor log, null, reportRead, reportWrite;
};

// What the new process says of itself before it becomes the service: its number, then only if that fails the
// reason.
struct Report {
  pid_t process = 0;
  int errorNumber = 0;
};

std::vector<char*> pointers(std::vector<std::string>& texts) {
  std::vector<char*> result;
  for (std::string& text : texts) result.push_back(text.data());
  result.push_back(nullptr);
  return result;
}

// The new process puts its own files into the places of the standard ones, so none of them may stand there.
FileDescriptor aboveStandard(int descriptor) {
  FileDescriptor given(descriptor);
  if (!given || given.get() > STDERR_FILENO) return given;
  return FileDescriptor(::fcntl(given.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

Result<LaunchPlan> planLaunch(const std::string& executable) {
  LaunchPlan plan;
  if (auto made = createDirectories(layout::serviceFolder(), 0700); !made)
    return tl::unexpected(made.error());
  std::string logFile = layout::serviceLogFile();
  plan.log = aboveStandard(::open(logFile.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
  if (!plan.log) return posixFailure(errno, "opening " + logFile);
  plan.null = aboveStandard(::open("/dev/null", O_RDWR | O_CLOEXEC));
  if (!plan.null) return posixFailure(errno, "opening /dev/null");
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) return posixFailure(errno, "making a pipe");
  plan.reportRead = aboveStandard(ends[0]);
  plan.reportWrite = aboveStandard(ends[1]);
  if (!plan.reportRead || !plan.reportWrite) return posixFailure(errno, "making a pipe");

  // The service leaves this process's folder, so a relative root folder must not reach it.
  plan.variables.push_back("VORNEX_ROOT=" + layout::rootFolder());
  for (char** variable = environ; *variable; ++variable)
    if (!std::string_view(*variable).starts_with("VORNEX_ROOT=")) plan.variables.emplace_back(*variable);
  plan.environment = pointers(plan.variables);
  plan.words = {executable};
  plan.arguments = pointers(plan.words);
  return plan;
}

// Handlers of the host program must not run in the new process, so its signals stay blocked until here.
void resetSignals() {
  for (int signal : {SIGHUP, SIGINT, SIGQUIT, SIGPIPE, SIGTERM, SIGCHLD, SIGUSR1, SIGUSR2})
    ::signal(signal, SIG_DFL);
  sigset_t none;
  ::sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
}

void closeOnExecFrom(int first) {
  if (::close_range(static_cast<unsigned>(first), ~0u, CLOSE_RANGE_CLOEXEC) == 0) return;
  // Kernels without it: what this process opened closes itself, this is for what others opened.
  for (int descriptor = first; descriptor < 4096; ++descriptor) ::fcntl(descriptor, F_SETFD, FD_CLOEXEC);
}

void report(const LaunchPlan& plan, const void* bytes, std::size_t size) {
  // The reader treats a report that does not arrive as a failure.
  [[maybe_unused]] ssize_t written = ::write(plan.reportWrite.get(), bytes, size);
}

// Runs in the new process; only calls that are safe after a fork.
[[noreturn]] void becomeService(const LaunchPlan& plan) {
  pid_t self = ::getpid();
  report(plan, &self, sizeof self);
  resetSignals();
  bool ready = ::chdir("/") == 0 && ::dup2(plan.null.get(), STDIN_FILENO) >= 0 &&
               ::dup2(plan.log.get(), STDOUT_FILENO) >= 0 && ::dup2(plan.log.get(), STDERR_FILENO) >= 0;
  if (ready) {
    closeOnExecFrom(STDERR_FILENO + 1);
    ::execve(plan.arguments.front(), plan.arguments.data(), plan.environment.data());
  }
  int reason = errno;
  report(plan, &reason, sizeof reason);
  ::_exit(127);
}

// Forks twice: the service belongs to nobody who would have to wait for it. What runs after the first fork is
// safe in a process that had several threads.
[[noreturn]] void forkService(const LaunchPlan& plan) {
  ::setsid();
  pid_t service = ::_Fork();
  if (service == 0) becomeService(plan);
  if (service < 0) {
    Report failed{0, errno};
    report(plan, &failed, sizeof failed);
  }
  ::_exit(0);
}

Result<void> spawnDetached(const LaunchPlan& plan) {
  sigset_t all, former;
  ::sigfillset(&all);
  ::pthread_sigmask(SIG_SETMASK, &all, &former);
  pid_t between = ::fork();
  int reason = errno;
  if (between == 0) forkService(plan);
  ::pthread_sigmask(SIG_SETMASK, &former, nullptr);
  if (between < 0) return posixFailure(reason, "starting " + plan.words.front());
  int status = 0;
  while (::waitpid(between, &status, 0) < 0 && errno == EINTR) {
  }
  return {};
}

Report readReport(int descriptor) {
  Report report;
  auto* bytes = reinterpret_cast<char*>(&report);
  std::size_t filled = 0;
  pollfd more{descriptor, POLLIN, 0};
  while (filled < sizeof report) {
    // A program on a disk that has gone away must not hang its starter.
    int ready = ::poll(&more, 1, kReportLimitMs);
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) {
      report.errorNumber = ETIMEDOUT;
      break;
    }
    ssize_t count = ::read(descriptor, bytes + filled, sizeof report - filled);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    filled += static_cast<std::size_t>(count);
  }
  return report;
}

}  // namespace

OptionalString serviceExecutable() {
  if (const char* chosen = std::getenv("VORNEX_WASD"); chosen && *chosen) return std::string(chosen);
  std::string library = libraryFolder();
  std::string aboveLibrary = deletingLastPathComponent(library);
  for (const std::string& folder : {programFolder(), library, appendPathComponent(aboveLibrary, "bin"),
                                    appendPathComponent(aboveLibrary, "libexec/vornex")}) {
    std::string candidate = appendPathComponent(folder, kServiceName);
    if (!folder.empty() && !isDirectory(candidate) && ::access(candidate.c_str(), X_OK) == 0)
      return candidate;
  }
  return findProgram(kServiceName);
}

bool ServiceProcess::hasEnded() const {
  pollfd ended{process_.get(), POLLIN, 0};
  return !process_ || ::poll(&ended, 1, 0) > 0;
}

void ServiceProcess::end() const {
  if (process_) ::syscall(SYS_pidfd_send_signal, process_.get(), SIGTERM, nullptr, 0);
}

bool isServiceAlive() {
  auto owner = readFile(layout::serviceLockFile());
  int process = owner ? std::atoi(owner->c_str()) : 0;
  return process > 0 && (::kill(process, 0) == 0 || errno == EPERM);
}

Result<ServiceProcess> startService(const std::string& executable) {
  std::error_code ignored;
  auto plan = planLaunch(std::filesystem::absolute(executable, ignored));
  if (!plan) return tl::unexpected(plan.error());
  if (auto spawned = spawnDetached(*plan); !spawned) return tl::unexpected(spawned.error());
  plan->reportWrite.close();
  Report answer = readReport(plan->reportRead.get());
  if (answer.errorNumber != 0 || answer.process <= 0)
    return posixFailure(answer.errorNumber != 0 ? answer.errorNumber : EIO, "starting " + executable);
  FileDescriptor process(static_cast<int>(::syscall(SYS_pidfd_open, answer.process, 0)));
  if (!process && errno != ESRCH) return posixFailure(errno, "watching " + executable);
  return ServiceProcess(std::move(process));
}

}  // namespace vornex
