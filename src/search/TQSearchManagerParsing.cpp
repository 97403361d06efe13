#include <unicode/regex.h>
#include <unicode/utext.h>
#include <vornex/TQSearchManager.h>
#include <vornex/TQVornexUtil.h>

#include <stdexcept>

#include "foundation/Text.h"

namespace vornex {

namespace {

using Terms = TQSearchManager::Terms;

struct Range {
  std::size_t begin;
  std::size_t end;
};

/// What a splitter finds: terms and their operator, or an error, or neither when it cannot tell.
struct Split {
  std::optional<Terms> terms;
  std::int64_t operatorType = kSearchInvalid;
  TQErrorPtr error;
};

void require(UErrorCode status) {
  if (U_FAILURE(status)) throw std::runtime_error(u_errorName(status));
}

/// A compiled pattern that is found in UTF-8 text, letter case ignored. Throws for a pattern that is none,
/// and for a text that takes it too long.
class Pattern {
 public:
  explicit Pattern(const std::string& text) {
    UErrorCode status = U_ZERO_ERROR;
    UParseError position;
    pattern_.reset(icu::RegexPattern::compile(icu::UnicodeString::fromUTF8(text), UREGEX_CASE_INSENSITIVE,
                                              position, status));
    require(status);
  }

  /// The byte ranges of all matches from left to right.
  std::vector<Range> matches(const std::string& text) const {
    std::vector<Range> ranges;
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<UText, decltype(&utext_close)> input(
        utext_openUTF8(nullptr, text.data(), static_cast<std::int64_t>(text.size()), &status), &utext_close);
    std::unique_ptr<icu::RegexMatcher> matcher(pattern_->matcher(status));
    require(status);
    matcher->reset(input.get());
    while (matcher->find(status) && U_SUCCESS(status))
      ranges.push_back({static_cast<std::size_t>(matcher->start64(status)),
                        static_cast<std::size_t>(matcher->end64(status))});
    require(status);
    return ranges;
  }

 private:
  std::unique_ptr<icu::RegexPattern> pattern_;
};

// Never destroyed: workers may parse while the process ends.
const Pattern& andPattern() {
  static const auto* pattern = new Pattern(R"(([[:space:]]AND[[:space:]]))");
  return *pattern;
}

const Pattern& orPattern() {
  static const auto* pattern = new Pattern(R"(([[:space:]]OR[[:space:]])|([[:space:]]["|"][[:space:]]))");
  return *pattern;
}

const Pattern& blankPattern() {
  static const auto* pattern = new Pattern("[[:space:]]");
  return *pattern;
}

const Pattern& quoteRunPattern() {
  static const auto* pattern = new Pattern("\"+");
  return *pattern;
}

bool contains(const std::string& text, const char* part) {
  return text.find(part) != std::string::npos;
}

bool hasTerms(const std::optional<Terms>& terms) {
  return terms && !terms->empty();
}

Split found(Terms terms, std::int64_t operatorType) {
  return {std::move(terms), operatorType, nullptr};
}

Split failed(std::int64_t code, const std::string& key) {
  return {std::nullopt, kSearchInvalid, TQVornexUtil::errorWithCode(code, LocalizedString(key))};
}

Split mixedOperators() {
  return failed(10015, "search.string.operator.invalid");
}

void appendCleaned(Terms& terms, const std::string& text) {
  std::string term = TQSearchManager::replaceSearchString(text);
  if (!term.empty()) terms.push_back(std::move(term));
}

std::optional<Terms> splitByPattern(const std::string& string, const Pattern& separator) {
  std::vector<Range> matches = separator.matches(string);
  if (matches.empty()) return std::nullopt;
  Terms terms;
  std::size_t position = 0;
  for (const Range& match : matches) {
    appendCleaned(terms, string.substr(position, match.begin - position));
    position = match.end;
  }
  appendCleaned(terms, string.substr(position));
  return terms;
}

/// The terms of a segment outside quotes. Without a separator, none are listed: the segment itself is the
/// term.
Split splitSegment(const std::string& segment) {
  std::optional<Terms> terms = splitByPattern(segment, orPattern());
  if (hasTerms(terms)) return found(*terms, kSearchOR);
  terms = splitByPattern(segment, andPattern());
  if (hasTerms(terms)) return found(*terms, kSearchAND);
  terms = splitByPattern(segment, blankPattern());
  if (hasTerms(terms)) return found(*terms, kSearchAND);
  return found({}, kSearchAND);
}

void appendSegment(Terms& terms, const Split& split, const std::string& segment) {
  if (split.terms->empty()) return appendCleaned(terms, segment);
  // Terms beside a phrase are cleaned a second time, which escapes their escapes too.
  for (const std::string& term : *split.terms) appendCleaned(terms, term);
}

bool isFreeOfOtherOperator(const std::string& string, std::int64_t operatorType) {
  if (operatorType == kSearchOR) return !contains(string, " AND ") && !contains(string, " and ");
  if (operatorType == kSearchAND)
    return !contains(string, " OR ") && !contains(string, " or ") && !contains(string, " | ");
  return true;
}

Split splitWithoutQuotes(const std::string& string) {
  std::optional<Terms> terms = splitByPattern(string, orPattern());
  if (hasTerms(terms))
    return isFreeOfOtherOperator(string, kSearchOR) ? found(*terms, kSearchOR) : mixedOperators();
  terms = splitByPattern(string, andPattern());
  if (hasTerms(terms))
    return isFreeOfOtherOperator(string, kSearchAND) ? found(*terms, kSearchAND) : mixedOperators();
  terms = splitByPattern(string, blankPattern());
  if (hasTerms(terms)) return found(*terms, kSearchAND);
  return found({TQSearchManager::replaceSearchString(string)}, kSearchOR);
}

/// White space between, before and after phrases joins nothing.
bool isBlank(const std::string& segment) {
  return trimmedWhitespace(segment).empty();
}

/// Runs of quotes open and close phrases in turn. A clash of operators between two phrases is left to the
/// splitter without quotes; after the last phrase it is an error.
Split splitAroundQuotes(const std::string& string) {
  std::vector<Range> marks = quoteRunPattern().matches(string);
  if (marks.empty()) return {};
  Terms terms;
  std::optional<std::int64_t> operatorType;
  std::size_t position = 0;
  bool inQuotes = false;
  for (const Range& mark : marks) {
    std::string segment = string.substr(position, mark.begin - position);
    position = mark.end;
    if (inQuotes) {
      appendCleaned(terms, segment);
    } else if (!isBlank(segment)) {
      Split split = splitSegment(segment);
      if (operatorType && *operatorType != split.operatorType) return {};
      appendSegment(terms, split, segment);
      operatorType = split.operatorType;
    }
    inQuotes = !inQuotes;
  }
  std::string rest = string.substr(position);
  if (isBlank(rest)) return found(std::move(terms), operatorType.value_or(kSearchAND));
  if (inQuotes) {
    appendCleaned(terms, rest);
    return found(std::move(terms), operatorType.value_or(kSearchAND));
  }
  Split split = splitSegment(rest);
  if (operatorType && *operatorType != split.operatorType) return mixedOperators();
  if (split.operatorType == kSearchOR && split.terms->size() >= 2)
    return failed(10013, "search.string.invalid");
  appendSegment(terms, split, rest);
  return found(std::move(terms), split.operatorType);
}

Split splitSearchString(const std::string& string) {
  if (string.empty()) return found({}, kSearchOR);
  if (std::count(string.begin(), string.end(), '"') % 2 != 0)
    return failed(10014, "search.string.double.quot.invalid");
  Split split = splitAroundQuotes(string);
  if (split.error || hasTerms(split.terms)) return split;
  return splitWithoutQuotes(string);
}

/// Calls back with what the splitter makes of the string.
template <typename Splitter>
void deliver(Splitter splitter, const std::string& string,
             const TQSearchManager::ParseCompletion& completion) {
  Split split;
  try {
    split = splitter(validUtf8(string));
  } catch (const std::exception&) {
    split = failed(10013, "search.string.invalid");
  }
  completion(std::move(split.terms), split.operatorType, std::move(split.error));
}

}  // namespace

std::string TQSearchManager::replaceSearchString(const std::string& string) {
  std::string trimmed = trimmedWhitespace(string);
  std::size_t begin = trimmed.find_first_not_of('"');
  if (begin == std::string::npos) return "";
  std::string term;
  for (char c : trimmed.substr(begin, trimmed.find_last_not_of('"') - begin + 1)) {
    if (std::string_view("|$^*+()[]").find(c) != std::string_view::npos) term += '\\';
    term += c;
  }
  return term;
}

std::optional<Terms> TQSearchManager::matchSearchStringsFromString(const std::string& string,
                                                                   const std::string& pattern) const {
  try {
    return splitByPattern(validUtf8(string), Pattern(pattern));
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

std::optional<Terms> TQSearchManager::matchANDSearchString(const std::string& string) const {
  return splitByPattern(validUtf8(string), andPattern());
}

std::optional<Terms> TQSearchManager::matchORSearchString(const std::string& string) const {
  return splitByPattern(validUtf8(string), orPattern());
}

std::optional<Terms> TQSearchManager::matchSpaceSearchString(const std::string& string) const {
  return splitByPattern(validUtf8(string), blankPattern());
}

bool TQSearchManager::validSearchStringFromString(const std::string& string,
                                                  std::int64_t operatorType) const {
  return isFreeOfOtherOperator(string, operatorType);
}

void TQSearchManager::matchSearchStringsFromString(const std::string& string,
                                                   const ParseCompletion& completion) const {
  deliver(splitWithoutQuotes, string, completion);
}

void TQSearchManager::matchDoubleQuotSearchStringsFromString(const std::string& string,
                                                             const ParseCompletion& completion) const {
  deliver(splitAroundQuotes, string, completion);
}

void TQSearchManager::parseSearchString(const OptionalString& string,
                                        const ParseCompletion& completion) const {
  deliver(splitSearchString, string.value_or(""), completion);
}

}  // namespace vornex
