#include "foundation/Text.h"
#include "server/index/FieldSearch.h"
#include "server/query/PredicateEvaluator.h"

namespace vornex::server {

namespace {

bool isOneWord(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), isWordByte);
}

// Looks for folded text in a field. A word is found by going through the vocabulary; anything else is
// narrowed by the words it is made of and then looked for in the texts themselves.
class TextSearch {
 public:
  TextSearch(const TextField& field, const DocumentSet& scope) : field_(field), scope_(scope) {}

  DocumentSet all() const {
    DocumentSet set(scope_.size(), true);
    DocumentSet others = field_.missing.documents(0);
    field_.unknown.addTo(others, 0);
    set -= others;
    return set;
  }

  DocumentSet equal(std::string_view text) const {
    DocumentSet set(scope_.size());
    if (std::uint32_t code = field_.values.find(text); code < field_.values.size())
      field_.documents.addTo(set, code);
    return set;
  }

  DocumentSet starting(std::string_view text) const {
    DocumentSet set(scope_.size());
    for (std::uint32_t code = field_.values.lowerBound(text);
         code < field_.values.size() && field_.values[code].starts_with(text); ++code)
      field_.documents.addTo(set, code);
    return set;
  }

  DocumentSet containing(std::string_view text) const {
    if (text.empty()) return all();
    if (isOneWord(text)) return withWordContaining(text);
    return verified(
        withWordsOf(text), [&](std::string_view value) { return value.find(text) != std::string_view::npos; },
        text);
  }

  // Documents whose words contain all pieces that stand in one word, and those that the others consist of.
  DocumentSet possible(const std::vector<std::string>& pieces) const {
    DocumentSet set = all();
    for (const std::string& piece : pieces)
      set &= isOneWord(piece) ? withWordContaining(piece) : withWordsOf(piece);
    return set;
  }

  template <typename Matches>
  DocumentSet verified(DocumentSet candidates, Matches matches, std::string_view part = {}) const {
    candidates &= scope_;
    DocumentSet set(scope_.size());
    std::uint32_t count = candidates.count();
    // One pass over all texts in their order costs less than many leaps.
    if (!part.empty() && count > field_.values.size() / 16) {
      field_.values.forEachContaining(part, [&](std::uint32_t code, std::size_t) {
        field_.documents.addTo(set, code);
        return true;
      });
      return set;
    }
    if (count > field_.values.size() / 4) {
      for (std::uint32_t code = 0; code < field_.values.size(); ++code)
        if (matches(field_.values[code])) field_.documents.addTo(set, code);
      set &= candidates;
      return set;
    }
    candidates.forEach([&](std::uint32_t document) {
      if (matches(field_.values[field_.codeOf[document]])) set.add(document);
    });
    return set;
  }

 private:
  DocumentSet withWordContaining(std::string_view part) const {
    DocumentSet set(scope_.size());
    field_.words.forEachContaining(part, [&](std::uint32_t word, std::size_t) {
      field_.wordDocuments.addTo(set, word);
      return true;
    });
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
    for (std::uint32_t code = field_.words.lowerBound(start);
         code < field_.words.size() && field_.words[code].starts_with(start); ++code)
      field_.wordDocuments.addTo(set, code);
    return set;
  }

  DocumentSet withWordEnding(std::string_view end) const {
    DocumentSet set(scope_.size());
    field_.words.forEachContaining(end, [&](std::uint32_t word, std::size_t at) {
      bool ends = at + end.size() == field_.words[word].size();
      if (ends) field_.wordDocuments.addTo(set, word);
      return ends;
    });
    return set;
  }

  // Documents that have every word of the text: the first one as an end, the last one as a start, where they
  // touch its edges.
  DocumentSet withWordsOf(std::string_view text) const {
    DocumentSet set = all();
    forEachWord(text, [&](std::string_view word) {
      bool first = word.data() == text.data();
      bool last = word.data() + word.size() == text.data() + text.size();
      set &= first ? withWordEnding(word) : last ? withWordStarting(word) : withWord(word);
    });
    return set;
  }

  const TextField& field_;
  const DocumentSet& scope_;
};

SegmentAnswer searchPattern(const TextField& field, const TextPattern& pattern, const DocumentSet& scope) {
  TextSearch search(field, scope);
  SegmentAnswer answer{DocumentSet(scope.size()), DocumentSet(scope.size())};
  TextOptions options = pattern.options();
  if (!options.caseInsensitive) {
    answer.open = search.possible(pattern.requiredPieces());
    return answer;
  }
  const std::string* literal = pattern.literal();
  auto matches = [&](std::string_view text) { return pattern.matchesNormalized(text); };
  if (!literal)
    answer.yes = search.verified(search.possible(pattern.requiredPieces()), matches);
  else if (pattern.place() == TextPattern::Place::anywhere)
    answer.yes = search.containing(*literal);
  else if (pattern.place() == TextPattern::Place::start)
    answer.yes = search.starting(*literal);
  else if (pattern.place() == TextPattern::Place::whole)
    answer.yes = search.equal(*literal);
  else
    answer.yes = search.verified(search.possible(pattern.requiredPieces()), matches);
  if (options.diacriticInsensitive) {
    // The texts have their marks still; those of ASCII have none.
    answer.open = field.notAscii.documents(0);
    answer.yes -= answer.open;
  }
  return answer;
}

SegmentAnswer searchEqual(const TextField& field, const Value& constant, TextOptions options,
                          const DocumentSet& scope) {
  TextSearch search(field, scope);
  SegmentAnswer answer{DocumentSet(scope.size()), DocumentSet(scope.size())};
  const std::string* text = constant.ifString();
  if (options.diacriticInsensitive)
    answer.open = search.all();
  else if (text && options.caseInsensitive)
    answer.yes = search.equal(*text);
  else if (text)
    answer.open = search.equal(foldedText(*text));
  return answer;
}

}  // namespace

bool needsTexts(const TextPattern& pattern) {
  return !pattern.literal() || !isOneWord(*pattern.literal());
}

SegmentAnswer searchText(const TextField& field, const Comparison& comparison, const DocumentSet& scope) {
  const Value& constant = std::get<Value>(comparison.right);
  const Array* constants = constant.ifArray();
  SegmentAnswer answer{DocumentSet(scope.size()), DocumentSet(scope.size())};
  if (comparison.pattern) {
    answer = searchPattern(field, *comparison.pattern, scope);
  } else if (comparison.op == Operator::equal && !constants && !constant.isNull()) {
    answer = searchEqual(field, constant, comparison.options, scope);
  } else if (comparison.op == Operator::in && constants) {
    for (const Value& one : *constants) {
      SegmentAnswer part = searchEqual(field, one, comparison.options, scope);
      answer.yes |= part.yes;
      answer.open |= part.open;
    }
    answer.open -= answer.yes;
  } else if (constant.isNull()) {
    bool present = comparison.op == Operator::notEqual;
    if (present) answer.yes = TextSearch(field, scope).all();
  } else {
    answer.open = TextSearch(field, scope).all();
  }
  if (holds(comparison, nullptr)) field.missing.addTo(answer.yes, 0);
  field.unknown.addTo(answer.open, 0);
  return answer;
}

}  // namespace vornex::server
