#include "server/store/DocumentReader.h"

#include <fmt/format.h>
#include <rapidjson/error/en.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <xxhash.h>

#include <algorithm>

#include "foundation/Json.h"
#include "foundation/Text.h"

namespace vornex::server {

namespace {

// Builds what a document has under the wanted keys from the parser's events. A false answer ends the parse.
class ValueBuilder {
 public:
  explicit ValueBuilder(const std::vector<std::string>& keys)
      : keys_(keys), values_(keys.size()), isFound_(keys.size()) {}

  bool Null() { return add(Value()); }
  bool Bool(bool value) { return add(value); }
  // Numbers come as text: the parser's own conversion is not sound for every input.
  bool Int(int) { return false; }
  bool Uint(unsigned) { return false; }
  bool Int64(std::int64_t) { return false; }
  bool Uint64(std::uint64_t) { return false; }
  bool Double(double) { return false; }
  bool RawNumber(const char* text, rapidjson::SizeType length, bool) {
    if (skips()) return scalarAtTop();
    std::optional<Value> number = jsonNumber({text, length});
    return number && add(std::move(*number));
  }
  bool String(const char* text, rapidjson::SizeType length, bool) {
    return skips() ? scalarAtTop() : add(std::string(text, length));
  }

  bool Key(const char* text, rapidjson::SizeType length, bool) {
    std::string_view key(text, length);
    if (depth_ > 1) {
      if (wanted_) open_.back().key = key;
      return true;
    }
    auto place = std::lower_bound(keys_.begin(), keys_.end(), key);
    wanted_ = place != keys_.end() && *place == key;
    wantedPlace_ = static_cast<std::size_t>(place - keys_.begin());
    return true;
  }

  bool StartObject() { return begin(Dictionary()); }
  bool StartArray() { return depth_ > 0 && begin(Array()); }
  bool EndObject(rapidjson::SizeType) { return end(); }
  bool EndArray(rapidjson::SizeType) { return end(); }

  bool complete() const { return found_ == keys_.size(); }
  std::vector<Value> take() { return std::move(values_); }
  /// Those that were there.
  Dictionary takeEntries() {
    Dictionary entries;
    for (std::size_t i = 0; i < keys_.size(); ++i)
      if (isFound_[i]) entries.set(keys_[i], std::move(values_[i]));
    return entries;
  }

 private:
  struct Container {
    Value value;
    std::string key;
  };

  bool skips() const { return !wanted_; }
  // A document is an object: nothing else may stand at its top.
  bool scalarAtTop() const { return depth_ > 0; }

  template <typename Empty>
  bool begin(Empty empty) {
    if (++depth_ > 1 && wanted_) open_.push_back(Container{Value(std::move(empty)), {}});
    return true;
  }

  bool end() {
    --depth_;
    if (open_.empty()) return true;
    Value finished = std::move(open_.back().value);
    open_.pop_back();
    return add(std::move(finished));
  }

  bool add(Value value) {
    if (skips()) return scalarAtTop();
    if (open_.empty()) {
      found_ += isFound_[wantedPlace_] ? 0 : 1;
      isFound_[wantedPlace_] = true;
      values_[wantedPlace_] = std::move(value);
      wanted_ = false;
      return !complete();
    }
    Container& container = open_.back();
    if (Array* array = container.value.ifArray())
      array->push_back(std::move(value));
    else
      container.value.ifDictionary()->set(std::move(container.key), std::move(value));
    return true;
  }

  const std::vector<std::string>& keys_;
  std::vector<Value> values_;
  std::vector<bool> isFound_;
  std::size_t found_ = 0;
  std::size_t depth_ = 0;
  // Where the value that is read goes.
  bool wanted_ = false;
  std::size_t wantedPlace_ = 0;
  std::vector<Container> open_;
};

// Writes the document anew but for its "_id", collects values, and notices keys that occur twice.
class DocumentCopier {
 public:
  explicit DocumentCopier(const std::vector<std::string>& keys) : builder_(keys), writer_(buffer_) {}

  bool Null() {
    return forward([](auto& to) { return to.Null(); });
  }
  bool Bool(bool value) {
    return forward([&](auto& to) { return to.Bool(value); });
  }
  bool Int(int) { return false; }
  bool Uint(unsigned) { return false; }
  bool Int64(std::int64_t) { return false; }
  bool Uint64(std::uint64_t) { return false; }
  bool Double(double) { return false; }
  // Written on as it is.
  bool RawNumber(const char* text, rapidjson::SizeType length, bool copy) {
    if (depth_ == 0) return refuse(kNoObject);
    if (!isFinite({text, length})) return refuse("a number is too large");
    builder_.RawNumber(text, length, copy);
    if (!skips_) writer_.RawValue(text, length, rapidjson::kNumberType);
    return endOfValue();
  }
  bool String(const char* text, rapidjson::SizeType length, bool copy) {
    return isText({text, length}) && forward([&](auto& to) { return to.String(text, length, copy); });
  }

  bool Key(const char* text, rapidjson::SizeType length, bool copy) {
    if (!isText({text, length})) return false;
    keys_.push_back(XXH3_64bits(text, length));
    skips_ = skips_ || (firstKeys_.size() == 1 && std::string_view(text, length) == "_id");
    if (!skips_) writer_.Key(text, length, copy);
    builder_.Key(text, length, copy);
    return true;
  }

  bool StartObject() {
    firstKeys_.push_back(keys_.size());
    return begin([](auto& to) { return to.StartObject(); });
  }
  bool EndObject(rapidjson::SizeType count) {
    auto first = keys_.begin() + static_cast<std::ptrdiff_t>(firstKeys_.back());
    std::sort(first, keys_.end());
    repeats_ = repeats_ || std::adjacent_find(first, keys_.end()) != keys_.end();
    keys_.resize(firstKeys_.back());
    firstKeys_.pop_back();
    return end([&](auto& to) { return to.EndObject(count); });
  }
  bool StartArray() {
    return depth_ > 0 ? begin([](auto& to) { return to.StartArray(); }) : refuse(kNoObject);
  }
  bool EndArray(rapidjson::SizeType count) {
    return end([&](auto& to) { return to.EndArray(count); });
  }

  bool repeats() const { return repeats_; }
  /// Why the parse was ended; null when it was not.
  const char* mistake() const { return mistake_; }
  SentDocument take() { return {buffer_.GetString() + 1, builder_.take()}; }

 private:
  static constexpr const char* kNoObject = "an asset is an object";
  // Two levels more are around it in a page.
  static constexpr std::size_t kMaximumDepth = 510;

  template <typename Event>
  bool forward(Event event) {
    if (depth_ == 0) return refuse(kNoObject);
    event(builder_);
    if (!skips_) event(writer_);
    return endOfValue();
  }

  bool endOfValue() {
    if (depth_ == 1) skips_ = false;
    return true;
  }

  // Escapes may spell half a surrogate pair, which no text can hold.
  bool isText(std::string_view text) { return isValidUtf8(text) || refuse("a text is not valid UTF-8"); }

  // A number without an exponent must be long to be too large.
  static bool isFinite(std::string_view text) {
    constexpr std::size_t kDigitsOfDoubles = 308;
    bool plain = text.size() <= kDigitsOfDoubles && text.find_first_of("eE") == std::string_view::npos;
    return plain || jsonNumber(text);
  }

  bool refuse(const char* mistake) {
    mistake_ = mistake;
    return false;
  }

  template <typename Event>
  bool begin(Event event) {
    if (++depth_ > kMaximumDepth) return refuse("nested too deeply");
    event(builder_);
    if (!skips_) event(writer_);
    return true;
  }

  template <typename Event>
  bool end(Event event) {
    event(builder_);
    if (!skips_) event(writer_);
    if (--depth_ == 1) skips_ = false;
    return true;
  }

  ValueBuilder builder_;
  rapidjson::StringBuffer buffer_;
  rapidjson::Writer<rapidjson::StringBuffer> writer_;
  std::size_t depth_ = 0;
  bool skips_ = false;
  bool repeats_ = false;
  const char* mistake_ = nullptr;
  // The digests of the keys of all open objects, and where those of each begin.
  std::vector<XXH64_hash_t> keys_;
  std::vector<std::size_t> firstKeys_;
};

// Notes where the objects of one array begin and end. The parser stands at a bracket while it reports it.
class ObjectFinder {
 public:
  ObjectFinder(const rapidjson::MemoryStream& stream, std::string_view json, std::string_view key)
      : stream_(stream), json_(json), key_(key) {}

  bool Null() { return scalar(); }
  bool Bool(bool) { return scalar(); }
  bool Int(int) { return false; }
  bool Uint(unsigned) { return false; }
  bool Int64(std::int64_t) { return false; }
  bool Uint64(std::uint64_t) { return false; }
  bool Double(double) { return false; }
  bool RawNumber(const char*, rapidjson::SizeType, bool) { return scalar(); }
  bool String(const char*, rapidjson::SizeType, bool) { return scalar(); }
  bool Key(const char* text, rapidjson::SizeType length, bool) {
    if (depth_ != 1) return true;
    inside_ = std::string_view(text, length) == key_;
    bool again = inside_ && found_;
    found_ = found_ || inside_;
    return !again;
  }
  bool StartObject() {
    if (depth_ == kElementDepth && inside_) begin_ = stream_.Tell();
    // Under the key itself an array is expected.
    return !(depth_ == 1 && inside_) && open();
  }
  bool EndObject(rapidjson::SizeType) {
    if (--depth_ == kElementDepth && inside_)
      objects_.push_back(json_.substr(begin_, stream_.Tell() + 1 - begin_));
    return true;
  }
  bool StartArray() { return depth_ > 0 && !(depth_ == kElementDepth && inside_) && open(); }
  bool EndArray(rapidjson::SizeType) {
    --depth_;
    return true;
  }

  bool found() const { return found_; }
  std::vector<std::string_view> take() { return std::move(objects_); }

 private:
  static constexpr std::size_t kElementDepth = 2;
  static constexpr std::size_t kMaximumDepth = 512;

  bool open() { return ++depth_ <= kMaximumDepth; }
  bool scalar() const { return depth_ > 0 && !(inside_ && depth_ <= kElementDepth); }

  const rapidjson::MemoryStream& stream_;
  std::string_view json_;
  std::string_view key_;
  std::size_t depth_ = 0;
  std::size_t begin_ = 0;
  bool inside_ = false;
  bool found_ = false;
  std::vector<std::string_view> objects_;
};

constexpr unsigned kFlags = rapidjson::kParseIterativeFlag | rapidjson::kParseNumbersAsStringsFlag;

}  // namespace

// Takes the document over as it is; `repeats` tells whether a key may occur twice in it.
static Result<SentDocument> copyDocument(std::string_view json, const std::vector<std::string>& keys,
                                         bool& repeats) {
  rapidjson::MemoryStream stream(json.data(), json.size());
  rapidjson::Reader reader;
  DocumentCopier copier(keys);
  rapidjson::ParseResult parsed = reader.Parse<kFlags>(stream, copier);
  if (!parsed)
    return failure(
        "json", parsed.Code(),
        fmt::format("malformed document at byte {}: {}", parsed.Offset(),
                    copier.mistake() ? copier.mistake() : rapidjson::GetParseError_En(parsed.Code())));
  repeats = copier.repeats();
  return copier.take();
}

Result<SentDocument> readSentDocument(std::string_view json, const std::vector<std::string>& keys) {
  bool repeats = false;
  Result<SentDocument> document = copyDocument(json, keys, repeats);
  if (!document || !repeats) return document;
  // Of a key that occurs twice the last value counts. What still looks like one has another key's digest.
  return parseJson(json).and_then(
      [&](const Value& value) { return copyDocument(writeJson(value), keys, repeats); });
}

std::string withValidText(std::string document) {
  if (isValidUtf8(document)) return document;
  return validUtf8(document);
}

std::optional<std::vector<std::string_view>> objectsInArray(std::string_view json, std::string_view key) {
  if (!isValidUtf8(json)) return std::nullopt;
  rapidjson::MemoryStream stream(json.data(), json.size());
  rapidjson::Reader reader;
  ObjectFinder finder(stream, json, key);
  if (!reader.Parse<kFlags>(stream, finder) || !finder.found()) return std::nullopt;
  return finder.take();
}

Result<Dictionary> readEntries(std::string_view json, const std::vector<std::string>& keys) {
  rapidjson::MemoryStream stream(json.data(), json.size());
  rapidjson::Reader reader;
  ValueBuilder builder(keys);
  if (keys.empty()) return Dictionary();
  rapidjson::ParseResult parsed = reader.Parse<kFlags>(stream, builder);
  bool enough = parsed.Code() == rapidjson::kParseErrorTermination && builder.complete();
  if (!parsed && !enough)
    return failure("json", parsed.Code(),
                   fmt::format("malformed document at byte {}: {}", parsed.Offset(),
                               rapidjson::GetParseError_En(parsed.Code())));
  return builder.takeEntries();
}

}  // namespace vornex::server
