#include "server/index/DocumentSet.h"

#include <algorithm>
#include <numeric>

namespace vornex::server {

DocumentSet::DocumentSet(std::uint32_t size, bool full) : size_(size), words_((size + 63) / 64) {
  if (full) complement();
}

std::uint32_t DocumentSet::count() const {
  return std::accumulate(words_.begin(), words_.end(), std::uint32_t{0}, [](std::uint32_t sum, auto word) {
    return sum + static_cast<std::uint32_t>(std::popcount(word));
  });
}

bool DocumentSet::empty() const {
  return std::all_of(words_.begin(), words_.end(), [](std::uint64_t word) { return word == 0; });
}

DocumentSet& DocumentSet::operator|=(const DocumentSet& other) {
  for (std::size_t i = 0; i < words_.size(); ++i) words_[i] |= other.words_[i];
  return *this;
}

DocumentSet& DocumentSet::operator&=(const DocumentSet& other) {
  for (std::size_t i = 0; i < words_.size(); ++i) words_[i] &= other.words_[i];
  return *this;
}

DocumentSet& DocumentSet::operator-=(const DocumentSet& other) {
  for (std::size_t i = 0; i < words_.size(); ++i) words_[i] &= ~other.words_[i];
  return *this;
}

void DocumentSet::complement() {
  for (std::uint64_t& word : words_) word = ~word;
  if (size_ % 64 != 0) words_.back() &= (std::uint64_t{1} << size_ % 64) - 1;
}

}  // namespace vornex::server
