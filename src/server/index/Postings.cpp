#include "server/index/Postings.h"

#include <algorithm>
#include <cstring>

namespace vornex::server {

void Postings::Writer::add(std::span<const std::uint32_t> documents) {
  std::size_t bits = bitsSize(documents_);
  if (documents.size() < bits) {
    slots_.insert(slots_.end(), documents.begin(), documents.end());
  } else {
    std::size_t begin = slots_.size();
    slots_.resize(begin + bits);
    for (std::uint32_t document : documents)
      slots_[begin + document / 32] |= std::uint32_t{1} << document % 32;
  }
  offsets_.push_back(static_cast<std::uint32_t>(slots_.size()));
}

void Postings::Writer::write(SectionWriter& sections) const {
  sections.add(offsets_);
  sections.add(slots_);
}

Postings::Postings(SectionReader& sections, std::uint32_t documents)
    : documents_(documents),
      offsets_(sections.next<std::uint32_t>()),
      slots_(sections.next<std::uint32_t>()) {}

void Postings::addTo(DocumentSet& set, std::uint32_t code) const {
  std::span<const std::uint32_t> all = slot(code);
  if (!isBits(code)) {
    for (std::uint32_t document : all) set.add(document);
    return;
  }
  std::span<std::uint64_t> words = set.words();
  std::size_t pairs = all.size() / 2;
  for (std::size_t i = 0; i < pairs; ++i) words[i] |= all[2 * i] | std::uint64_t{all[2 * i + 1]} << 32;
  if (all.size() % 2 != 0) words[pairs] |= all.back();
}

DocumentSet Postings::documents(std::uint32_t code) const {
  DocumentSet set(documents_);
  addTo(set, code);
  return set;
}

void Texts::Writer::add(std::string_view text) {
  bytes_ += text;
  bytes_ += '\0';
  offsets_.push_back(static_cast<std::uint32_t>(bytes_.size()));
}

void Texts::Writer::write(SectionWriter& sections) const {
  sections.add(offsets_);
  sections.add(bytes_);
}

Texts::Texts(SectionReader& sections)
    : offsets_(sections.next<std::uint32_t>()), bytes_(sections.nextBytes()) {}

// The first number from `low` on whose text does not precede.
template <typename Precedes>
static std::uint32_t firstNotPreceding(const Texts& texts, std::uint32_t low, Precedes precedes) {
  std::uint32_t high = texts.size();
  while (low < high) {
    std::uint32_t middle = low + (high - low) / 2;
    if (precedes(texts[middle]))
      low = middle + 1;
    else
      high = middle;
  }
  return low;
}

std::uint32_t Texts::lowerBound(std::string_view text) const {
  return firstNotPreceding(*this, 0, [&](std::string_view other) { return other < text; });
}

std::pair<std::uint32_t, std::uint32_t> Texts::startingWith(std::string_view text) const {
  std::uint32_t first = lowerBound(text);
  return {first,
          firstNotPreceding(*this, first, [&](std::string_view other) { return other.starts_with(text); })};
}

std::uint32_t Texts::find(std::string_view text) const {
  std::uint32_t number = lowerBound(text);
  return number < size() && (*this)[number] == text ? number : size();
}

std::size_t Texts::findFrom(std::size_t at, std::string_view part) const {
  if (at >= bytes_.size()) return std::string_view::npos;
  const void* found = ::memmem(bytes_.data() + at, bytes_.size() - at, part.data(), part.size());
  if (!found) return std::string_view::npos;
  return static_cast<std::size_t>(static_cast<const char*>(found) - bytes_.data());
}

std::uint32_t Texts::numberAt(std::size_t at, std::uint32_t least) const {
  // Mostly it is one of the next texts.
  std::uint32_t number = least;
  for (std::uint32_t step = 0; step < 16; ++step, ++number)
    if (offsets_[number + 1] > at) return number;
  auto next = std::upper_bound(offsets_.begin() + number, offsets_.end(), at);
  return static_cast<std::uint32_t>(next - offsets_.begin()) - 1;
}

}  // namespace vornex::server
