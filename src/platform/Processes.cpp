#include "platform/Processes.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>

#include "foundation/FileDescriptor.h"
#include "foundation/Files.h"
#include "platform/MediaWorkers.h"

namespace vornex {

namespace {

using Clock = std::chrono::steady_clock;

struct Pipe {
  FileDescriptor reader;
  FileDescriptor writer;
};

Result<Pipe> makePipe() {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return posixFailure(errno, "cannot make a pipe");
  fcntl(ends[0], F_SETFL, O_NONBLOCK);
  return Pipe{FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

/// Reads what is there, keeping at most `limit` bytes. Returns whether more may come.
bool drain(int reader, std::size_t limit, std::string& output) {
  char buffer[16384];
  for (;;) {
    ssize_t count = read(reader, buffer, sizeof buffer);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return errno == EAGAIN;
    if (count == 0) return false;
    output.append(buffer, std::min(static_cast<std::size_t>(count), limit - output.size()));
  }
}

/// Waits until the process has ended, collecting its output. Returns whether it ended before the deadline.
bool waitForEnd(int process, FileDescriptor& reader, std::size_t limit, Clock::time_point deadline,
                std::string& output) {
  for (;;) {
    auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (left <= 0) return false;
    pollfd watched[2] = {{process, POLLIN, 0}, {reader.get(), POLLIN, 0}};
    int ready = poll(watched, 2, static_cast<int>(std::min<long long>(left, 60'000)));
    if (ready < 0 && errno != EINTR) return false;
    if (ready <= 0) continue;
    if (watched[1].revents != 0 && !drain(reader.get(), limit, output)) reader.close();
    if (watched[0].revents != 0) {
      if (reader.get() >= 0) drain(reader.get(), limit, output);
      return true;
    }
  }
}

}  // namespace

OptionalString findProgram(const std::string& name) {
  auto executable = [](const std::string& path) {
    return !isDirectory(path) && access(path.c_str(), X_OK) == 0;
  };
  if (name.empty()) return std::nullopt;
  if (name.find('/') != std::string::npos) return executable(name) ? OptionalString(name) : std::nullopt;
  const char* variable = std::getenv("PATH");
  std::string folders = variable ? variable : "/usr/local/bin:/usr/bin:/bin";
  for (std::size_t start = 0; start <= folders.size();) {
    std::size_t end = std::min(folders.find(':', start), folders.size());
    // An empty entry would mean the current folder, from which nothing is run by accident.
    if (end > start) {
      std::string path = appendPathComponent(folders.substr(start, end - start), name);
      if (executable(path)) return path;
    }
    start = end + 1;
  }
  return std::nullopt;
}

Result<pid_t> startProcess(const std::string& program, const std::vector<std::string>& arguments, int input,
                           int output) {
  auto found = findProgram(program);
  if (!found) return posixFailure(ENOENT, "cannot start " + program);
  const std::string& path = *found;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (input >= 0) {
    posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
  } else {
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  }
  if (output >= 0) {
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output, STDERR_FILENO);
  } else {
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  }
  posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);

  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t none;
  sigset_t all;
  sigemptyset(&none);
  sigfillset(&all);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setsigdefault(&attributes, &all);
  posix_spawnattr_setpgroup(&attributes, 0);
  posix_spawnattr_setflags(&attributes,
                           POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

  std::vector<char*> argv{const_cast<char*>(path.c_str())};
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  pid_t process = 0;
  int status = posix_spawn(&process, path.c_str(), &actions, &attributes, argv.data(), environ);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  if (status != 0) return posixFailure(status, "cannot start " + path);
  return process;
}

Result<ProcessResult> runProcess(const std::string& program, const std::vector<std::string>& arguments,
                                 const ProcessOptions& options) {
  auto pipe = options.outputLimit > 0 ? makePipe() : Result<Pipe>(Pipe{});
  if (!pipe) return tl::unexpected(pipe.error());
  auto process = startProcess(program, arguments, -1, pipe->writer.get());
  pipe->writer.close();
  if (!process) return tl::unexpected(process.error());

  ProcessResult result;
  auto deadline = Clock::now() + options.timeLimit;
  FileDescriptor handle(static_cast<int>(syscall(SYS_pidfd_open, *process, 0)));
  bool ended = handle.get() >= 0 &&
               waitForEnd(handle.get(), pipe->reader, options.outputLimit, deadline, result.output);
  result.timedOut = !ended;
  // The process is not reaped yet, so the group's number cannot have been given to another.
  kill(-*process, SIGKILL);
  int status = 0;
  while (waitpid(*process, &status, 0) < 0) {
    if (errno != EINTR) return posixFailure(errno, "cannot learn how " + program + " ended");
  }
  if (WIFSIGNALED(status)) result.signal = WTERMSIG(status);
  if (WIFEXITED(status)) result.exitStatus = WEXITSTATUS(status);
  return result;
}

Result<ProcessResult> runContained(const std::string& program, const std::vector<std::string>& arguments,
                                   const ProcessOptions& options) {
  auto path = findProgram(program);
  if (!path) return posixFailure(ENOENT, "cannot start " + program);
  std::vector<std::string> words{"run", *path};
  words.insert(words.end(), arguments.begin(), arguments.end());
  return runProcess(mediaProgram(), words, options);
}

static std::string folderOf(const std::filesystem::path& path) {
  return path.parent_path().string();
}

/// Of the running program, and of the file that this code is part of.
static std::vector<std::string> ownFolders() {
  std::error_code ignored;
  std::vector<std::string> folders{folderOf(std::filesystem::read_symlink("/proc/self/exe", ignored))};
  Dl_info info{};
  if (::dladdr(reinterpret_cast<const void*>(&findOwnProgram), &info) != 0 && info.dli_fname)
    folders.push_back(folderOf(std::filesystem::canonical(info.dli_fname, ignored)));
  return folders;
}

OptionalString findOwnProgram(const std::string& name) {
  for (const std::string& folder : ownFolders()) {
    if (folder.empty()) continue;
    // Libraries lie in "lib" or in a folder of the architecture below it.
    std::string above = folderOf(folder), aboveThat = folderOf(above);
    for (const std::string& place :
         {folder, appendPathComponent(above, "bin"), appendPathComponent(above, "libexec/vornex"),
          appendPathComponent(aboveThat, "libexec/vornex")}) {
      if (OptionalString program = findProgram(appendPathComponent(place, name))) return program;
    }
  }
  return std::nullopt;
}

}  // namespace vornex
