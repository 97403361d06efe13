#include "server/index/DocumentSet.h"

#include <algorithm>
#include <utility>

// Counting bits takes one instruction where the processor has it.
#if defined(__x86_64__) && defined(__ELF__) && defined(__GNUC__) && !defined(__clang__) && \
    !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#define VORNEX_FOR_EACH_PROCESSOR __attribute__((target_clones("avx2", "popcnt", "default")))
#else
#define VORNEX_FOR_EACH_PROCESSOR
#endif

namespace vornex::server {

VORNEX_FOR_EACH_PROCESSOR static std::uint32_t countBits(const std::uint64_t* words, std::size_t size) {
  std::uint32_t count = 0;
  for (std::size_t i = 0; i < size; ++i) count += static_cast<std::uint32_t>(std::popcount(words[i]));
  return count;
}

DocumentSet::DocumentSet(std::uint32_t size, bool full) : size_(size) {
  if (full) complement();
}

std::uint32_t DocumentSet::count() const {
  return countBits(words_.data(), words_.size());
}

bool DocumentSet::empty() const {
  return std::all_of(words_.begin(), words_.end(), [](std::uint64_t word) { return word == 0; });
}

DocumentSet& DocumentSet::operator|=(const DocumentSet& other) {
  if (words_.empty()) return *this = other;
  for (std::size_t i = 0; i < other.words_.size(); ++i) words_[i] |= other.words_[i];
  return *this;
}

DocumentSet& DocumentSet::operator|=(DocumentSet&& other) {
  if (words_.empty()) std::swap(words_, other.words_);
  return *this |= std::as_const(other);
}

DocumentSet& DocumentSet::operator&=(const DocumentSet& other) {
  if (other.words_.empty()) words_.clear();
  for (std::size_t i = 0; i < words_.size(); ++i) words_[i] &= other.words_[i];
  return *this;
}

DocumentSet& DocumentSet::operator-=(const DocumentSet& other) {
  if (words_.empty()) return *this;
  for (std::size_t i = 0; i < other.words_.size(); ++i) words_[i] &= ~other.words_[i];
  return *this;
}

void DocumentSet::complement() {
  if (words_.empty()) allocate();
  for (std::uint64_t& word : words_) word = ~word;
  if (size_ % 64 != 0) words_.back() &= (std::uint64_t{1} << size_ % 64) - 1;
}

}  // namespace vornex::server
