#include "server/store/DocumentReader.h"

#include <fmt/format.h>
#include <rapidjson/error/en.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>

#include <algorithm>

namespace vornex::server {

namespace {

// Builds the wanted entries from the parser's events. A false answer ends the parse.
class EntryBuilder {
 public:
  explicit EntryBuilder(const std::vector<std::string>& keys) : keys_(keys) {}

  bool Null() { return add(Value()); }
  bool Bool(bool value) { return add(value); }
  bool Int(int value) { return add(value); }
  bool Uint(unsigned value) { return add(value); }
  bool Int64(std::int64_t value) { return add(value); }
  bool Uint64(std::uint64_t value) { return add(value); }
  bool Double(double value) { return add(value); }
  bool RawNumber(const char*, rapidjson::SizeType, bool) { return false; }
  bool String(const char* text, rapidjson::SizeType length, bool) {
    return skips() ? scalarAtTop() : add(std::string(text, length));
  }

  bool Key(const char* text, rapidjson::SizeType length, bool) {
    if (depth_ == 1) wanted_ = std::binary_search(keys_.begin(), keys_.end(), std::string_view(text, length));
    if (wanted_) keyOfTop().assign(text, length);
    return true;
  }

  bool StartObject() { return begin(Dictionary()); }
  bool StartArray() { return depth_ > 0 && begin(Array()); }
  bool EndObject(rapidjson::SizeType) { return end(); }
  bool EndArray(rapidjson::SizeType) { return end(); }

  bool complete() const { return entries_.size() == keys_.size(); }
  Dictionary take() { return std::move(entries_); }

 private:
  struct Container {
    Value value;
    std::string key;
  };

  bool skips() const { return !wanted_; }
  // A document is an object: nothing else may stand at its top.
  bool scalarAtTop() const { return depth_ > 0; }
  std::string& keyOfTop() { return open_.empty() ? key_ : open_.back().key; }

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
      entries_.set(std::move(key_), std::move(value));
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
  Dictionary entries_;
  std::size_t depth_ = 0;
  bool wanted_ = false;
  std::string key_;
  std::vector<Container> open_;
};

}  // namespace

Result<Dictionary> readEntries(std::string_view json, const std::vector<std::string>& keys) {
  constexpr unsigned kFlags = rapidjson::kParseIterativeFlag | rapidjson::kParseFullPrecisionFlag;
  rapidjson::MemoryStream stream(json.data(), json.size());
  rapidjson::Reader reader;
  EntryBuilder builder(keys);
  if (keys.empty()) return Dictionary();
  rapidjson::ParseResult parsed = reader.Parse<kFlags>(stream, builder);
  bool enough = parsed.Code() == rapidjson::kParseErrorTermination && builder.complete();
  if (!parsed && !enough)
    return failure("json", parsed.Code(),
                   fmt::format("malformed document at byte {}: {}", parsed.Offset(),
                               rapidjson::GetParseError_En(parsed.Code())));
  return builder.take();
}

}  // namespace vornex::server
