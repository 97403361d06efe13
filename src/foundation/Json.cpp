#include "foundation/Json.h"

#include <rapidjson/error/en.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>

#include <charconv>
#include <cmath>

#include "foundation/DateText.h"
#include "foundation/Text.h"

namespace vornex {

namespace {

constexpr std::size_t kMaximumDepth = 512;
// Beyond it, room is made as it is needed: a small container may follow a large one.
constexpr std::size_t kLargestGuess = 64;

// Builds values from the parser's events. A false answer ends the parse.
class ValueBuilder {
 public:
  bool Null() { return add(Value()); }
  bool Bool(bool value) { return add(Value(value)); }
  // Numbers come as text: the parser's own conversion is not sound for every input.
  bool Int(int) { return false; }
  bool Uint(unsigned) { return false; }
  bool Int64(std::int64_t) { return false; }
  bool Uint64(std::uint64_t) { return false; }
  bool Double(double) { return false; }
  bool RawNumber(const char* text, rapidjson::SizeType length, bool) { return addNumber({text, length}); }
  bool String(const char* text, rapidjson::SizeType length, bool) {
    return isText({text, length}) && add(Value(std::string(text, length)));
  }
  bool Key(const char* text, rapidjson::SizeType length, bool) {
    if (!isText({text, length})) return false;
    open_.back().key.assign(text, length);
    return true;
  }
  bool StartObject() { return begin(Dictionary()); }
  bool StartArray() { return begin(Array()); }
  bool EndObject(rapidjson::SizeType size) { return end(size); }
  bool EndArray(rapidjson::SizeType size) { return end(size); }

  Value take() { return std::move(root_); }
  /// Why the parse was ended; null when it was not.
  const char* mistake() const { return mistake_; }

 private:
  struct Container {
    Value value;
    std::string key;
  };

  template <typename Kind>
  bool begin(Kind container) {
    if (open_.size() == kMaximumDepth) return refuse("nested too deeply");
    // Neighbours are mostly alike.
    if (formerSizes_.size() > open_.size()) container.reserve(formerSizes_[open_.size()]);
    open_.push_back(Container{std::move(container), {}});
    return true;
  }

  bool end(std::size_t size) {
    Value finished = std::move(open_.back().value);
    open_.pop_back();
    formerSizes_.resize(std::max(formerSizes_.size(), open_.size() + 1));
    formerSizes_[open_.size()] = std::min(size, kLargestGuess);
    return add(std::move(finished));
  }

  bool add(Value&& value) {
    if (open_.empty()) {
      root_ = std::move(value);
      return true;
    }
    Container& container = open_.back();
    if (Array* array = container.value.ifArray())
      array->push_back(std::move(value));
    else
      container.value.ifDictionary()->set(std::move(container.key), std::move(value));
    return true;
  }

  bool addNumber(std::string_view text) {
    std::optional<Value> number = jsonNumber(text);
    return number ? add(std::move(*number)) : refuse("a number is too large");
  }

  // Escapes may spell half a surrogate pair, which no text can hold.
  bool isText(std::string_view text) { return isValidUtf8(text) || refuse("a text is not valid UTF-8"); }

  bool refuse(const char* mistake) {
    mistake_ = mistake;
    return false;
  }

  Value root_;
  const char* mistake_ = nullptr;
  std::vector<Container> open_;
  // Of the container that ended last, by depth.
  std::vector<std::size_t> formerSizes_;
};

template <typename Number>
std::optional<Number> converted(std::string_view text) {
  Number number{};
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

// Of the texts that no double can hold, the ones too close to zero.
bool isTiny(std::string_view text) {
  std::size_t exponent = text.find_first_of("eE");
  if (exponent != std::string_view::npos) return text[exponent + 1] == '-';
  return text.starts_with("0.") || text.starts_with("-0.");
}

}  // namespace

std::optional<Value> jsonNumber(std::string_view text) {
  if (auto integer = converted<std::int64_t>(text)) return Value(*integer);
  if (auto integer = converted<std::uint64_t>(text)) return Value(*integer);
  if (auto real = converted<double>(text)) return Value(*real);
  return isTiny(text) ? std::optional<Value>(0.0) : std::nullopt;
}

Result<Value> parseJson(std::string_view text) {
  constexpr unsigned kFlags = rapidjson::kParseIterativeFlag | rapidjson::kParseNumbersAsStringsFlag;
  rapidjson::MemoryStream stream(text.data(), text.size());
  rapidjson::Reader reader;
  ValueBuilder builder;
  rapidjson::ParseResult parsed = reader.Parse<kFlags>(stream, builder);
  if (!parsed)
    return failure(
        "json", parsed.Code(),
        fmt::format("malformed JSON at byte {}: {}", parsed.Offset(),
                    builder.mistake() ? builder.mistake() : rapidjson::GetParseError_En(parsed.Code())));
  // To the parser a null character is the end.
  if (stream.Tell() < text.size())
    return failure("json", rapidjson::kParseErrorDocumentRootNotSingular,
                   fmt::format("malformed JSON at byte {}: a null character", stream.Tell()));
  return builder.take();
}

namespace {

class Writer {
 public:
  explicit Writer(JsonStyle style) : pretty_(style == JsonStyle::pretty) {}

  void write(const Value& value) {
    switch (value.kind()) {
      case Value::Kind::null:
        text_ += "null";
        break;
      case Value::Kind::boolean:
        text_ += *value.ifBool() ? "true" : "false";
        break;
      case Value::Kind::integer:
        writeNumber(*value.ifInteger());
        break;
      case Value::Kind::unsignedInteger:
        writeNumber(*value.ifUnsigned());
        break;
      case Value::Kind::real:
        writeReal(*value.ifReal());
        break;
      case Value::Kind::string:
        writeString(*value.ifString());
        break;
      case Value::Kind::data:
        writeData(*value.ifData());
        break;
      case Value::Kind::date:
        writeString(dateText(*value.ifDate()));
        break;
      case Value::Kind::array:
        writeArray(*value.ifArray());
        break;
      case Value::Kind::dictionary:
        writeDictionary(*value.ifDictionary());
        break;
    }
  }

  std::string take() { return std::move(text_); }

 private:
  template <typename Number>
  void writeNumber(Number number) {
    char buffer[32];
    char* end = std::to_chars(buffer, buffer + sizeof buffer, number).ptr;
    text_.append(buffer, end);
  }

  void writeReal(double number) {
    if (!std::isfinite(number)) {
      text_ += "null";
      return;
    }
    std::size_t start = text_.size();
    writeNumber(number);
    // Kept a real on the way back: 20.0 is not the integer 20.
    if (text_.find_first_of(".eE", start) == std::string::npos) text_ += ".0";
  }

  void writeData(const Data& data) {
    writeString(base64(std::string_view(reinterpret_cast<const char*>(data.data()), data.size())));
  }

  void writeString(std::string_view string) {
    if (!isValidUtf8(string)) {
      writeString(validUtf8(string));
      return;
    }
    text_ += '"';
    std::size_t plain = 0;
    for (std::size_t i = 0; i < string.size(); ++i) {
      auto byte = static_cast<unsigned char>(string[i]);
      if (byte >= 0x20 && byte != '"' && byte != '\\') continue;
      text_.append(string, plain, i - plain);
      writeEscape(byte);
      plain = i + 1;
    }
    text_.append(string, plain);
    text_ += '"';
  }

  void writeEscape(unsigned char byte) {
    switch (byte) {
      case '"':
        text_ += "\\\"";
        break;
      case '\\':
        text_ += "\\\\";
        break;
      case '\n':
        text_ += "\\n";
        break;
      case '\r':
        text_ += "\\r";
        break;
      case '\t':
        text_ += "\\t";
        break;
      default:
        text_ += fmt::format("\\u{:04x}", byte);
    }
  }

  void writeArray(const Array& array) {
    text_ += '[';
    ++depth_;
    bool first = true;
    for (const Value& element : array) {
      separate(first);
      write(element);
    }
    close(first, ']');
  }

  void writeDictionary(const Dictionary& dictionary) {
    text_ += '{';
    ++depth_;
    bool first = true;
    for (const auto& [key, value] : dictionary) {
      separate(first);
      writeString(key);
      text_ += pretty_ ? " : " : ":";
      write(value);
    }
    close(first, '}');
  }

  void separate(bool& first) {
    if (!first) text_ += ',';
    first = false;
    if (pretty_) breakLine();
  }

  void close(bool empty, char bracket) {
    --depth_;
    if (pretty_) {
      if (empty) text_ += '\n';
      breakLine();
    }
    text_ += bracket;
  }

  void breakLine() {
    text_ += '\n';
    text_.append(static_cast<std::size_t>(depth_) * 2, ' ');
  }

  bool pretty_;
  int depth_ = 0;
  std::string text_;
};

}  // namespace

std::string writeJson(const Value& value, JsonStyle style) {
  Writer writer(style);
  writer.write(value);
  return writer.take();
}

}  // namespace vornex
