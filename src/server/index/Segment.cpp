#include "server/index/Segment.h"

#include <algorithm>

#include "foundation/Text.h"

namespace vornex::server {

ExactField::ExactField(SectionReader& sections, std::uint32_t count, bool ordered)
    : wholes(sections.next<std::int64_t>()),
      rests(sections.next<double>()),
      texts(sections),
      documents(sections, count),
      missing(sections, count),
      lists(sections, count),
      unknown(sections, count) {
  if (ordered) codeOf = sections.next<std::uint32_t>();
}

std::uint32_t ExactField::lowerBound(NumberKey key) const {
  std::uint32_t low = 0;
  std::uint32_t high = numbers();
  while (low < high) {
    std::uint32_t middle = low + (high - low) / 2;
    if (number(middle) < key)
      low = middle + 1;
    else
      high = middle;
  }
  return low;
}

TextField::TextField(SectionReader& sections, std::uint32_t count)
    : values(sections),
      documents(sections, count),
      words(sections),
      wordDocuments(sections, count),
      missing(sections, count),
      unknown(sections, count),
      notAscii(sections, count),
      codeOf(sections.next<std::uint32_t>()) {}

Segment::Segment(SectionBytes bytes, std::string fileName)
    : bytes_(std::move(bytes)), fileName_(std::move(fileName)) {
  SectionReader sections(bytes_.bytes());
  identifiers_ = Texts(sections);
  rows_ = sections.next<std::int64_t>();
  for (const IndexedField& field : indexedFields()) {
    if (field.kind == IndexedField::Kind::text) {
      place_.push_back(text_.size());
      text_.emplace_back(sections, size());
    } else {
      place_.push_back(exact_.size());
      exact_.emplace_back(sections, size(), field.ordered);
    }
  }
  folded_ = std::make_unique<Folded[]>(place_.size());
}

const Texts& Segment::foldedTexts(std::size_t field) const {
  Folded& folded = folded_[field];
  std::call_once(folded.once, [&] {
    const Texts& texts = exact(field).texts;
    folded.offsets.push_back(0);
    for (std::uint32_t i = 0; i < texts.size(); ++i) {
      folded.bytes += foldedText(texts[i]);
      folded.bytes += '\0';
      folded.offsets.push_back(static_cast<std::uint32_t>(folded.bytes.size()));
    }
    folded.texts = Texts(folded.offsets, folded.bytes);
  });
  return folded.texts;
}

const std::vector<std::vector<std::uint32_t>>& Segment::codeGroups(std::size_t field) const {
  Folded& folded = folded_[field];
  const ExactField& values = exact(field);
  if (values.texts.size() == 0) return folded.groups;
  const Texts& texts = foldedTexts(field);
  std::call_once(folded.grouped, [&] {
    for (std::uint32_t code = 0; code < values.numbers(); ++code) folded.groups.push_back({code});
    std::vector<std::uint32_t> order(texts.size());
    for (std::uint32_t i = 0; i < order.size(); ++i) order[i] = i;
    std::sort(order.begin(), order.end(), [&](auto a, auto b) { return texts[a] < texts[b]; });
    for (std::size_t i = 0; i < order.size(); ++i) {
      bool sameAsBefore = i > 0 && texts[order[i]] == texts[order[i - 1]];
      if (!sameAsBefore) folded.groups.emplace_back();
      folded.groups.back().push_back(values.numbers() + order[i]);
    }
  });
  return folded.groups;
}

}  // namespace vornex::server
