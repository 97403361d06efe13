#include <fmt/format.h>

#include <cstdlib>
#include <map>
#include <random>

#include "server/StoreTest.h"

// Random predicates over random documents, between random writes: the store's answers against an evaluation
// that shares nothing with the server's. Texts are made of a few signs whose folded forms stand in a table
// here. VORNEX_SEEDS is how many seeds there are, at 250 searches each; a failure names its seed.

namespace vornex::server {
namespace {

struct Sign {
  const char* text;
  const char* folded;
  const char* bare;
};

// Written twice are composed and decomposed forms of the same character.
const std::vector<Sign> kSigns = {
    {"a", "a", "a"},       {"A", "a", "a"},       {"b", "b", "b"},    {"e", "e", "e"},   {"é", "é", "e"},
    {"e\u0301", "é", "e"}, {"E\u0301", "é", "e"}, {"É", "é", "e"},    {"ß", "ss", "ss"}, {"s", "s", "s"},
    {"\n", "\n", "\n"},    {".", ".", "."},       {"(", "(", "("},    {"+", "+", "+"},   {"\"", "\"", "\""},
    {"\\", "\\", "\\"},    {" ", " ", " "},       {"日", "日", "日"}, {"*", "*", "*"},   {"'", "'", "'"},
    {"/", "/", "/"}};

using Text = std::vector<const Sign*>;

std::string written(const Text& text) {
  std::string all;
  for (const Sign* sign : text) all += sign->text;
  return all;
}

std::u32string codePoints(const std::string& text) {
  std::u32string result;
  for (unsigned char c : text) {
    if ((c & 0xc0) != 0x80)
      result += c < 0x80 ? c : c < 0xe0 ? c & 0x1f : c < 0xf0 ? c & 0x0f : c & 0x07;
    else
      result.back() = result.back() << 6 | (c & 0x3f);
  }
  return result;
}

// The text by the longest signs of the table, each in the form that is asked for.
std::string formed(std::string_view text, const char* Sign::*form) {
  std::string result;
  while (!text.empty()) {
    const Sign* best = nullptr;
    for (const Sign& sign : kSigns)
      if (text.starts_with(sign.text) &&
          (!best || std::string_view(sign.text).size() > std::string_view(best->text).size()))
        best = &sign;
    result += best ? best->*form : std::string(1, text.front());
    text.remove_prefix(best ? std::string_view(best->text).size() : 1);
  }
  return result;
}

// A piece of a pattern: some text, or any character, a number of times.
struct Atom {
  std::string text;
  bool any = false;
  int least = 1;
  bool many = false;
};

struct Pattern {
  std::vector<std::vector<Atom>> alternatives;
  std::string source;
};

bool matchesFrom(const std::vector<Atom>& atoms, std::size_t atom, std::u32string_view text, bool whole,
                 bool newlines) {
  if (atom == atoms.size()) return !whole || text.empty();
  const Atom& now = atoms[atom];
  std::u32string piece = codePoints(now.text);
  int most = now.many ? 1000 : 1;
  for (int times = 0; times <= most; ++times) {
    if (times >= now.least && matchesFrom(atoms, atom + 1, text, whole, newlines)) return true;
    bool fits = now.any ? !text.empty() && (newlines || text[0] != U'\n') : text.starts_with(piece);
    if (!fits) return false;
    text.remove_prefix(now.any ? 1 : piece.size());
  }
  return false;
}

bool foundIn(const Pattern& pattern, const std::string& text, const char* Sign::*form) {
  std::u32string all = codePoints(formed(text, form));
  for (std::vector<Atom> atoms : pattern.alternatives) {
    for (Atom& atom : atoms) atom.text = formed(atom.text, form);
    for (std::size_t at = 0; at <= all.size(); ++at)
      if (matchesFrom(atoms, 0, std::u32string_view(all).substr(at), false, false)) return true;
  }
  return false;
}

bool isWhole(const Pattern& pattern, const std::string& text, bool newlines) {
  return std::any_of(pattern.alternatives.begin(), pattern.alternatives.end(), [&](const auto& atoms) {
    return matchesFrom(atoms, 0, codePoints(text), true, newlines);
  });
}

struct Node {
  enum class Kind { leaf, all, any, none } kind = Kind::leaf;
  std::vector<Node> children;
  std::string key;
  std::string op;
  std::string modifier;
  std::string options;
  Value constant;
  Pattern pattern;
  // The key that stands on the right instead of a constant, or the keys in a list.
  std::vector<std::string> rightKeys;
  // What is added to the left side.
  std::optional<std::int64_t> added;

  std::string query() const;
  bool holds(const Value& document) const;

 private:
  bool leafHolds(const Value* value) const;
  bool keysHold(const Value& value, const Value& document) const;
  bool textHolds(const std::string& text) const;
  const char* Sign::*form() const;
};

std::string quoted(const std::string& text) {
  std::string result = "\"";
  for (char c : text) result += c == '"' ? "\\\"" : c == '\\' ? "\\\\" : std::string(1, c);
  return result + "\"";
}

std::string constantText(const Value& value) {
  if (value.isNull()) return "nil";
  if (const std::string* text = value.ifString()) return quoted(*text);
  if (const Array* array = value.ifArray()) {
    std::string all;
    for (const Value& element : *array) all += (all.empty() ? "" : ", ") + constantText(element);
    return "{" + all + "}";
  }
  return writeJson(value);
}

std::string Node::query() const {
  if (kind == Kind::none) return "NOT (" + children[0].query() + ")";
  if (kind == Kind::leaf) {
    std::string right = pattern.alternatives.empty() ? constantText(constant) : quoted(pattern.source);
    if (!rightKeys.empty() && !constant.ifArray()) right = "(" + rightKeys[0] + ")";
    if (!rightKeys.empty() && constant.ifArray()) right = fmt::format("{{{}}}", fmt::join(rightKeys, ", "));
    std::string left = added ? fmt::format("({} + {})", key, *added) : key;
    return (modifier.empty() ? "" : modifier + " ") + left + " " + op + options + " " + right;
  }
  std::string all;
  for (const Node& child : children)
    all += (all.empty() ? "(" : kind == Kind::all ? " AND (" : " OR (") + child.query() + ")";
  return all;
}

// Absent, number or text.
std::optional<long double> number(const Value& value) {
  if (const bool* boolean = value.ifBool()) return *boolean;
  if (const std::int64_t* integer = value.ifInteger()) return *integer;
  if (const double* real = value.ifReal()) return *real;
  return std::nullopt;
}

const char* Sign::*Node::form() const {
  return options.find('d') != std::string::npos ? &Sign::bare : options.empty() ? &Sign::text : &Sign::folded;
}

bool same(const Value& a, const Value& b, const char* Sign::*form) {
  const Array* listA = a.ifArray();
  const Array* listB = b.ifArray();
  if (listA && listB)
    return std::equal(
        listA->begin(), listA->end(), listB->begin(), listB->end(),
        [&](const Value& x, const Value& y) { return (x.isNull() && y.isNull()) || same(x, y, form); });
  if (a.ifDictionary()) return a == b;
  if (number(a) && number(b)) return *number(a) == *number(b);
  if (a.ifString() && b.ifString()) return formed(*a.ifString(), form) == formed(*b.ifString(), form);
  return false;
}

// -1, 0, 1; nothing when they have no order.
std::optional<int> order(const Value& a, const Value& b) {
  if (number(a) && number(b)) return *number(a) < *number(b) ? -1 : *number(a) > *number(b);
  if (a.ifString() && b.ifString()) return a.ifString()->compare(*b.ifString());
  return std::nullopt;
}

bool Node::textHolds(const std::string& text) const {
  if (op == "CONTAINS" && !rightKeys.empty()) {
    const char* Sign::*folded = form() == &Sign::text ? &Sign::folded : form();
    return formed(text, folded).find(formed(*constant.ifString(), folded)) != std::string::npos;
  }
  if (op == "CONTAINS") return foundIn(pattern, text, form() == &Sign::text ? &Sign::folded : form());
  if (op == "MATCHES") return isWhole(pattern, text, false);
  if (op == "LIKE") return isWhole(pattern, text, true);
  std::string whole = formed(text, form());
  std::string part = formed(*constant.ifString(), form());
  return op == "BEGINSWITH" ? whole.starts_with(part) : whole.ends_with(part);
}

bool Node::leafHolds(const Value* value) const {
  bool missing = !value || value->isNull();
  if (op == "==" && constant.isNull() && pattern.alternatives.empty()) return missing;
  if (missing) return false;
  if (op == "!=" && constant.isNull()) return true;
  if (op == "==") return same(*value, constant, form());
  if (op == "!=") return !same(*value, constant, form());
  auto inOrder = [&](const Value& other, auto test) {
    std::optional<int> known = order(*value, other);
    return known && test(*known);
  };
  if (op == "<") return inOrder(constant, [](int o) { return o < 0; });
  if (op == "<=") return inOrder(constant, [](int o) { return o <= 0; });
  if (op == ">") return inOrder(constant, [](int o) { return o > 0; });
  if (op == ">=") return inOrder(constant, [](int o) { return o >= 0; });
  const Array* list = constant.ifArray();
  if (op == "BETWEEN")
    return inOrder((*list)[0], [](int o) { return o >= 0; }) &&
           inOrder((*list)[1], [](int o) { return o <= 0; });
  if (op == "IN") {
    for (const Value& element : *list)
      if (same(*value, element, form())) return true;
    return false;
  }
  if (const std::string* text = value->ifString()) return textHolds(*text);
  if (const Array* array = value->ifArray())
    for (const Value& element : *array)
      if (element.ifString() && textHolds(*element.ifString())) return true;
  return false;
}

// Null when there is nothing; what the elements have when the path leads through an array.
Value reached(const Value& from, const std::string& path) {
  std::size_t dot = path.find('.');
  std::string rest = dot == std::string::npos ? "" : path.substr(dot + 1);
  if (const Array* array = from.ifArray()) {
    Array all;
    for (const Value& element : *array) all.push_back(reached(element, path));
    return all;
  }
  const Value* next = from.find(path.substr(0, dot));
  return !next ? Value() : rest.empty() ? *next : reached(*next, rest);
}

Value sum(const Value& value, std::int64_t added) {
  if (const bool* boolean = value.ifBool()) return *boolean + added;
  if (const std::int64_t* integer = value.ifInteger()) return *integer + added;
  if (const double* real = value.ifReal()) return *real + static_cast<double>(added);
  return {};
}

// With the document's own values on the right.
bool Node::keysHold(const Value& value, const Value& document) const {
  if (rightKeys.empty()) return leafHolds(&value);
  Node filled = *this;
  Array values;
  for (const std::string& right : rightKeys) values.push_back(reached(document, right));
  filled.constant = constant.ifArray() ? Value(values) : values[0];
  if (filled.constant.isNull()) return op == "==" && value.isNull();
  bool textual = op == "CONTAINS" || op == "BEGINSWITH" || op == "ENDSWITH";
  if (!textual || filled.constant.ifString()) return filled.leafHolds(&value);
  const Array* array = op == "CONTAINS" ? value.ifArray() : nullptr;
  return array && std::any_of(array->begin(), array->end(),
                              [&](const Value& element) { return same(element, filled.constant, form()); });
}

bool Node::holds(const Value& document) const {
  if (kind == Kind::none) return !children[0].holds(document);
  if (kind != Kind::leaf) {
    for (const Node& child : children)
      if (child.holds(document) != (kind == Kind::all)) return kind == Kind::any;
    return kind == Kind::all;
  }
  Value value = reached(document, key);
  if (added) value = sum(value, *added);
  const Array* array = value.ifArray();
  if (modifier.empty() || !array) return keysHold(value, document) != (modifier == "NONE");
  for (const Value& element : *array)
    if (keysHold(element, document) != (modifier == "ALL")) return modifier == "ANY";
  return modifier != "ANY";
}

class Generator {
 public:
  explicit Generator(unsigned seed) : random_(seed) {}

  std::size_t below(std::size_t count) { return random_() % count; }
  bool oneIn(std::size_t count) { return below(count) == 0; }

  template <typename T>
  const T& of(const std::vector<T>& choices) {
    return choices[below(choices.size())];
  }

  Text text(std::size_t longest) {
    Text result;
    for (std::size_t i = below(longest + 1); i > 0; --i) result.push_back(&of(kSigns));
    return result;
  }

  // Some folders of short names, mostly with the last slash.
  Text folders() {
    Text result;
    for (std::size_t i = 1 + below(4); i > 0; --i) {
      result.push_back(&kSigns.back());
      for (std::size_t length = below(3); length > 0; --length) result.push_back(&kSigns[below(4)]);
    }
    if (!oneIn(3)) result.push_back(&kSigns.back());
    return result;
  }

  // Mostly a part of a text that documents have, at times without the mark of its last character.
  Text excerpt(std::size_t longest) {
    if (oneIn(6)) return folders();
    if (seen_.empty() || oneIn(4)) return text(longest);
    const Text& whole = of(seen_);
    std::size_t begin = below(whole.size() + 1);
    std::size_t length = std::min(below(longest + 1), whole.size() - begin);
    Text part(whole.begin() + static_cast<std::ptrdiff_t>(begin),
              whole.begin() + static_cast<std::ptrdiff_t>(begin + length));
    if (!part.empty() && part.back()->text == std::string("e\u0301") && oneIn(2)) part.back() = &kSigns[3];
    return part;
  }

  std::string remembered(Text text) {
    seen_.push_back(text);
    return written(text);
  }

  Value scalar() {
    static const std::vector<Value> kValues = {
        nullptr,           true, false, 0,  1,    2,  -1, 1.5, 1.0, -0.5, 20240131120000123,
        20240131120000124, 2e16, "1",   "", "ab", "b"};
    return oneIn(3) ? Value(written(text(3))) : of(kValues);
  }

  Value tags() {
    Array all;
    for (std::size_t i = below(4); i > 0; --i)
      all.push_back(oneIn(6) ? scalar() : Value(remembered(text(8))));
    return all;
  }

  Array notes() {
    Array all;
    for (std::size_t i = below(3); i > 0; --i)
      all.push_back(oneIn(6) ? scalar() : Value(Dictionary{{"key", oneIn(4) ? tags() : scalar()}}));
    return all;
  }

  std::string path() {
    std::string made;
    for (std::size_t i = below(4); i > 0; --i) made += "/" + of(std::vector<std::string>{"a", "b", "\u00e9"});
    return made + (oneIn(3) ? "/" : "");
  }

  Dictionary document() {
    Dictionary made{{"name", remembered(text(14))}};
    if (!oneIn(4)) made.set("tags", oneIn(5) ? scalar() : tags());
    if (!oneIn(4)) made.set("fileext", oneIn(5) ? scalar() : Value(remembered(text(4))));
    for (const char* key : {"type", "trash", "project", "importdate", "other"})
      if (!oneIn(3)) made.set(key, oneIn(12) ? tags() : scalar());
    if (!oneIn(3)) made.set("importfrompath", oneIn(20) ? scalar() : Value(remembered(folders())));
    if (oneIn(2)) made.set("masterpath", oneIn(20) ? scalar() : Value(path()));
    if (oneIn(2)) made.set("notes", notes());
    if (!oneIn(3)) made.set("custom", oneIn(4) ? scalar() : Value(Dictionary{{"key", scalar()}}));
    return made;
  }

  Pattern pattern(const std::string& op) {
    Pattern made;
    addAlternative(made, op);
    while (op != "LIKE" && oneIn(6)) {
      made.source += "|";
      addAlternative(made, op);
    }
    return made;
  }

  void addAlternative(Pattern& made, const std::string& op) {
    Text literal = excerpt(7);
    if (literal.empty()) literal = {&kSigns[0]};
    std::vector<Atom>& atoms = made.alternatives.emplace_back();
    for (const Sign* sign : literal) {
      Atom atom;
      atom.any = oneIn(9);
      if (atom.any) {
        made.source += op == "LIKE" ? "?" : ".";
      } else {
        atom.text = sign->text;
        bool special = std::string_view(".(+*\\").find(atom.text) != std::string_view::npos;
        made.source += (special ? "\\" : "") + atom.text;
      }
      // A decomposed character is one to a pattern for folded text only.
      bool quantifiable = atom.any || op == "CONTAINS" || atom.text.size() == 1;
      if (op == "LIKE" && oneIn(5)) {
        atoms.push_back(atom);
        atom = Atom{"", true, 0, true};
        made.source += "*";
      } else if (op != "LIKE" && quantifiable && oneIn(9)) {
        std::size_t which = below(3);
        made.source += "?*+"[which];
        atom.least = which == 2 ? 1 : 0;
        atom.many = which > 0;
      }
      atoms.push_back(std::move(atom));
    }
  }

  Node leaf() {
    static const std::vector<std::string> kOps = {"==",         "!=",       "<",    "<=",       ">",
                                                  ">=",         "BETWEEN",  "IN",   "CONTAINS", "CONTAINS",
                                                  "BEGINSWITH", "ENDSWITH", "LIKE", "MATCHES"};
    static const std::vector<std::string> kTextKeys = {"name", "tags", "fileext", "importfrompath",
                                                       "notes.key"};
    static const std::vector<std::string> kKeys = {
        "type",      "trash",   "project", "importdate", "other",      "custom.key", "name",          "tags",
        "notes.key", "missing", "custom",  "_id",        "masterpath", "fileext",    "importfrompath"};
    Node node;
    node.op = of(kOps);
    bool textual = node.op.size() > 3 && node.op != "BETWEEN";
    node.key = of(textual && !oneIn(5) ? kTextKeys : kKeys);
    if (oneIn(5) && node.op != "BETWEEN" && node.op != "IN")
      node.modifier = of(std::vector<std::string>{"ANY", "ALL", "NONE"});
    bool isPattern = node.op == "LIKE" || node.op == "MATCHES";
    if (!isPattern && oneIn(8)) {
      node.rightKeys = {of(kKeys), of(kKeys)};
      if (node.op == "BETWEEN" || node.op == "IN") node.constant = Array();
      if (textual) node.options = of(std::vector<std::string>{"", "[c]", "[cd]"});
    } else if (node.op == "CONTAINS" || isPattern) {
      node.pattern = pattern(node.op);
      if (node.op == "CONTAINS") node.options = of(std::vector<std::string>{"", "[c]", "[cd]"});
    } else if (textual) {
      node.constant = node.key == "masterpath" ? path() : written(excerpt(8));
      node.options = of(std::vector<std::string>{"", "", "[c]", "[cd]"});
    } else if (node.op == "BETWEEN") {
      node.constant = Array{scalar(), scalar()};
    } else if (node.op == "IN") {
      Array list;
      for (std::size_t i = below(4); i > 0; --i) list.push_back(scalar());
      node.constant = list;
    } else {
      node.constant = scalar();
    }
    if (!textual && node.op != "IN" && oneIn(10)) node.added = static_cast<std::int64_t>(below(3));
    if (node.op == "IN" || node.op == "==" || node.op == "!=") node.options = oneIn(4) ? "[c]" : "";
    return node;
  }

  Node tree(int depth) {
    if (depth == 0 || oneIn(3)) return leaf();
    Node node;
    node.kind = of(std::vector{Node::Kind::all, Node::Kind::all, Node::Kind::any, Node::Kind::none});
    std::size_t children = node.kind == Node::Kind::none ? 1 : 1 + below(4);
    for (std::size_t i = 0; i < children; ++i) node.children.push_back(tree(depth - 1));
    return node;
  }

 private:
  std::mt19937 random_;
  std::vector<Text> seen_;
};

class StoreSearchTest : public StoreTest, public ::testing::WithParamInterface<unsigned> {
 protected:
  void add(Generator& generator, std::size_t count) {
    Array added;
    for (std::size_t i = 0; i < count; ++i) added.push_back(generator.document());
    std::vector<Result<std::string>> ids = store_->create(added).value();
    // The same import twice is one asset.
    for (std::size_t i = 0; i < ids.size(); ++i) {
      Dictionary document = *added[i].ifDictionary();
      document.set("_id", ids[i].value());
      model_.emplace(ids[i].value(), document);
    }
  }

  void change(Generator& generator, std::size_t oneIn) {
    Array changes;
    for (auto& [id, document] : model_) {
      if (!generator.oneIn(oneIn)) continue;
      Dictionary change = generator.document();
      // Dictionaries would merge, which is not the subject here.
      change.erase("custom");
      document.merge(change);
      document.set("_id", id);
      change.set("_id", id);
      changes.push_back(change);
    }
    auto outcomes = store_->update(changes);
    ASSERT_TRUE(outcomes);
    for (const auto& outcome : *outcomes) ASSERT_TRUE(outcome);
  }

  void removeSome(Generator& generator, std::size_t oneIn) {
    std::vector<std::string> doomed;
    for (const auto& [id, document] : model_)
      if (generator.oneIn(oneIn)) doomed.push_back(id);
    ASSERT_TRUE(store_->remove(doomed));
    for (const std::string& id : doomed) model_.erase(id);
  }

  void write(Generator& generator) {
    if (generator.oneIn(2)) add(generator, 1 + generator.below(20));
    if (generator.oneIn(2)) change(generator, 2 + generator.below(model_.size() + 2));
    if (generator.oneIn(3)) removeSome(generator, 10 + generator.below(model_.size() + 2));
    if (generator.oneIn(20)) reopen();
  }

  // By sort of value, value, identifier.
  std::vector<std::string> expected(const Node& node, const std::string& sortField, bool ascending) const {
    using Key = std::tuple<int, long double, std::string, std::string>;
    std::map<Key, std::string> ordered;
    for (const auto& [id, document] : model_) {
      if (!node.holds(document)) continue;
      const Value* value = document.find(sortField);
      Key key{0, 0, "", id};
      if (sortField == "_id") value = nullptr;
      if (value && number(*value)) key = {1, *number(*value), "", id};
      if (value && value->ifString()) key = {2, 0, formed(*value->ifString(), &Sign::folded), id};
      ordered[key] = id;
    }
    std::vector<std::string> ids;
    for (const auto& [key, id] : ordered) ids.push_back(id);
    if (!ascending) std::reverse(ids.begin(), ids.end());
    return ids;
  }

  std::vector<std::string> answered(const std::string& query, const std::string& sortField, bool ascending,
                                    std::int64_t limit, std::size_t total) {
    std::vector<std::string> ids;
    for (std::int64_t page = 0; page * limit <= static_cast<std::int64_t>(total); ++page) {
      SearchPage part = search({page, limit, query, sortField, ascending});
      EXPECT_EQ(part.total, static_cast<std::int64_t>(total)) << query;
      for (const std::string& document : part.documents)
        ids.push_back(*fromJson(document).find("_id")->ifString());
    }
    return ids;
  }

  std::map<std::string, Dictionary> model_;
};

TEST_P(StoreSearchTest, AnswersAsAPlainEvaluationDoes) {
  Generator generator(GetParam());
  static const std::vector<std::string> kSortFields = {"name",    "other",          "importdate", "type",
                                                       "fileext", "importfrompath", "_id"};
  // Some libraries are small, some large enough for lists as well as bits, and for several segments.
  add(generator, generator.of(std::vector<std::size_t>{5, 60, 400}));
  std::size_t hits = 0;
  for (int i = 0; i < 250; ++i) {
    if (generator.oneIn(12)) write(generator);
    Node node = generator.tree(3);
    std::string sortField = generator.of(kSortFields);
    bool ascending = generator.oneIn(2);
    std::vector<std::string> wanted = expected(node, sortField, ascending);
    hits += wanted.size();
    auto limit = static_cast<std::int64_t>(std::max<std::size_t>(20, wanted.size() / 3));
    ASSERT_EQ(answered(node.query(), sortField, ascending, limit, wanted.size()), wanted)
        << "seed " << GetParam() << ": " << node.query() << " by " << sortField;
  }
  EXPECT_GT(hits, 1000u);
  EXPECT_TRUE(store_->checkIntegrity());
}

unsigned seeds() {
  const char* given = std::getenv("VORNEX_SEEDS");
  return given ? static_cast<unsigned>(std::atoi(given)) : 4;
}

INSTANTIATE_TEST_SUITE_P(Seeds, StoreSearchTest, ::testing::Range(1u, seeds() + 1));

}  // namespace
}  // namespace vornex::server
