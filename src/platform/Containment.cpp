#include "platform/Containment.h"

#include <fcntl.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>

#include "foundation/FileDescriptor.h"

namespace vornex {

namespace {

constexpr std::uint64_t kGigabyte = std::uint64_t{1} << 30;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kLimitsMemory = false;
#else
constexpr bool kLimitsMemory = true;
#endif

/// Three quarters of the machine's memory, within reason.
std::uint64_t defaultMemory() {
  auto memory =
      static_cast<std::uint64_t>(sysconf(_SC_PHYS_PAGES)) * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
  return std::clamp(memory / 4 * 3, 2 * kGigabyte, 8 * kGigabyte);
}

/// Lowers the limit; one that is lower already stays.
Result<void> lower(int resource, rlim_t value) {
  rlimit limit{};
  if (getrlimit(static_cast<__rlimit_resource_t>(resource), &limit) != 0)
    return posixFailure(errno, "cannot read a limit");
  limit.rlim_max = std::min(limit.rlim_max, value);
  limit.rlim_cur = std::min(limit.rlim_cur, limit.rlim_max);
  if (setrlimit(static_cast<__rlimit_resource_t>(resource), &limit) != 0)
    return posixFailure(errno, "cannot set a limit");
  return {};
}

#if defined(__x86_64__)
constexpr std::uint32_t kArchitecture = AUDIT_ARCH_X86_64;
#elif defined(__aarch64__)
constexpr std::uint32_t kArchitecture = AUDIT_ARCH_AARCH64;
#else
constexpr std::uint32_t kArchitecture = 0;
#endif

/// Refuses every socket that is not local, and the ways around that.
void barNetwork() {
  if (kArchitecture == 0) return;
  constexpr std::uint32_t kForeignCallBit = 0x40000000;
  auto load = [](std::size_t offset) -> sock_filter {
    return BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<std::uint32_t>(offset));
  };
  auto refuse = [](int reason) -> sock_filter {
    return BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<std::uint32_t>(reason));
  };
  sock_filter rules[] = {
      load(offsetof(seccomp_data, arch)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, kArchitecture, 1, 0),
      refuse(EPERM),
      load(offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JGE | BPF_K, kForeignCallBit, 0, 1),
      refuse(EPERM),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_io_uring_setup, 0, 1),
      refuse(ENOSYS),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_socket, 0, 3),
      load(offsetof(seccomp_data, args)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, AF_UNIX, 1, 0),
      refuse(EACCES),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  sock_fprog program{static_cast<unsigned short>(std::size(rules)), rules};
  // Kernels without filters let everything pass, as before.
  prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program);
}

/// All readers together may want more memory than there is: let the system end one of them, not its host.
void offerToBeEnded() {
  FileDescriptor score(open("/proc/self/oom_score_adj", O_WRONLY | O_CLOEXEC));
  // Where /proc is not mounted the system chooses for itself.
  if (score && write(score.get(), "1000", 4) < 0) return;
}

}  // namespace

Result<void> containProcess(const ProcessLimits& limits) {
  offerToBeEnded();
  if (auto lowered = lower(RLIMIT_CORE, 0); !lowered) return lowered;
  if (auto lowered = lower(RLIMIT_FSIZE, limits.fileSize); !lowered) return lowered;
  if (kLimitsMemory) {
    if (auto lowered = lower(RLIMIT_AS, limits.memory ? limits.memory : defaultMemory()); !lowered)
      return lowered;
  }
  if (limits.processorTime.count() > 0) allowProcessorTime(limits.processorTime);
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return posixFailure(errno, "cannot give up privileges");
  barNetwork();
  return {};
}

void allowProcessorTime(std::chrono::seconds time) {
  rusage used{};
  rlimit limit{};
  if (getrusage(RUSAGE_SELF, &used) != 0 || getrlimit(RLIMIT_CPU, &limit) != 0) return;
  auto spent = static_cast<rlim_t>(used.ru_utime.tv_sec + used.ru_stime.tv_sec + 1);
  limit.rlim_cur = std::min(limit.rlim_max, spent + static_cast<rlim_t>(time.count()));
  setrlimit(RLIMIT_CPU, &limit);
}

}  // namespace vornex
