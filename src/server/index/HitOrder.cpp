#include "server/index/HitOrder.h"

#include <algorithm>

namespace vornex::server {

namespace {

constexpr std::size_t kIdentifiers = std::numeric_limits<std::size_t>::max();

std::optional<std::size_t> orderOf(std::string_view key) {
  if (key == "_id") return kIdentifiers;
  std::optional<std::size_t> field = fieldWithKey(key);
  return field && indexedFields()[*field].ordered ? field : std::nullopt;
}

// What a document is ordered by: nothing, a number or a text, and then its identifier.
struct OrderKey {
  enum class Sort { none, number, text };
  Sort sort = Sort::none;
  NumberKey number;
  std::string_view text;

  bool operator==(const OrderKey&) const = default;
  std::strong_ordering operator<=>(const OrderKey& other) const {
    if (sort != other.sort) return sort <=> other.sort;
    if (sort == Sort::number) return number <=> other.number;
    return text.compare(other.text) <=> 0;
  }
};

// The groups of a segment's documents that are equal under an order, from the least one on: first those
// without a key, then one for each key.
class SegmentOrder {
 public:
  SegmentOrder(const Segment& segment, std::size_t field) : segment_(&segment), field_(field) {
    if (field == kIdentifiers) return;
    isText_ = indexedFields()[field].kind == IndexedField::Kind::text;
    postings_ = isText_ ? &segment.text(field).documents : &segment.exact(field).documents;
    codes_ = isText_ ? segment.text(field).codeOf : segment.exact(field).codeOf;
    if (isText_) return;
    groups_ = &segment.codeGroups(field);
    hasLists_ = !segment.exact(field).lists.none(0);
  }

  std::uint32_t size() const {
    if (field_ == kIdentifiers) return 1;
    return 1 + (isText_            ? segment_->text(field_).values.size()
                : groups_->empty() ? segment_->exact(field_).codes()
                                   : static_cast<std::uint32_t>(groups_->size()));
  }

  OrderKey key(std::uint32_t group) const {
    if (group == 0) return {};
    return keyOfCode(groups_ && !groups_->empty() ? (*groups_)[group - 1].front() : group - 1);
  }

  OrderKey keyOf(std::uint32_t document) const {
    if (field_ == kIdentifiers) return {};
    std::uint32_t code = codes_[document];
    return code == kNoCode ? OrderKey() : keyOfCode(code);
  }

  // The documents of a group as a list in the index; absent when it is no list.
  std::optional<std::span<const std::uint32_t>> list(std::uint32_t group) const {
    if (group == 0) return std::nullopt;
    if (groups_ && !groups_->empty() && (*groups_)[group - 1].size() > 1) return std::nullopt;
    std::uint32_t code = groups_ && !groups_->empty() ? (*groups_)[group - 1].front() : group - 1;
    if (postings_->isBits(code)) return std::nullopt;
    return postings_->slot(code);
  }

  // The only document of a group, which has a key; absent when there may be others.
  std::optional<std::uint32_t> only(std::uint32_t group) const {
    if (group == 0 || hasLists_ || (groups_ && !groups_->empty())) return std::nullopt;
    return postings_->only(group - 1);
  }

  // Documents of a group. An array of strings is under each of them in the index, but has no key.
  DocumentSet documents(std::uint32_t group) const {
    if (field_ == kIdentifiers) return DocumentSet(segment_->size(), true);
    DocumentSet set(segment_->size());
    if (group > 0) {
      if (groups_ && !groups_->empty())
        for (std::uint32_t code : (*groups_)[group - 1]) postings_->addTo(set, code);
      else
        postings_->addTo(set, group - 1);
      return set;
    }
    if (isText_) {
      segment_->text(field_).missing.addTo(set, 0);
      segment_->text(field_).unknown.addTo(set, 0);
    } else {
      const ExactField& values = segment_->exact(field_);
      for (const Postings* postings : {&values.missing, &values.lists, &values.unknown})
        postings->addTo(set, 0);
    }
    return set;
  }

  bool hasKey(std::uint32_t document) const { return !hasLists_ || codes_[document] != kNoCode; }

 private:
  OrderKey keyOfCode(std::uint32_t code) const {
    if (isText_) return {OrderKey::Sort::text, {}, segment_->text(field_).values[code]};
    const ExactField& values = segment_->exact(field_);
    if (code < values.numbers()) return {OrderKey::Sort::number, values.number(code), {}};
    return {OrderKey::Sort::text, {}, segment_->foldedTexts(field_)[code - values.numbers()]};
  }

  const Segment* segment_;
  std::size_t field_;
  bool isText_ = false;
  bool hasLists_ = false;
  const Postings* postings_ = nullptr;
  std::span<const std::uint32_t> codes_;
  const std::vector<std::vector<std::uint32_t>>* groups_ = nullptr;
};

// Walks along the hits of one segment in their order.
class Cursor {
 public:
  Cursor(const SegmentHits& hits, std::size_t index, std::size_t field, bool ascending)
      : hits_(&hits),
        index_(index),
        order_(*hits.segment, field),
        ascending_(ascending),
        groups_(order_.size()) {
    next();
  }

  bool atEnd() const { return atEnd_; }
  Hit hit() const { return {index_, document_}; }

  bool before(const Cursor& other) const {
    auto order = key_ <=> other.key_;
    if (order == 0) order = identifier() <=> other.identifier();
    return ascending_ ? order < 0 : order > 0;
  }

  // Passes over up to so many hits; gives how many.
  std::int64_t skip(std::int64_t most) {
    std::int64_t skipped = 0;
    while (skipped < most && !atEnd_) {
      if (at_ == list_.size()) skipped += passSingles(most - skipped - 1);
      next();
      ++skipped;
    }
    return skipped;
  }

  void next() {
    while (at_ == list_.size() && visited_ < groups_) openGroup();
    if (at_ == list_.size()) {
      atEnd_ = true;
      return;
    }
    document_ = list_[ascending_ ? at_ : list_.size() - 1 - at_];
    ++at_;
  }

 private:
  // Passes over the groups to come as long as they have one document; gives how many hits were among them.
  std::int64_t passSingles(std::int64_t most) {
    std::int64_t passed = 0;
    std::span<const std::uint64_t> hits = hits_->hits.words();
    for (; passed < most && visited_ < groups_; ++visited_) {
      std::optional<std::uint32_t> document = order_.only(ascending_ ? visited_ : groups_ - 1 - visited_);
      if (!document) break;
      // Without a branch, which would be guessed wrong as often as not.
      passed += static_cast<std::int64_t>(hits[*document / 64] >> (*document % 64) & 1);
    }
    return passed;
  }

  // Makes the hits of the next group the list. Most groups have one document, which most often is none.
  void openGroup() {
    std::uint32_t group = ascending_ ? visited_ : groups_ - 1 - visited_;
    ++visited_;
    at_ = 0;
    collected_.clear();
    auto collect = [&](std::uint32_t document) {
      if (hits_->hits.contains(document) && (group == 0 || order_.hasKey(document)))
        collected_.push_back(document);
    };
    if (auto list = order_.list(group)) {
      for (std::uint32_t document : *list) collect(document);
    } else {
      DocumentSet set = order_.documents(group);
      set &= hits_->hits;
      set.forEach(collect);
    }
    list_ = collected_;
    if (!list_.empty()) key_ = order_.key(group);
  }

  std::string_view identifier() const { return hits_->segment->identifiers()[document_]; }

  const SegmentHits* hits_;
  std::size_t index_;
  SegmentOrder order_;
  bool ascending_;
  std::uint32_t groups_;
  std::uint32_t visited_ = 0;
  std::vector<std::uint32_t> collected_;
  std::span<const std::uint32_t> list_;
  std::size_t at_ = 0;
  OrderKey key_;
  std::uint32_t document_ = 0;
  bool atEnd_ = false;
};

// Along the order of the index.
std::vector<Hit> walk(const std::vector<SegmentHits>& segments, std::size_t field, HitRange range) {
  std::vector<Cursor> cursors;
  for (std::size_t i = 0; i < segments.size(); ++i) {
    cursors.emplace_back(segments[i], i, field, range.ascending);
    if (cursors.back().atEnd()) cursors.pop_back();
  }
  std::vector<Hit> hits;
  std::int64_t first = cursors.size() == 1 ? cursors.front().skip(range.offset) : 0;
  std::erase_if(cursors, [](const Cursor& cursor) { return cursor.atEnd(); });
  for (std::int64_t at = first; !cursors.empty() && at < range.offset + range.count; ++at) {
    auto least = cursors.begin();
    for (auto cursor = std::next(least); cursor != cursors.end(); ++cursor)
      if (cursor->before(*least)) least = cursor;
    if (at >= range.offset) hits.push_back(least->hit());
    least->next();
    if (least->atEnd()) cursors.erase(least);
  }
  return hits;
}

// By sorting the hits.
std::vector<Hit> sorted(const std::vector<SegmentHits>& segments, std::size_t field, HitRange range) {
  struct Item {
    OrderKey key;
    std::string_view identifier;
    Hit hit;
  };
  std::vector<Item> items;
  for (std::size_t i = 0; i < segments.size(); ++i) {
    SegmentOrder order(*segments[i].segment, field);
    segments[i].hits.forEach([&](std::uint32_t document) {
      items.push_back({order.keyOf(document), segments[i].segment->identifiers()[document], {i, document}});
    });
  }
  auto before = [&](const Item& a, const Item& b) {
    auto order = a.key <=> b.key;
    if (order == 0) order = a.identifier <=> b.identifier;
    return range.ascending ? order < 0 : order > 0;
  };
  auto end = std::min<std::size_t>(items.size(), static_cast<std::size_t>(range.offset + range.count));
  std::partial_sort(items.begin(), items.begin() + static_cast<std::ptrdiff_t>(end), items.end(), before);
  std::vector<Hit> hits;
  for (auto at = static_cast<std::size_t>(range.offset); at < end; ++at) hits.push_back(items[at].hit);
  return hits;
}

}  // namespace

bool isIndexOrder(std::string_view key, const std::vector<SegmentHits>& segments) {
  std::optional<std::size_t> field = orderOf(key);
  if (!field || *field == kIdentifiers) return field.has_value();
  bool isText = indexedFields()[*field].kind == IndexedField::Kind::text;
  // In a text field a number may hide; in the others only what has no place in an order.
  return !isText || std::all_of(segments.begin(), segments.end(), [&](const SegmentHits& one) {
    return one.segment->text(*field).unknown.none(0);
  });
}

std::vector<Hit> hitsInOrder(const std::vector<SegmentHits>& segments, std::int64_t total,
                             std::string_view key, HitRange range) {
  std::optional<std::size_t> field = orderOf(key);
  range.count = std::min(range.count, total - range.offset);
  if (!field || range.count <= 0) return {};
  // The end is reached sooner from there.
  bool fromEnd = range.offset > total / 2;
  if (fromEnd) range = {total - range.offset - range.count, range.count, !range.ascending};
  double documents = 0;
  for (const SegmentHits& segment : segments) documents += segment.segment->size();
  double steps = documents / static_cast<double>(total) * static_cast<double>(range.offset + range.count);
  constexpr double kSortingCost = 30;
  bool sorts = static_cast<double>(total) * kSortingCost < steps;
  std::vector<Hit> hits = sorts ? sorted(segments, *field, range) : walk(segments, *field, range);
  if (fromEnd) std::reverse(hits.begin(), hits.end());
  return hits;
}

}  // namespace vornex::server
