#include "foundation/Patience.h"

#include <atomic>

namespace vornex {

static constexpr int kShorterBy = 15;

static std::atomic<std::chrono::milliseconds> patience{std::chrono::seconds(30)};
static std::atomic<int> hanging = 0;

std::chrono::milliseconds sourcePatience() {
  return patience;
}

std::chrono::milliseconds lookPatience() {
  return hangingWork() > 0 ? sourcePatience() / kShorterBy : sourcePatience();
}

void setSourcePatience(std::chrono::milliseconds newPatience) {
  patience = newPatience;
}

int hangingWork() {
  return hanging;
}

void PatientWork::giveUp() {
  givenUp_ = true;
  ++hanging;
}

PatientWork::~PatientWork() {
  if (givenUp_) --hanging;
}

}  // namespace vornex
