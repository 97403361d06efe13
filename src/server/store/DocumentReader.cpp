#include "server/store/DocumentReader.h"

#include <simdjson.h>
#include <xxhash.h>

#include <algorithm>
#include <cstring>

#include "foundation/Json.h"
#include "foundation/Text.h"

namespace vornex::server {

namespace ondemand = simdjson::ondemand;

namespace {

constexpr const char* kBlanks = " \t\r\n";

// Whether nothing stands behind what was read.
bool isAtEnd(ondemand::document& document) {
  return document.current_location().error() == simdjson::OUT_OF_BOUNDS;
}

// Whether the text is a number of JSON without an exponent (RFC 8259, section 6), and short enough for a
// double to hold it for sure.
bool isPlainNumber(std::string_view text) {
  constexpr std::size_t kDigitsOfDoubles = 308;
  if (text.size() > kDigitsOfDoubles) return false;
  auto skip = [&](std::string_view characters, std::size_t most) {
    std::size_t count = std::min({text.find_first_not_of(characters), text.size(), most});
    text.remove_prefix(count);
    return count;
  };
  constexpr std::string_view kDigits = "0123456789";
  skip("-", 1);
  if (skip("0", 1) == 0 && skip(kDigits, kDigitsOfDoubles) == 0) return false;
  if (skip(".", 1) == 1 && skip(kDigits, kDigitsOfDoubles) == 0) return false;
  return text.empty();
}

// A copy of some JSON with what the parser wants to be readable behind it.
class PaddedText {
 public:
  simdjson::padded_string_view copyOf(std::string_view text) {
    bytes_.resize(std::max(bytes_.size(), text.size() + simdjson::SIMDJSON_PADDING));
    std::memcpy(bytes_.data(), text.data(), text.size());
    std::memset(bytes_.data() + text.size(), 0, simdjson::SIMDJSON_PADDING);
    return simdjson::padded_string_view(bytes_.data(), text.size(), bytes_.size());
  }

 private:
  std::vector<char> bytes_;
};

}  // namespace

// One look at a document after the other. What it does not take, which is little of what is ever sent, is
// left to the reader that knows what is wrong and where.
class DocumentReader::Pass {
 public:
  explicit Pass(const std::vector<std::string>& keys) : keys_(keys) {}

  /// Whether the text is an object that no rule is broken by.
  bool checkAll(std::string_view json) { return start(json) && checkFields() && isAtEnd(document_); }
  /// Whether a key may occur twice in it.
  bool repeats() const { return repeats_; }
  /// Where the "_id" begins and where the next key does; both at the end of the text for those that are not.
  std::pair<std::size_t, std::size_t> placeOfIdentifier() const { return identifier_; }

  /// Whether the text begins like an object with all the keys, or is one with some.
  bool findKeys(std::string_view json) { return start(json) && findFields(); }

  /// What was found, by the keys' places.
  std::vector<Value> takeValues() { return std::move(values_); }
  const std::vector<bool>& found() const { return found_; }

 private:
  // Two levels more are around it in a page.
  static constexpr std::size_t kMaximumDepth = 510;

  bool start(std::string_view json) {
    values_.assign(keys_.size(), Value());
    found_.assign(keys_.size(), false);
    digests_.clear();
    repeats_ = false;
    identifier_ = {json.size(), json.size()};
    unescaped_.resize(std::max(unescaped_.size(), json.size() + simdjson::SIMDJSON_PADDING));
    simdjson::padded_string_view text = text_.copyOf(json);
    begin_ = text.data();
    return !parser_.iterate(text).get(document_) && !document_.get_object().get(object_);
  }

  bool checkFields() {
    for (auto each : object_) {
      ondemand::field field;
      std::string_view key;
      if (std::move(each).get(field) || !readKey(field, key)) return false;
      auto begin = static_cast<std::size_t>(field.key().raw() - begin_) - 1;
      if (identifier_.first < begin && identifier_.second > begin) identifier_.second = begin;
      if (key == "_id") identifier_.first = begin;
      std::size_t place = placeOf(key);
      if (!read(field.value(), place < keys_.size() ? &values_[place] : nullptr, 2)) return false;
    }
    compareKeys(0);
    return true;
  }

  bool findFields() {
    std::size_t missing = keys_.size();
    for (auto each : object_) {
      if (missing == 0) return true;
      ondemand::field field;
      std::string_view key;
      if (std::move(each).get(field) || !text(field.key(), key)) return false;
      std::size_t place = placeOf(key);
      if (place == keys_.size()) continue;
      if (!read(field.value(), &values_[place], 2)) return false;
      missing -= found_[place] ? 0 : 1;
      found_[place] = true;
    }
    return true;
  }

  /// Builds the value unless `into` is null.
  bool read(ondemand::value value, Value* into, std::size_t depth) {
    if (into) *into = Value();
    ondemand::json_type type;
    if (value.type().get(type)) return false;
    switch (type) {
      case ondemand::json_type::object:
        return depth <= kMaximumDepth && readObject(value, into, depth);
      case ondemand::json_type::array:
        return depth <= kMaximumDepth && readArray(value, into, depth);
      case ondemand::json_type::string:
        return readString(value, into);
      case ondemand::json_type::number:
        return readNumber(value, into);
      case ondemand::json_type::boolean:
        return readBoolean(value, into);
      case ondemand::json_type::null:
        break;
    }
    bool null = false;
    return !value.is_null().get(null) && null;
  }

  bool readObject(ondemand::value value, Value* into, std::size_t depth) {
    ondemand::object object;
    if (value.get_object().get(object)) return false;
    Dictionary entries;
    const std::size_t first = digests_.size();
    for (auto each : object) {
      ondemand::field field;
      std::string_view key;
      if (std::move(each).get(field) || !readKey(field, key)) return false;
      if (!read(field.value(), into ? &entries[key] : nullptr, depth + 1)) return false;
    }
    if (into) *into = std::move(entries);
    compareKeys(first);
    return true;
  }

  bool readArray(ondemand::value value, Value* into, std::size_t depth) {
    ondemand::array array;
    if (value.get_array().get(array)) return false;
    Array elements;
    for (auto each : array) {
      ondemand::value element;
      if (std::move(each).get(element)) return false;
      if (into) elements.emplace_back();
      if (!read(element, into ? &elements.back() : nullptr, depth + 1)) return false;
    }
    if (into) *into = std::move(elements);
    return true;
  }

  bool readString(ondemand::value value, Value* into) {
    ondemand::raw_json_string raw;
    std::string_view read;
    if (value.get_raw_json_string().get(raw) || !text(raw, read)) return false;
    if (into) *into = std::string(read);
    return true;
  }

  // The parser's own conversion is wrong for some long texts.
  bool readNumber(ondemand::value value, Value* into) {
    std::string_view text = value.raw_json_token();
    text = text.substr(0, text.find_last_not_of(kBlanks) + 1);
    if (isPlainNumber(text)) {
      if (into) *into = *jsonNumber(text);
      return true;
    }
    Result<Value> number = parseJson(text);
    if (!number || !number->isNumber()) return false;
    if (into) *into = std::move(*number);
    return true;
  }

  bool readBoolean(ondemand::value value, Value* into) {
    bool boolean = false;
    if (value.get_bool().get(boolean)) return false;
    if (into) *into = boolean;
    return true;
  }

  bool readKey(ondemand::field& field, std::string_view& key) {
    if (!text(field.key(), key)) return false;
    digests_.push_back(XXH3_64bits(key.data(), key.size()));
    return true;
  }

  /// The text of a string, until the next one is asked for. The parser knows that it ends and that its bytes
  /// are UTF-8; escapes may spell half a surrogate pair, which no text can hold.
  bool text(ondemand::raw_json_string raw, std::string_view& text) {
    const char* begin = raw.raw();
    text = {begin, static_cast<std::size_t>(static_cast<const char*>(std::strchr(begin, '"')) - begin)};
    if (text.find('\\') == std::string_view::npos) return true;
    std::uint8_t* unescaped = unescaped_.data();
    return !parser_.unescape(raw, unescaped).get(text) && isValidUtf8(text);
  }

  std::size_t placeOf(std::string_view key) const {
    auto place = std::lower_bound(keys_.begin(), keys_.end(), key);
    if (place == keys_.end() || *place != key) return keys_.size();
    return static_cast<std::size_t>(place - keys_.begin());
  }

  // The keys of the object that ends are noted from `first` on.
  void compareKeys(std::size_t first) {
    auto begin = digests_.begin() + static_cast<std::ptrdiff_t>(first);
    std::sort(begin, digests_.end());
    repeats_ = repeats_ || std::adjacent_find(begin, digests_.end()) != digests_.end();
    digests_.resize(first);
  }

  const std::vector<std::string>& keys_;
  std::vector<Value> values_;
  std::vector<bool> found_;
  PaddedText text_;
  std::vector<std::uint8_t> unescaped_;
  // The digests of the keys of all objects that are being read.
  std::vector<XXH64_hash_t> digests_;
  bool repeats_ = false;
  std::pair<std::size_t, std::size_t> identifier_;
  const char* begin_ = nullptr;
  ondemand::parser parser_;
  ondemand::document document_;
  ondemand::object object_;
};

// The object without the entry that begins at one place and is followed by the key at the next, which is the
// end of the text for the last entry.
static std::string withoutEntry(std::string_view json, std::size_t begin, std::size_t next) {
  std::string text(json.substr(0, begin));
  if (next < json.size()) return text.append(json.substr(next));
  text.resize(text.find_last_not_of(kBlanks) + 1);
  if (text.back() == ',') text.pop_back();
  return text + '}';
}

DocumentReader::DocumentReader(const std::vector<std::string>& keys)
    : keys_(keys), pass_(std::make_unique<Pass>(keys)) {}

DocumentReader::~DocumentReader() = default;

std::optional<SentDocument> DocumentReader::sentSoundly(std::string_view json) {
  if (!pass_->checkAll(json)) return std::nullopt;
  auto [begin, next] = pass_->placeOfIdentifier();
  std::string changed;
  if (begin < json.size()) json = changed = withoutEntry(json, begin, next);
  std::string compact;
  // In texts line feeds are escaped.
  if (json.find('\n') != std::string_view::npos) {
    compact.resize(json.size() + simdjson::SIMDJSON_PADDING);
    std::size_t size = 0;
    if (simdjson::minify(json.data(), json.size(), compact.data(), size)) return std::nullopt;
    json = std::string_view(compact).substr(0, size);
  }
  json = json.substr(0, json.rfind('}') + 1);
  json.remove_prefix(json.find_first_not_of(kBlanks, json.find('{') + 1));
  return SentDocument{std::string(json), pass_->takeValues()};
}

Result<SentDocument> DocumentReader::sent(std::string_view json) {
  std::optional<SentDocument> document = sentSoundly(json);
  if (document && !pass_->repeats()) return std::move(*document);
  Result<Value> value = parseJson(json);
  if (!value) return tl::unexpected(value.error());
  Dictionary* entries = value->ifDictionary();
  if (!entries) return failure("json", 0, "an asset is an object");
  entries->erase("_id");
  // What still looks like a repeated key has another key's digest.
  document = sentSoundly(writeJson(*value));
  if (!document) return failure("json", 0, "nested too deeply");
  return std::move(*document);
}

Result<Dictionary> DocumentReader::entries(std::string_view json) {
  Dictionary entries;
  if (pass_->findKeys(json)) {
    std::vector<Value> values = pass_->takeValues();
    for (std::size_t i = 0; i < keys_.size(); ++i)
      if (pass_->found()[i]) entries.set(keys_[i], std::move(values[i]));
    return entries;
  }
  Result<Value> value = parseJson(withValidText(std::string(json)));
  if (!value) return tl::unexpected(value.error());
  if (!value->ifDictionary()) return failure("json", 0, "a document is an object");
  for (const std::string& key : keys_)
    if (const Value* entry = value->ifDictionary()->find(key)) entries.set(key, *entry);
  return entries;
}

std::string withValidText(std::string document) {
  if (isValidUtf8(document)) return document;
  return validUtf8(document);
}

namespace {

using Objects = std::vector<std::string_view>;

// The text of what begins and ends with these brackets, in the parser's copy.
template <typename Container>
std::optional<std::string_view> textOf(Container& container, char open, char close) {
  std::string_view raw;
  if (container.raw_json().get(raw)) return std::nullopt;
  raw = raw.substr(0, raw.find_last_not_of(kBlanks) + 1);
  return raw.front() == open && raw.back() == close ? std::optional(raw) : std::nullopt;
}

std::optional<Objects> objectsOf(ondemand::array& array) {
  Objects objects;
  for (auto each : array) {
    ondemand::object object;
    if (each.get_object().get(object)) return std::nullopt;
    std::optional<std::string_view> text = textOf(object, '{', '}');
    if (!text) return std::nullopt;
    objects.push_back(*text);
  }
  return objects;
}

}  // namespace

std::optional<Objects> objectsInArray(std::string_view json, std::string_view key) {
  PaddedText padded;
  ondemand::parser parser;
  ondemand::document document;
  ondemand::object body;
  simdjson::padded_string_view copy = padded.copyOf(json);
  auto original = [&](std::string_view text) {
    return json.substr(static_cast<std::size_t>(text.data() - copy.data()), text.size());
  };
  if (parser.iterate(copy).get(document) || document.get_object().get(body)) return std::nullopt;
  std::optional<Objects> objects;
  std::string others;
  for (auto each : body) {
    ondemand::field field;
    std::string_view name;
    if (std::move(each).get(field) || field.unescaped_key().get(name)) return std::nullopt;
    if (name != key) continue;
    ondemand::array array;
    if (objects || field.value().get_array().get(array)) return std::nullopt;
    std::optional<std::string_view> text = textOf(array, '[', ']');
    if (!text || array.reset().error()) return std::nullopt;
    objects = objectsOf(array);
    if (!objects) return std::nullopt;
    std::size_t begin = static_cast<std::size_t>(text->data() - copy.data());
    others = std::string(json.substr(0, begin)).append("[]").append(json.substr(begin + text->size()));
  }
  if (!objects || !isAtEnd(document) || !parseJson(others)) return std::nullopt;
  for (std::string_view& object : *objects) object = original(object);
  return objects;
}

}  // namespace vornex::server
