#include "server/query/FoldedPattern.h"

#include <re2/re2.h>

namespace vornex::server {

namespace {

bool isAsciiAlphanumeric(char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

class PatternFolder {
 public:
  PatternFolder(std::string_view pattern, TextOptions options)
      : rest_(pattern), lastNameEnd_(pattern.rfind(":]")), size_(pattern.size()), options_(options) {}

  FoldedPattern fold() {
    while (!rest_.empty()) readOne();
    endLiteral();
    endRun();
    if (alternatives_) result_.required.clear();
    if (result_.plain) result_.literal = normalized(allText_);
    return std::move(result_);
  }

 private:
  void readOne() {
    switch (rest_.front()) {
      case '\\':
        return readEscape();
      case '[':
        return copyMeaning(classLength());
      case '(':
        return readGroup();
      case ')':
        copyMeaning(1);
        if (depth_ > 0) --depth_;
        return;
      case '|':
        if (depth_ == 0) alternatives_ = true;
        return copyMeaning(1);
      case '.':
      case '^':
      case '$':
        return copyMeaning(1);
      case '*':
      case '?':
      case '+':
        return readQuantifier(1);
      case '{':
        if (std::size_t length = countLength()) return readQuantifier(length);
        return addText(1);
      default:
        return addText(1);
    }
  }

  void addText(std::size_t length) {
    literal_ += rest_.substr(0, length);
    rest_.remove_prefix(length);
  }

  // Copies what has a meaning of its own; literal text before it ends there.
  void copyMeaning(std::size_t length) {
    endLiteral();
    endRun();
    result_.plain = false;
    result_.expression += composed(rest_.substr(0, length));
    rest_.remove_prefix(length);
  }

  // "\Q...\E" and escaped signs are text; the other escapes have a meaning.
  void readEscape() {
    if (rest_.size() < 2) return copyMeaning(rest_.size());
    char c = rest_[1];
    if (c == 'Q') {
      rest_.remove_prefix(2);
      std::size_t end = std::min(rest_.find("\\E"), rest_.size());
      addText(end);
      rest_.remove_prefix(std::min<std::size_t>(2, rest_.size()));
      return;
    }
    if (!isAsciiAlphanumeric(c)) {
      rest_.remove_prefix(1);
      return addText(1);
    }
    copyMeaning(escapeLength(c));
  }

  std::size_t escapeLength(char c) const {
    if (isDigit(c)) {
      std::size_t length = 2;
      while (length < 4 && length < rest_.size() && isDigit(rest_[length])) ++length;
      return length;
    }
    if (c != 'p' && c != 'P' && c != 'x') return 2;
    if (rest_.size() > 2 && rest_[2] == '{') return std::min(rest_.find('}'), rest_.size() - 1) + 1;
    return std::min<std::size_t>(c == 'x' ? 4 : 3, rest_.size());
  }

  // A class ends at the first "]" that is not its first member, escaped, or the end of a "[:name:]".
  std::size_t classLength() const {
    std::size_t read = size_ - rest_.size();
    auto namesEndAfter = [&](std::size_t at) {
      return lastNameEnd_ != std::string_view::npos && read + at < lastNameEnd_;
    };
    std::size_t at = 1;
    if (at < rest_.size() && rest_[at] == '^') ++at;
    if (at < rest_.size() && rest_[at] == ']') ++at;
    while (at < rest_.size() && rest_[at] != ']') {
      if (rest_[at] == '\\')
        at += 2;
      else if (rest_.substr(at, 2) == "[:" && namesEndAfter(at))
        at = rest_.find(":]", at) + 2;
      else
        ++at;
    }
    return std::min(at + 1, rest_.size());
  }

  void readGroup() {
    if (rest_.substr(0, 2) != "(?") {
      copyMeaning(1);
      ++depth_;
      return;
    }
    std::size_t end = std::min(rest_.find_first_of(":)>"), rest_.size() - 1);
    bool onlyFlags = rest_[end] == ')';
    copyMeaning(end + 1);
    if (!onlyFlags) ++depth_;
  }

  // The length of "{2}", "{2,}" or "{2,3}" at the front; 0 when the brace is text.
  std::size_t countLength() const {
    std::size_t at = 1;
    auto skipDigits = [&] {
      std::size_t first = at;
      while (at < rest_.size() && isDigit(rest_[at])) ++at;
      return at > first;
    };
    if (!skipDigits()) return 0;
    if (at < rest_.size() && rest_[at] == ',') {
      ++at;
      skipDigits();
    }
    return at < rest_.size() && rest_[at] == '}' ? at + 1 : 0;
  }

  // A quantifier applies to the last character before it, which normalizing may have made several.
  void readQuantifier(std::size_t length) {
    if (!literal_.empty()) {
      std::string text = composed(literal_);
      std::size_t last = lastCodePoint(text);
      literal_ = text.substr(0, last);
      endLiteral();
      std::string repeated = normalized(text.substr(last));
      std::string quoted = RE2::QuoteMeta(repeated);
      result_.expression += codePointCount(repeated) == 1 ? quoted : "(?:" + quoted + ")";
      if (rest_.front() == '+') run_ += repeated;
    }
    copyMeaning(length);
  }

  void endLiteral() {
    allText_ += literal_;
    std::string text = normalized(literal_);
    result_.expression += RE2::QuoteMeta(text);
    run_ += text;
    literal_.clear();
  }

  void endRun() {
    if (!run_.empty() && depth_ == 0) result_.required.push_back(run_);
    run_.clear();
  }

  std::string composed(std::string_view text) const {
    return options_.any() ? composedText(text) : std::string(text);
  }
  std::string normalized(std::string_view text) const { return normalizedText(composed(text), options_); }

  std::string_view rest_;
  // Where the last ":]" of the whole pattern stands.
  std::size_t lastNameEnd_;
  std::size_t size_;
  TextOptions options_;
  FoldedPattern result_;
  std::string allText_;
  // The text read since the last sign with a meaning, as written.
  std::string literal_;
  // The normalized text that certainly stands together in a match.
  std::string run_;
  std::size_t depth_ = 0;
  bool alternatives_ = false;
};

}  // namespace

FoldedPattern foldPattern(std::string_view pattern, TextOptions options) {
  return PatternFolder(pattern, options).fold();
}

std::string unescapedPattern(std::string_view pattern) {
  static constexpr std::string_view kEscaped = "|$^*+()[]";
  std::string text;
  for (std::size_t i = 0; i < pattern.size(); ++i) {
    bool escape = pattern[i] == '\\' && i + 1 < pattern.size() &&
                  kEscaped.find(pattern[i + 1]) != std::string_view::npos;
    if (!escape) text += pattern[i];
  }
  return text;
}

}  // namespace vornex::server
