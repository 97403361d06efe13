#pragma once

#include <limits>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "server/index/Fields.h"
#include "server/index/Postings.h"

namespace vornex::server {

inline constexpr std::uint32_t kNoCode = std::numeric_limits<std::uint32_t>::max();

/// The distinct values of a key, in order, and who has them. A code is the number of a value: numbers come
/// first, then strings.
struct ExactField {
  ExactField(SectionReader& sections, std::uint32_t documents, bool ordered);

  std::uint32_t numbers() const { return static_cast<std::uint32_t>(wholes.size()); }
  std::uint32_t codes() const { return numbers() + texts.size(); }
  NumberKey number(std::uint32_t code) const { return {wholes[code], rests.empty() ? 0 : rests[code]}; }
  std::string_view text(std::uint32_t code) const { return texts[code - numbers()]; }
  /// The code of the first number that is not less.
  std::uint32_t lowerBound(NumberKey key) const;

  std::span<const std::int64_t> wholes;
  /// Empty when all are 0.
  std::span<const double> rests;
  Texts texts;
  /// An array of strings is under each of them.
  Postings documents;

  /// The documents without the key, those with an array of strings and nothing else, and those whose value
  /// the index does not know.
  Postings missing;
  Postings lists;
  Postings unknown;

  /// Of ordered fields: each document's code; kNoCode for those that have no single number or string.
  std::span<const std::uint32_t> codeOf;
};

/// The case-folded text of a key. Its words are joined by the folders in it, which differ from them by their
/// slashes.
struct TextField {
  TextField(SectionReader& sections, std::uint32_t documents);

  Texts values;
  Postings documents;
  Texts words;
  Postings wordDocuments;

  Postings missing;
  /// Those whose value is no text.
  Postings unknown;
  /// Those whose text, as it was written, is not all ASCII.
  Postings notAscii;
  std::span<const std::uint32_t> codeOf;
};

/// The index of some documents: what a search needs of them, in one piece of memory or one file. Documents
/// are numbered in the order of their identifiers.
///
/// Thread-safety: immutable, safe on any thread.
class Segment {
 public:
  /// The bytes must be those of a SegmentWriter.
  explicit Segment(SectionBytes bytes, std::string fileName = "");

  std::uint32_t size() const { return static_cast<std::uint32_t>(rows_.size()); }
  std::size_t bytes() const { return bytes_.bytes().size(); }
  std::span<const char> raw() const { return bytes_.bytes(); }
  void forgetPages() const { bytes_.forgetPages(); }
  /// Empty for one in memory.
  const std::string& fileName() const { return fileName_; }

  const Texts& identifiers() const { return identifiers_; }
  /// The document's row in the database.
  std::int64_t row(std::uint32_t document) const { return rows_[document]; }
  std::span<const std::int64_t> rows() const { return rows_; }

  /// By their place in indexedFields(); of each kind only those that are of it.
  const ExactField& exact(std::size_t field) const { return exact_[place_[field]]; }
  const TextField& text(std::size_t field) const { return text_[place_[field]]; }

  /// The case-folded texts of an exact field, by their code less the numbers. Made when first needed.
  const Texts& foldedTexts(std::size_t field) const;

  /// Codes of an ordered exact field that count as equal, in their order; the texts by their folded forms.
  /// Empty when the codes are in order by themselves.
  const std::vector<std::vector<std::uint32_t>>& codeGroups(std::size_t field) const;

 private:
  // What is worked out of a field's texts.
  struct Folded {
    std::once_flag once;
    std::vector<std::uint32_t> offsets;
    std::string bytes;
    Texts texts;
    std::once_flag grouped;
    std::vector<std::vector<std::uint32_t>> groups;
  };

  SectionBytes bytes_;
  std::string fileName_;
  Texts identifiers_;
  std::span<const std::int64_t> rows_;
  std::vector<std::size_t> place_;
  std::vector<ExactField> exact_;
  std::vector<TextField> text_;
  std::unique_ptr<Folded[]> folded_;
};

using SegmentPtr = std::shared_ptr<const Segment>;

}  // namespace vornex::server
