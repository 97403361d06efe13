#include <algorithm>
#include <array>
#include <functional>

#include "foundation/Text.h"
#include "server/index/FieldSearch.h"
#include "server/query/PredicateEvaluator.h"

namespace vornex::server {

namespace {

// Looks for folded text in a field. A word is found by going through the vocabulary, a folder by looking it
// up there; anything else is narrowed by the words and folders it is made of and then looked for in the texts
// themselves.
class TextSearch {
 public:
  TextSearch(const TextField& field, const DocumentSet& scope, TimeLimit& limit)
      : field_(field), scope_(scope), limit_(limit) {}

  DocumentSet none() const { return DocumentSet(scope_.size()); }

  DocumentSet all() const {
    DocumentSet set(scope_.size(), true);
    DocumentSet others = field_.missing.documents(0);
    field_.unknown.addTo(others, 0);
    set -= others;
    return set;
  }

  void addEqual(DocumentSet& set, std::string_view text) const {
    limit_.spend(0);
    if (std::uint32_t code = field_.values.find(text); code < field_.values.size())
      field_.documents.addTo(set, code);
  }

  DocumentSet equal(std::string_view text) const {
    DocumentSet set = none();
    addEqual(set, text);
    return set;
  }

  DocumentSet starting(std::string_view text) const {
    DocumentSet set(scope_.size());
    auto [first, last] = field_.values.startingWith(text);
    for (std::uint32_t code = first; code < last; ++code) field_.documents.addTo(set, code);
    return set;
  }

  DocumentSet containing(std::string_view text) const {
    if (text.empty()) return all();
    if (isOneWord(text)) return withWordContaining(text);
    if (isOneFolder(text)) return withWord(text);
    // In many short texts a short part is found sooner with a table that is made once.
    constexpr std::size_t kShortPart = 32;
    if (text.size() > kShortPart) {
      auto contains = [&](std::string_view value) {
        limit_.spend(value.size());
        return containsText(value, text);
      };
      return verified(withWordsOf(text), contains, text);
    }
    std::boyer_moore_horspool_searcher searcher(text.begin(), text.end());
    auto contains = [&](std::string_view value) {
      limit_.spend(value.size());
      return std::search(value.begin(), value.end(), searcher) != value.end();
    };
    return verified(withWordsOf(text), contains, text);
  }

  DocumentSet matching(const TextPattern& pattern) const {
    return verified(possible(pattern.requiredPieces()), [&](std::string_view value) {
      limit_.spend(pattern.steps(value.size()));
      return pattern.matchesNormalized(value);
    });
  }

  // Documents whose words contain the pieces that stand in one word, and those that the others consist of.
  DocumentSet possible(const std::vector<std::string>& pieces) const {
    DocumentSet set = all();
    for (std::size_t i = 0; i < std::min(pieces.size(), kEnoughWords) && !set.empty(); ++i)
      set &= isOneWord(pieces[i]) ? withWordContaining(pieces[i]) : withWordsOf(pieces[i]);
    return set;
  }

 private:
  // More words than these do not narrow much further.
  static constexpr std::size_t kEnoughWords = 16;

  // Documents whose texts, which lie anywhere, are fetched together before the first is read.
  struct Ahead {
    std::array<std::uint32_t, 64> documents;
    std::size_t size = 0;
  };

  template <typename Matches>
  void addMatching(DocumentSet& set, Ahead& ahead, Matches& matches) const {
    std::array<std::string_view, std::tuple_size_v<decltype(Ahead::documents)>> texts;
    for (std::size_t i = 0; i < ahead.size; ++i) {
      texts[i] = field_.values[field_.codeOf[ahead.documents[i]]];
      for (std::size_t at = 0; at < std::min<std::size_t>(texts[i].size(), 192); at += 64)
        __builtin_prefetch(texts[i].data() + at);
    }
    for (std::size_t i = 0; i < ahead.size; ++i)
      if (matches(texts[i])) set.add(ahead.documents[i]);
    ahead.size = 0;
  }

  template <typename Matches>
  DocumentSet verified(DocumentSet candidates, Matches matches, std::string_view part = {}) const {
    candidates &= scope_;
    DocumentSet set(scope_.size());
    std::uint32_t count = candidates.count();
    // One pass over all texts in their order costs less than many leaps.
    if (!part.empty() && count > field_.values.size() / 16) {
      limit_.spend(field_.values.bytes());
      field_.values.forEachContaining(part, [&](std::uint32_t code) { field_.documents.addTo(set, code); });
      return set;
    }
    if (count > field_.values.size() / 4) {
      for (std::uint32_t code = 0; code < field_.values.size(); ++code)
        if (matches(field_.values[code])) field_.documents.addTo(set, code);
      set &= candidates;
      return set;
    }
    // Paths are mostly asked for from their beginning; such texts need not be read.
    auto [first, last] = part.empty() ? std::pair(0u, 0u) : field_.values.startingWith(part);
    Ahead ahead;
    candidates.forEach([&, first = first, last = last](std::uint32_t document) {
      if (std::uint32_t code = field_.codeOf[document]; code >= first && code < last) {
        set.add(document);
        return;
      }
      ahead.documents[ahead.size++] = document;
      if (ahead.size == ahead.documents.size()) addMatching(set, ahead, matches);
    });
    addMatching(set, ahead, matches);
    return set;
  }

  DocumentSet withWordContaining(std::string_view part) const {
    limit_.spend(field_.words.bytes());
    DocumentSet set = none();
    field_.words.forEachContaining(part, [&](std::uint32_t word) { field_.wordDocuments.addTo(set, word); });
    return set;
  }

  DocumentSet withWord(std::string_view word) const {
    DocumentSet set(scope_.size());
    if (std::uint32_t code = field_.words.find(word); code < field_.words.size())
      field_.wordDocuments.addTo(set, code);
    return set;
  }

  DocumentSet withWordStarting(std::string_view start) const {
    DocumentSet set(scope_.size());
    auto [first, last] = field_.words.startingWith(start);
    for (std::uint32_t code = first; code < last; ++code) field_.wordDocuments.addTo(set, code);
    return set;
  }

  DocumentSet withWordEnding(std::string_view end) const {
    limit_.spend(field_.words.bytes());
    DocumentSet set = none();
    field_.words.forEachContaining(end, [&](std::uint32_t word) {
      if (field_.words[word].ends_with(end)) field_.wordDocuments.addTo(set, word);
    });
    return set;
  }

  // Documents that have the folders and words of the text: its first word as an end, its last one as a start,
  // where they touch its edges.
  DocumentSet withWordsOf(std::string_view text) const {
    DocumentSet set = all();
    std::size_t words = 0;
    forEachFolder(text, [&](std::string_view folder) {
      if (++words <= kEnoughWords && !set.empty()) set &= withWord(folder);
    });
    forEachWord(text, [&](std::string_view word) {
      if (++words > kEnoughWords || set.empty()) return;
      bool first = word.data() == text.data();
      bool last = word.data() + word.size() == text.data() + text.size();
      set &= first ? withWordEnding(word) : last ? withWordStarting(word) : withWord(word);
    });
    return set;
  }

  const TextField& field_;
  const DocumentSet& scope_;
  TimeLimit& limit_;
};

SegmentAnswer searchPattern(const TextField& field, const TextPattern& pattern, const TextSearch& search) {
  SegmentAnswer answer{search.none(), search.none()};
  TextOptions options = pattern.options();
  if (!options.caseInsensitive) {
    answer.open = search.possible(pattern.requiredPieces());
    return answer;
  }
  const std::string* literal = pattern.literal();
  if (!literal)
    answer.yes = search.matching(pattern);
  else if (pattern.place() == TextPattern::Place::anywhere)
    answer.yes = search.containing(*literal);
  else if (pattern.place() == TextPattern::Place::start)
    answer.yes = search.starting(*literal);
  else if (pattern.place() == TextPattern::Place::whole)
    answer.yes = search.equal(*literal);
  else
    answer.yes = search.matching(pattern);
  if (options.diacriticInsensitive) {
    // The texts have their marks still; those of ASCII have none.
    answer.open = field.notAscii.documents(0);
    answer.yes -= answer.open;
  }
  return answer;
}

// Whether the text is one of the constants.
SegmentAnswer searchEqual(std::span<const Value> constants, TextOptions options, const TextSearch& search) {
  SegmentAnswer answer{search.none(), search.none()};
  if (options.diacriticInsensitive) {
    answer.open = search.all();
    return answer;
  }
  for (const Value& constant : constants) {
    const std::string* text = constant.ifString();
    if (text && options.caseInsensitive)
      search.addEqual(answer.yes, *text);
    else if (text)
      search.addEqual(answer.open, foldedText(*text));
  }
  return answer;
}

SegmentAnswer searchNotEqual(const Value& constant, TextOptions options, const TextSearch& search) {
  SegmentAnswer equal = searchEqual({&constant, 1}, options, search);
  SegmentAnswer answer{search.all(), std::move(equal.open)};
  answer.yes -= equal.yes;
  answer.yes -= answer.open;
  return answer;
}

}  // namespace

bool needsTexts(const TextPattern& pattern) {
  const std::string* literal = pattern.literal();
  return !literal || (!isOneWord(*literal) && !isOneFolder(*literal));
}

SegmentAnswer searchText(const TextField& field, const Comparison& comparison, const DocumentSet& scope,
                         TimeLimit& limit) {
  const Value& constant = std::get<Value>(comparison.right);
  const Array* constants = constant.ifArray();
  TextSearch search(field, scope, limit);
  SegmentAnswer answer{search.none(), search.none()};
  if (comparison.pattern)
    answer = searchPattern(field, *comparison.pattern, search);
  else if (comparison.op == Operator::notEqual)
    answer = searchNotEqual(constant, comparison.options, search);
  else if (comparison.op == Operator::equal && !constants)
    answer = searchEqual({&constant, 1}, comparison.options, search);
  else if (comparison.op == Operator::in && constants)
    answer = searchEqual(*constants, comparison.options, search);
  else if (!constant.isNull())
    answer.open = search.all();
  if (holds(comparison, nullptr, limit)) field.missing.addTo(answer.yes, 0);
  field.unknown.addTo(answer.open, 0);
  return answer;
}

}  // namespace vornex::server
