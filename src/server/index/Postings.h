#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "server/index/DocumentSet.h"
#include "server/index/Sections.h"

namespace vornex::server {

/// For each of a row of codes, the documents that have it. A code's documents are a list in ascending order,
/// or one bit for each document of the segment where that is shorter.
///
/// Thread-safety: immutable, safe on any thread.
class Postings {
 public:
  class Writer {
   public:
    explicit Writer(std::uint32_t documents) : documents_(documents) {}
    /// The documents of the next code, ascending, each once.
    void add(std::span<const std::uint32_t> documents);
    void write(SectionWriter& sections) const;

   private:
    std::uint32_t documents_;
    std::vector<std::uint32_t> offsets_{0};
    std::vector<std::uint32_t> slots_;
  };

  Postings() = default;
  Postings(SectionReader& sections, std::uint32_t documents);

  std::uint32_t codes() const { return static_cast<std::uint32_t>(offsets_.size()) - 1; }
  bool isBits(std::uint32_t code) const { return slot(code).size() == bitsSize(documents_); }
  /// The slot as it is stored: a list, or 32 documents an element.
  std::span<const std::uint32_t> slot(std::uint32_t code) const {
    return slots_.subspan(offsets_[code], offsets_[code + 1] - offsets_[code]);
  }

  /// The document of a list of one; absent when the slot is anything else.
  std::optional<std::uint32_t> only(std::uint32_t code) const {
    std::uint32_t begin = offsets_[code];
    if (offsets_[code + 1] - begin != 1 || bitsSize(documents_) == 1) return std::nullopt;
    return slots_[begin];
  }

  bool none(std::uint32_t code) const { return slot(code).empty(); }
  void addTo(DocumentSet& set, std::uint32_t code) const;
  DocumentSet documents(std::uint32_t code) const;

  template <typename Visit>
  void forEach(std::uint32_t code, Visit visit) const {
    std::span<const std::uint32_t> all = slot(code);
    if (!isBits(code)) {
      for (std::uint32_t document : all) visit(document);
      return;
    }
    for (std::size_t i = 0; i < all.size(); ++i)
      for (std::uint32_t rest = all[i]; rest != 0; rest &= rest - 1)
        visit(static_cast<std::uint32_t>(i * 32) + static_cast<std::uint32_t>(std::countr_zero(rest)));
  }

 private:
  static std::size_t bitsSize(std::uint32_t documents) { return (documents + 31) / 32; }

  std::uint32_t documents_ = 0;
  std::span<const std::uint32_t> offsets_;
  std::span<const std::uint32_t> slots_;
};

/// Distinct texts in ascending order of their bytes, addressed by number. They stand one after the other, so
/// that one search through memory finds all that contain something.
///
/// Thread-safety: immutable, safe on any thread.
class Texts {
 public:
  class Writer {
   public:
    /// A text greater than the one before.
    void add(std::string_view text);
    std::uint32_t size() const { return static_cast<std::uint32_t>(offsets_.size()) - 1; }
    void write(SectionWriter& sections) const;

   private:
    std::vector<std::uint32_t> offsets_{0};
    std::string bytes_;
  };

  Texts() = default;
  explicit Texts(SectionReader& sections);
  Texts(std::span<const std::uint32_t> offsets, std::span<const char> bytes)
      : offsets_(offsets), bytes_(bytes) {}

  std::uint32_t size() const { return static_cast<std::uint32_t>(offsets_.size()) - 1; }
  std::string_view operator[](std::uint32_t number) const {
    return {bytes_.data() + offsets_[number], offsets_[number + 1] - offsets_[number] - 1};
  }

  /// The number of the first text that is not less.
  std::uint32_t lowerBound(std::string_view text) const;
  /// The numbers of the texts that start with this one, and one behind the last.
  std::pair<std::uint32_t, std::uint32_t> startingWith(std::string_view text) const;
  /// The number of the text; size() when there is none.
  std::uint32_t find(std::string_view text) const;

  /// All texts together.
  std::size_t bytes() const { return bytes_.size(); }

  /// Calls `visit(number)` for each text that contains `part`, which is not empty.
  template <typename Visit>
  void forEachContaining(std::string_view part, Visit visit) const {
    std::uint32_t number = 0;
    for (std::size_t at = 0; (at = findFrom(at, part)) != std::string_view::npos;) {
      number = numberAt(at, number);
      std::size_t end = offsets_[number + 1] - 1;
      if (at + part.size() <= end) visit(number);
      at = end + 1;
    }
  }

 private:
  std::size_t findFrom(std::size_t at, std::string_view part) const;
  // The text at the place, which is no less than the given one.
  std::uint32_t numberAt(std::size_t at, std::uint32_t least) const;

  std::span<const std::uint32_t> offsets_;
  std::span<const char> bytes_;
};

}  // namespace vornex::server
