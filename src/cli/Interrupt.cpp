#include "cli/Interrupt.h"

#include <signal.h>
#include <unistd.h>

#include <atomic>

namespace vornex::cli {
namespace {

std::atomic<int> interrupts{0};
static_assert(std::atomic<int>::is_always_lock_free, "the signal handler may only use lock-free atomics");

struct sigaction previousInterrupt, previousTerminate;

extern "C" void noteInterrupt(int) {
  if (interrupts.fetch_add(1) == 0) return;
  constexpr char kLineEnd = '\n';
  [[maybe_unused]] const auto written = write(STDERR_FILENO, &kLineEnd, 1);
  _exit(130);
}

}  // namespace

InterruptGuard::InterruptGuard() {
  interrupts = 0;
  struct sigaction action {};
  action.sa_handler = noteInterrupt;
  action.sa_flags = SA_RESTART;
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, &previousInterrupt);
  sigaction(SIGTERM, &action, &previousTerminate);
}

InterruptGuard::~InterruptGuard() {
  sigaction(SIGINT, &previousInterrupt, nullptr);
  sigaction(SIGTERM, &previousTerminate, nullptr);
}

bool InterruptGuard::requested() {
  return interrupts > 0;
}

}  // namespace vornex::cli
