#pragma once

#include <bit>
#include <cstdint>
#include <span>
#include <vector>

namespace vornex::server {

/// A set of the documents of one segment, by number: one bit each, and nothing while there are none. At a
/// million documents it takes 125 KB, so that joining two of them costs some microseconds whatever they hold.
///
/// Thread-safety: concurrent reads are safe; a write excludes everything else.
class DocumentSet {
 public:
  DocumentSet() = default;
  explicit DocumentSet(std::uint32_t size, bool full = false);

  /// How many documents there could be, not how many there are.
  std::uint32_t size() const { return size_; }
  std::uint32_t count() const;
  bool empty() const;

  bool contains(std::uint32_t document) const {
    return !words_.empty() && (words_[document / 64] >> (document % 64) & 1) != 0;
  }
  void add(std::uint32_t document) {
    if (words_.empty()) allocate();
    words_[document / 64] |= std::uint64_t{1} << (document % 64);
  }
  void remove(std::uint32_t document) {
    if (!words_.empty()) words_[document / 64] &= ~(std::uint64_t{1} << (document % 64));
  }

  // Both sets are of the same size.

  DocumentSet& operator|=(const DocumentSet& other);
  DocumentSet& operator|=(DocumentSet&& other);
  DocumentSet& operator&=(const DocumentSet& other);
  DocumentSet& operator-=(const DocumentSet& other);
  void complement();

  template <typename Visit>
  void forEach(Visit visit) const {
    for (std::size_t i = 0; i < words_.size(); ++i)
      for (std::uint64_t rest = words_[i]; rest != 0; rest &= rest - 1)
        visit(static_cast<std::uint32_t>(i * 64) + static_cast<std::uint32_t>(std::countr_zero(rest)));
  }

  /// 64 documents each; none for the empty set.
  std::span<const std::uint64_t> words() const { return words_; }
  /// The same, to be changed in place.
  std::span<std::uint64_t> words() {
    if (words_.empty()) allocate();
    return words_;
  }

 private:
  void allocate() { words_.resize((std::size_t{size_} + 63) / 64); }

  std::uint32_t size_ = 0;
  // Empty for the empty set.
  std::vector<std::uint64_t> words_;
};

}  // namespace vornex::server
