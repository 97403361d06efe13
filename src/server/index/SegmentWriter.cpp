#include "server/index/SegmentWriter.h"

#include <xxhash.h>

#include <algorithm>
#include <deque>
#include <random>
#include <unordered_map>

#include "foundation/Text.h"
#include "server/query/TextNormalization.h"

namespace vornex::server {

namespace {

using Documents = std::vector<std::uint32_t>;

void writeOne(SectionWriter& sections, std::uint32_t count, const Documents& documents) {
  Postings::Writer writer(count);
  writer.add(documents);
  writer.write(sections);
}

// Takes a field's values in order and writes its sections.
class ExactFieldWriter {
 public:
  ExactFieldWriter(std::uint32_t count, bool ordered, Documents missing, Documents lists, Documents unknown)
      : count_(count),
        missing_(std::move(missing)),
        lists_(std::move(lists)),
        unknown_(std::move(unknown)),
        postings_(count) {
    if (!ordered) return;
    isList_ = DocumentSet(count);
    for (std::uint32_t document : lists_) isList_.add(document);
    codeOf_.assign(count, kNoCode);
  }

  void add(NumberKey number, std::span<const std::uint32_t> documents) {
    wholes_.push_back(number.whole);
    if (number.rest != 0) rests_.resize(wholes_.size() - 1);
    if (number.rest != 0 || !rests_.empty()) rests_.push_back(number.rest);
    addPostings(documents);
  }

  void add(std::string_view text, std::span<const std::uint32_t> documents) {
    texts_.add(text);
    addPostings(documents);
  }

  void write(SectionWriter& sections) const {
    sections.add(wholes_);
    sections.add(rests_);
    texts_.write(sections);
    postings_.write(sections);
    writeOne(sections, count_, missing_);
    writeOne(sections, count_, lists_);
    writeOne(sections, count_, unknown_);
    if (isList_.size() > 0) sections.add(codeOf_);
  }

 private:
  void addPostings(std::span<const std::uint32_t> documents) {
    postings_.add(documents);
    for (std::uint32_t document : documents)
      if (isList_.size() > 0 && !isList_.contains(document)) codeOf_[document] = code_;
    ++code_;
  }

  std::uint32_t count_;
  Documents missing_;
  Documents lists_;
  Documents unknown_;
  DocumentSet isList_;
  std::uint32_t code_ = 0;
  std::vector<std::int64_t> wholes_;
  std::vector<double> rests_;
  Texts::Writer texts_;
  Postings::Writer postings_;
  std::vector<std::uint32_t> codeOf_;
};

class TextFieldWriter {
 public:
  explicit TextFieldWriter(std::uint32_t count)
      : count_(count), valuePostings_(count), wordPostings_(count), codeOf_(count, kNoCode) {}

  void addValue(std::string_view text, std::span<const std::uint32_t> documents) {
    for (std::uint32_t document : documents) codeOf_[document] = values_.size();
    values_.add(text);
    valuePostings_.add(documents);
  }

  void addWord(std::string_view word, std::span<const std::uint32_t> documents) {
    words_.add(word);
    wordPostings_.add(documents);
  }

  void write(SectionWriter& sections, const Documents& missing, const Documents& unknown,
             const Documents& notAscii) const {
    values_.write(sections);
    valuePostings_.write(sections);
    words_.write(sections);
    wordPostings_.write(sections);
    writeOne(sections, count_, missing);
    writeOne(sections, count_, unknown);
    writeOne(sections, count_, notAscii);
    sections.add(codeOf_);
  }

 private:
  std::uint32_t count_;
  Texts::Writer values_;
  Postings::Writer valuePostings_;
  Texts::Writer words_;
  Postings::Writer wordPostings_;
  std::vector<std::uint32_t> codeOf_;
};

// Distinct texts and the documents that have them.
class Terms {
 public:
  /// The documents come in ascending order.
  void add(std::string_view text, std::uint32_t document) {
    auto known = numbers_.try_emplace(text, static_cast<std::uint32_t>(numbers_.size())).first;
    uses_.push_back({known->second, document});
  }

  /// Calls `visit(text, documents)` for each text, in their order.
  template <typename Visit>
  void forEach(Visit visit) const {
    std::vector<Term> terms;
    terms.reserve(numbers_.size());
    for (const auto& [text, number] : numbers_) terms.emplace_back(text, number);
    std::sort(terms.begin(), terms.end());
    Documents ends;
    Documents documents = byTerm(ends);
    for (const Term& term : terms) {
      auto first = documents.begin() + (term.number == 0 ? 0 : ends[term.number - 1]);
      auto last = std::unique(first, documents.begin() + ends[term.number]);
      visit(term.text, std::span<const std::uint32_t>(first, last));
    }
  }

 private:
  // Most comparisons are decided by the first bytes, kept as a number.
  struct Term {
    Term(std::string_view given, std::uint32_t of) : text(given), number(of) {
      for (std::size_t i = 0; i < 8; ++i)
        start = start << 8 | (i < text.size() ? static_cast<unsigned char>(text[i]) : 0);
    }
    bool operator<(const Term& other) const {
      return start != other.start ? start < other.start : text < other.text;
    }

    std::uint64_t start = 0;
    std::string_view text;
    std::uint32_t number;
  };
  struct Use {
    std::uint32_t term;
    std::uint32_t document;
  };
  // Nobody can prepare words that meet in one bucket.
  struct Hash {
    std::size_t operator()(std::string_view text) const {
      static const XXH64_hash_t kSeed = std::random_device()();
      return XXH3_64bits_withSeed(text.data(), text.size(), kSeed);
    }
  };

  // All documents, those of one term after those of the other, and where those of each end.
  Documents byTerm(Documents& ends) const {
    ends.assign(numbers_.size(), 0);
    for (const Use& use : uses_) ++ends[use.term];
    std::uint32_t sum = 0;
    for (std::uint32_t& end : ends) end = std::exchange(sum, sum + end);
    Documents documents(uses_.size());
    for (const Use& use : uses_) documents[ends[use.term]++] = use.document;
    return documents;
  }

  std::unordered_map<std::string_view, std::uint32_t, Hash> numbers_;
  std::vector<Use> uses_;
};

struct NumberItem {
  NumberKey number;
  std::uint32_t document;

  bool operator<(const NumberItem& other) const {
    auto order = number <=> other.number;
    return order != 0 ? order < 0 : document < other.document;
  }
};

// Sorts the items and calls `visit(number, documents)` for each number.
template <typename Visit>
void forEachNumber(std::vector<NumberItem>& items, Visit visit) {
  std::sort(items.begin(), items.end());
  Documents documents;
  for (std::size_t i = 0; i < items.size();) {
    documents.clear();
    std::size_t first = i;
    for (; i < items.size() && items[i].number == items[first].number; ++i)
      if (documents.empty() || documents.back() != items[i].document) documents.push_back(items[i].document);
    visit(items[first].number, documents);
  }
}

std::size_t textSize(const Value& value) {
  if (const std::string* text = value.ifString()) return text->size();
  std::size_t sum = 0;
  if (const Array* array = value.ifArray())
    for (const Value& element : *array) sum += textSize(element) + 1;
  return sum;
}

bool isListOfStrings(const Value& value) {
  const Array* array = value.ifArray();
  return array && std::all_of(array->begin(), array->end(),
                              [](const Value& element) { return element.ifString() != nullptr; });
}

// One field of new documents.
class FieldCollector {
 public:
  explicit FieldCollector(const IndexedField& field) : field_(field), place_(placeOfIndexedKey(field.key)) {}

  void collect(const IndexedDocument& from, std::uint32_t document) {
    const Value& value = from.values[place_];
    if (value.isNull()) {
      missing_.push_back(document);
    } else if (const std::string* text = value.ifString()) {
      collect(*text, document);
    } else if (field_.kind != IndexedField::Kind::exact) {
      unknown_.push_back(document);
    } else if (std::optional<NumberKey> number = numberKey(value)) {
      numbers_.push_back({*number, document});
    } else if (isListOfStrings(value)) {
      lists_.push_back(document);
      for (const Value& element : *value.ifArray()) texts_.add(*element.ifString(), document);
    } else {
      unknown_.push_back(document);
    }
  }

  void write(SectionWriter& sections, std::uint32_t count) {
    if (field_.kind == IndexedField::Kind::text) {
      TextFieldWriter writer(count);
      texts_.forEach([&](auto text, auto all) { writer.addValue(text, all); });
      words_.forEach([&](auto word, auto all) { writer.addWord(word, all); });
      writer.write(sections, missing_, unknown_, notAscii_);
    } else {
      ExactFieldWriter writer(count, field_.ordered, missing_, lists_, unknown_);
      forEachNumber(numbers_, [&](auto number, const Documents& all) { writer.add(number, all); });
      texts_.forEach([&](auto text, auto all) { writer.add(text, all); });
      writer.write(sections);
    }
  }

 private:
  void collect(const std::string& text, std::uint32_t document) {
    switch (field_.kind) {
      case IndexedField::Kind::exact:
        texts_.add(text, document);
        return;
      case IndexedField::Kind::path:
        for (std::size_t slash = text.find('/'); slash != std::string::npos;
             slash = text.find('/', slash + 1))
          numbers_.push_back({NumberKey{textDigest(std::string_view(text).substr(0, slash + 1))}, document});
        [[fallthrough]];
      case IndexedField::Kind::digest:
        numbers_.push_back({NumberKey{textDigest(text)}, document});
        return;
      case IndexedField::Kind::text:
        break;
    }
    if (!isAsciiText(text)) notAscii_.push_back(document);
    const std::string& folded = folded_.emplace_back(foldedText(text));
    texts_.add(folded, document);
    auto addWord = [&](std::string_view word) { words_.add(word, document); };
    forEachWord(folded, addWord);
    forEachFolder(folded, addWord);
  }

  const IndexedField& field_;
  const std::size_t place_;
  std::vector<NumberItem> numbers_;
  Terms texts_;
  Terms words_;
  std::deque<std::string> folded_;
  Documents missing_;
  Documents lists_;
  Documents unknown_;
  Documents notAscii_;
};

// Merges segments field by field.
class Merger {
 public:
  Merger(std::span<const SegmentPart> parts, SectionWriter& sections) : parts_(parts), sections_(sections) {}

  DocumentMaps run() {
    mergeDocuments();
    std::span<const IndexedField> fields = indexedFields();
    for (std::size_t i = 0; i < fields.size(); ++i)
      fields[i].kind == IndexedField::Kind::text ? mergeText(i) : mergeExact(i, fields[i].ordered);
    return std::move(maps_);
  }

 private:
  // Sources with the place of a key in each.
  using Places = std::vector<std::pair<std::size_t, std::uint32_t>>;

  void mergeDocuments() {
    for (const SegmentPart& part : parts_) maps_.emplace_back(part.segment->size(), kNoCode);
    Texts::Writer identifiers;
    std::vector<std::int64_t> rows;
    auto size = [](const Segment& segment) { return segment.size(); };
    auto key = [](const Segment& segment, std::uint32_t code) { return segment.identifiers()[code]; };
    auto visit = [&](std::string_view id, const Places& places) {
      for (auto [part, document] : places) {
        if (!parts_[part].live->contains(document)) continue;
        maps_[part][document] = static_cast<std::uint32_t>(rows.size());
        rows.push_back(parts_[part].segment->row(document));
        identifiers.add(id);
      }
    };
    forEachKey(segments(), size, key, visit);
    count_ = static_cast<std::uint32_t>(rows.size());
    identifiers.write(sections_);
    sections_.add(rows);
  }

  void mergeExact(std::size_t field, bool ordered) {
    std::vector<const ExactField*> all;
    for (const SegmentPart& part : parts_) all.push_back(&part.segment->exact(field));
    auto special = [&](Postings ExactField::*which) { return mapped(all, which); };
    ExactFieldWriter writer(count_, ordered, special(&ExactField::missing), special(&ExactField::lists),
                            special(&ExactField::unknown));
    auto add = [&](auto key, const Documents& found) { writer.add(key, found); };
    mergePostings(
        all, [](const ExactField& values) { return values.numbers(); },
        [](const ExactField& values, std::uint32_t i) { return values.number(i); },
        [](const ExactField& values, std::uint32_t i) { return std::pair(&values.documents, i); }, add);
    mergePostings(
        all, [](const ExactField& values) { return values.texts.size(); },
        [](const ExactField& values, std::uint32_t i) { return values.texts[i]; },
        [](const ExactField& values, std::uint32_t i) {
          return std::pair(&values.documents, values.numbers() + i);
        },
        add);
    writer.write(sections_);
  }

  void mergeText(std::size_t field) {
    std::vector<const TextField*> all;
    for (const SegmentPart& part : parts_) all.push_back(&part.segment->text(field));
    TextFieldWriter writer(count_);
    mergePostings(
        all, [](const TextField& text) { return text.values.size(); },
        [](const TextField& text, std::uint32_t i) { return text.values[i]; },
        [](const TextField& text, std::uint32_t i) { return std::pair(&text.documents, i); },
        [&](auto key, const Documents& found) { writer.addValue(key, found); });
    mergePostings(
        all, [](const TextField& text) { return text.words.size(); },
        [](const TextField& text, std::uint32_t i) { return text.words[i]; },
        [](const TextField& text, std::uint32_t i) { return std::pair(&text.wordDocuments, i); },
        [&](auto key, const Documents& found) { writer.addWord(key, found); });
    writer.write(sections_, mapped(all, &TextField::missing), mapped(all, &TextField::unknown),
                 mapped(all, &TextField::notAscii));
  }

  std::vector<const Segment*> segments() const {
    std::vector<const Segment*> all;
    for (const SegmentPart& part : parts_) all.push_back(part.segment.get());
    return all;
  }

  // Calls `visit(key, places)` for each distinct key of the sources in order, with who has it where.
  template <typename Source, typename Size, typename Key, typename Visit>
  void forEachKey(const std::vector<const Source*>& sources, Size size, Key key, Visit visit) {
    using KeyType = decltype(key(*sources[0], 0u));
    struct Head {
      KeyType key;
      std::size_t source;
      std::uint32_t at;
      std::uint32_t end;
    };
    std::vector<Head> heads;
    for (std::size_t i = 0; i < sources.size(); ++i)
      if (std::uint32_t end = size(*sources[i]); end > 0) heads.push_back({key(*sources[i], 0), i, 0, end});
    Places places;
    while (!heads.empty()) {
      KeyType least = heads.front().key;
      for (const Head& head : heads) least = head.key < least ? head.key : least;
      places.clear();
      for (Head& head : heads) {
        if (head.key != least) continue;
        places.emplace_back(head.source, head.at);
        if (++head.at < head.end) head.key = key(*sources[head.source], head.at);
      }
      visit(least, places);
      std::erase_if(heads, [](const Head& head) { return head.at == head.end; });
    }
  }

  // Adds each key that documents still have.
  template <typename Source, typename Size, typename Key, typename Slot, typename Add>
  void mergePostings(const std::vector<const Source*>& sources, Size size, Key key, Slot slot, Add add) {
    Documents found;
    auto visit = [&](auto least, const Places& places) {
      found.clear();
      for (auto [source, at] : places) {
        auto [postings, code] = slot(*sources[source], at);
        append(found, *postings, code, source);
      }
      if (!std::is_sorted(found.begin(), found.end())) std::sort(found.begin(), found.end());
      if (!found.empty()) add(least, found);
    };
    forEachKey(sources, size, key, visit);
  }

  void append(Documents& found, const Postings& postings, std::uint32_t code, std::size_t part) const {
    const std::vector<std::uint32_t>& map = maps_[part];
    postings.forEach(code, [&](std::uint32_t document) {
      if (map[document] != kNoCode) found.push_back(map[document]);
    });
  }

  template <typename Field>
  Documents mapped(const std::vector<const Field*>& all, Postings Field::*which) const {
    Documents found;
    for (std::size_t i = 0; i < all.size(); ++i) append(found, all[i]->*which, 0, i);
    std::sort(found.begin(), found.end());
    return found;
  }

  std::span<const SegmentPart> parts_;
  SectionWriter& sections_;
  DocumentMaps maps_;
  std::uint32_t count_ = 0;
};

}  // namespace

IndexedDocument::IndexedDocument(std::int64_t inRow, std::string withId, std::vector<Value> all)
    : row(inRow), id(std::move(withId)), values(std::move(all)) {
  for (Value& value : values)
    if (value.ifDictionary() || textSize(value) > kMaximumIndexedText) value = Dictionary();
}

std::vector<Value> indexedValues(const Dictionary& document) {
  std::vector<Value> values;
  values.reserve(indexedKeys().size());
  for (const std::string& key : indexedKeys()) {
    const Value* value = document.find(key);
    values.push_back(value ? *value : Value());
  }
  return values;
}

SegmentPtr inMemory(SectionWriter& sections) {
  // Memory does not fail.
  (void)sections.finish(kIndexVersion);
  return std::make_shared<const Segment>(SectionBytes(sections.takeMemory()));
}

SegmentPtr makeSegment(std::vector<IndexedDocument> documents) {
  if (documents.empty()) return nullptr;
  SectionWriter sections;
  std::sort(documents.begin(), documents.end(), [](const auto& a, const auto& b) { return a.id < b.id; });
  Texts::Writer identifiers;
  std::vector<std::int64_t> rows;
  for (const IndexedDocument& document : documents) {
    identifiers.add(document.id);
    rows.push_back(document.row);
  }
  identifiers.write(sections);
  sections.add(rows);
  std::vector<FieldCollector> fields(indexedFields().begin(), indexedFields().end());
  auto count = static_cast<std::uint32_t>(documents.size());
  for (std::uint32_t i = 0; i < count; ++i)
    for (FieldCollector& field : fields) field.collect(documents[i], i);
  for (FieldCollector& field : fields) field.write(sections, count);
  return inMemory(sections);
}

DocumentMaps mergeSegments(std::span<const SegmentPart> parts, SectionWriter& sections) {
  return Merger(parts, sections).run();
}

}  // namespace vornex::server
