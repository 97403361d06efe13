#include "foundation/Text.h"
#include "server/index/FieldSearch.h"
#include "server/query/PredicateEvaluator.h"

namespace vornex::server {

namespace {

// A row of codes.
struct CodeRange {
  std::uint32_t begin = 0;
  std::uint32_t end = 0;
};

// One bit for each of the codes from `begin` on. The compiler makes the comparisons of many codes one
// instruction; the multiplication gathers the lowest bits of eight bytes.
std::uint64_t inRange(std::span<const std::uint32_t, 64> codes, std::uint32_t begin, std::uint32_t size) {
  std::array<std::uint8_t, 64> flags;
  for (std::size_t i = 0; i < codes.size(); ++i) flags[i] = codes[i] - begin < size;
  std::uint64_t bits = 0;
  for (std::size_t i = 0; i < 8; ++i) {
    std::uint64_t eight = 0;
    for (std::size_t j = 0; j < 8; ++j) eight |= std::uint64_t{flags[i * 8 + j]} << (j * 8);
    bits |= (eight * 0x0102040810204080 >> 56) << (i * 8);
  }
  return bits;
}

// Collects the documents of the values that fulfil a comparison.
class ExactSearch {
 public:
  ExactSearch(const Segment& segment, std::size_t field, const Comparison& comparison, std::uint32_t size,
              TimeLimit& limit)
      : segment_(segment),
        field_(field),
        values_(segment.exact(field)),
        comparison_(comparison),
        constant_(std::get<Value>(comparison.right)),
        limit_(limit),
        found_(size) {}

  DocumentSet run() {
    if (std::optional<CodeRange> range = numberRange())
      addRange(*range);
    else if (comparison_.pattern)
      addMatching(*comparison_.pattern);
    else if (asksForSingleValues())
      addSingleValues();
    else
      addByTrial(true);
    return std::move(found_);
  }

  // Documents with a value that does not fulfil it.
  DocumentSet runForFailing() {
    addByTrial(false);
    return std::move(found_);
  }

 private:
  void add(std::uint32_t code) { values_.documents.addTo(found_, code); }

  // The numbers that fulfil a comparison with a number, which are a row; strings do not.
  std::optional<CodeRange> numberRange() const {
    if (comparison_.op == Operator::between) {
      std::optional<NumberKey> low = numberKey((*constant_.ifArray())[0]);
      std::optional<NumberKey> high = numberKey((*constant_.ifArray())[1]);
      if (!low || !high) return std::nullopt;
      return CodeRange{values_.lowerBound(*low), after(*high)};
    }
    std::optional<NumberKey> number = numberKey(constant_);
    if (!number) return std::nullopt;
    switch (comparison_.op) {
      case Operator::equal:
        return CodeRange{values_.lowerBound(*number), after(*number)};
      case Operator::less:
        return CodeRange{0, values_.lowerBound(*number)};
      case Operator::lessOrEqual:
        return CodeRange{0, after(*number)};
      case Operator::greater:
        return CodeRange{after(*number), values_.numbers()};
      case Operator::greaterOrEqual:
        return CodeRange{values_.lowerBound(*number), values_.numbers()};
      default:
        return std::nullopt;
    }
  }

  // The first code whose number is greater.
  std::uint32_t after(NumberKey number) const {
    std::uint32_t code = values_.lowerBound(number);
    return code < values_.numbers() && values_.number(code) == number ? code + 1 : code;
  }

  // Numbers are never in arrays, so that the documents' own codes tell as much as the lists of the codes do;
  // a look at all of them costs less than many lists.
  void addRange(CodeRange range) {
    std::span<const std::uint32_t> codeOf = values_.codeOf;
    std::uint32_t size = range.end > range.begin ? range.end - range.begin : 0;
    if (size < codeOf.size() / 16 || codeOf.empty()) {
      for (std::uint32_t code = range.begin; code < range.end; ++code) add(code);
      return;
    }
    std::span<std::uint64_t> words = found_.words();
    std::size_t whole = codeOf.size() / 64;
    for (std::size_t i = 0; i < whole; ++i)
      words[i] |= inRange(codeOf.subspan(i * 64).first<64>(), range.begin, size);
    for (std::size_t document = whole * 64; document < codeOf.size(); ++document)
      if (codeOf[document] - range.begin < size) found_.add(static_cast<std::uint32_t>(document));
  }

  void addMatching(const TextPattern& pattern) {
    TextOptions options = pattern.options();
    std::uint32_t numbers = values_.numbers();
    if (const std::string* only = pattern.onlyText()) return addText(*only);
    if (!options.caseInsensitive || options.diacriticInsensitive) {
      for (std::uint32_t i = 0; i < values_.texts.size(); ++i) {
        limit_.spend(pattern.steps(values_.texts[i].size()));
        if (pattern.matches(values_.texts[i])) add(numbers + i);
      }
      return;
    }
    const Texts& folded = segment_.foldedTexts(field_);
    const std::string* literal = pattern.literal();
    if (literal && !literal->empty() && pattern.place() == TextPattern::Place::anywhere) {
      limit_.spend(folded.bytes());
      folded.forEachContaining(*literal, [&](std::uint32_t i) { add(numbers + i); });
      return;
    }
    for (std::uint32_t i = 0; i < folded.size(); ++i) {
      limit_.spend(pattern.steps(folded[i].size()));
      if (pattern.matchesNormalized(folded[i])) add(numbers + i);
    }
  }

  bool asksForSingleValues() const {
    if (comparison_.options.any()) return false;
    if (comparison_.op == Operator::equal) return constant_.ifString() != nullptr;
    const Array* list = constant_.ifArray();
    return comparison_.op == Operator::in && list &&
           std::all_of(list->begin(), list->end(),
                       [](const Value& value) { return value.ifString() || numberKey(value); });
  }

  void addSingleValues() {
    if (const std::string* text = constant_.ifString()) return addText(*text);
    for (const Value& value : *constant_.ifArray()) {
      limit_.spend(0);
      if (const std::string* text = value.ifString())
        addText(*text);
      else if (NumberKey number = *numberKey(value); after(number) > values_.lowerBound(number))
        add(values_.lowerBound(number));
    }
  }

  void addText(const std::string& text) {
    if (std::uint32_t i = values_.texts.find(text); i < values_.texts.size()) add(values_.numbers() + i);
  }

  void addByTrial(bool fulfils) {
    for (std::uint32_t code = 0; code < values_.numbers(); ++code) {
      Value value = values_.number(code).value();
      if (holds(comparison_, &value, limit_) == fulfils) add(code);
    }
    for (std::uint32_t i = 0; i < values_.texts.size(); ++i) {
      Value value(values_.texts[i]);
      if (holds(comparison_, &value, limit_) == fulfils) add(values_.numbers() + i);
    }
  }

  const Segment& segment_;
  std::size_t field_;
  const ExactField& values_;
  const Comparison& comparison_;
  const Value& constant_;
  TimeLimit& limit_;
  DocumentSet found_;
};

// Whether what an array of strings says to a comparison that looks at it as a whole depends on its elements.
bool dependsOnElements(const Comparison& comparison) {
  const Array* constants = std::get<Value>(comparison.right).ifArray();
  if (comparison.op == Operator::contains) return true;
  if (comparison.op != Operator::in) return constants && comparison.op != Operator::between;
  return constants && std::any_of(constants->begin(), constants->end(),
                                  [](const Value& value) { return value.ifArray() != nullptr; });
}

void answerForLists(const ExactField& field, const Comparison& comparison, SegmentAnswer& answer,
                    TimeLimit& limit) {
  static const Value kList{Array{}};
  if (dependsOnElements(comparison))
    field.lists.addTo(answer.open, 0);
  else if (holds(comparison, &kList, limit))
    field.lists.addTo(answer.yes, 0);
}

SegmentAnswer answerForNil(const ExactField& field, Operator op, std::uint32_t size) {
  SegmentAnswer answer{DocumentSet(size), DocumentSet(size)};
  field.missing.addTo(answer.yes, 0);
  if (op == Operator::notEqual) answer.yes.complement();
  return answer;
}

// The string that a comparison asks a value to be, when it asks for nothing else.
const std::string* onlyText(const Comparison& comparison) {
  if (comparison.pattern) return comparison.pattern->onlyText();
  bool equal = comparison.op == Operator::equal && !comparison.options.any();
  return equal ? std::get<Value>(comparison.right).ifString() : nullptr;
}

}  // namespace

SegmentAnswer searchExact(const Segment& segment, std::size_t index, const Comparison& comparison,
                          const DocumentSet& scope, TimeLimit& limit) {
  const ExactField& field = segment.exact(index);
  bool isNil = std::get<Value>(comparison.right).isNull();
  bool equality = comparison.op == Operator::equal || comparison.op == Operator::notEqual;
  if (isNil && equality && comparison.modifier == Modifier::direct)
    return answerForNil(field, comparison.op, scope.size());
  SegmentAnswer answer{ExactSearch(segment, index, comparison, scope.size(), limit).run(),
                       DocumentSet(scope.size())};
  bool anyElement = comparison.pattern || comparison.modifier == Modifier::any;
  if (!field.lists.none(0)) {
    DocumentSet lists = field.lists.documents(0);
    if (comparison.modifier == Modifier::all) {
      answer.yes -= lists;
      lists -= ExactSearch(segment, index, comparison, scope.size(), limit).runForFailing();
      answer.yes |= lists;
    } else if (!anyElement) {
      answer.yes -= lists;
      answerForLists(field, comparison, answer, limit);
    }
  }
  if (holds(comparison, nullptr, limit)) field.missing.addTo(answer.yes, 0);
  field.unknown.addTo(answer.open, 0);
  return answer;
}

SegmentAnswer searchDigests(const ExactField& field, bool isPath, const Comparison& comparison,
                            const DocumentSet& scope) {
  SegmentAnswer answer{DocumentSet(scope.size()), DocumentSet(scope.size())};
  const std::string* text = onlyText(comparison);
  const TextPattern* pattern = comparison.pattern.get();
  bool below = isPath && pattern && pattern->place() == TextPattern::Place::start && pattern->literal() &&
               !pattern->options().any() && pattern->literal()->ends_with('/');
  if (!text && !below) {
    answer.open = scope;
    return answer;
  }
  NumberKey digest{textDigest(below ? *pattern->literal() : *text)};
  std::uint32_t code = field.lowerBound(digest);
  if (code < field.numbers() && field.number(code) == digest) field.documents.addTo(answer.open, code);
  field.unknown.addTo(answer.open, 0);
  return answer;
}

SegmentAnswer searchIdentifiers(const Segment& segment, const Comparison& comparison, TimeLimit& limit) {
  const Texts& identifiers = segment.identifiers();
  SegmentAnswer answer{DocumentSet(segment.size()), DocumentSet(segment.size())};
  const Value& constant = std::get<Value>(comparison.right);
  auto addOne = [&](std::string_view id) {
    if (std::uint32_t document = identifiers.find(id); document < identifiers.size())
      answer.yes.add(document);
  };
  const Array* list = comparison.op == Operator::in ? constant.ifArray() : nullptr;
  if (const std::string* id = onlyText(comparison)) {
    addOne(*id);
  } else if (list && !comparison.options.any()) {
    for (const Value& one : *list)
      if (const std::string* text = one.ifString()) addOne(*text);
  } else {
    for (std::uint32_t document = 0; document < segment.size(); ++document) {
      Value value(identifiers[document]);
      if (holds(comparison, &value, limit)) answer.yes.add(document);
    }
  }
  return answer;
}

bool addIdentifier(const Segment& segment, const Comparison& comparison, DocumentSet& found) {
  const std::string* id = onlyText(comparison);
  if (!id) return false;
  std::uint32_t document = segment.identifiers().find(*id);
  if (document < segment.size()) found.add(document);
  return true;
}

bool addExactText(const ExactField& field, const Comparison& comparison, DocumentSet& found) {
  const std::string* text = onlyText(comparison);
  if (!text || !field.lists.none(0) || !field.unknown.none(0)) return false;
  std::uint32_t i = field.texts.find(*text);
  if (i < field.texts.size()) field.documents.addTo(found, field.numbers() + i);
  return true;
}

}  // namespace vornex::server
