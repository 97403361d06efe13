#include "foundation/PropertyList.h"

#include <plist/plist.h>

#include <cstdlib>
#include <limits>

#include "foundation/BinaryPropertyList.h"
#include "foundation/Files.h"
#include "foundation/ReferenceDate.h"
#include "foundation/Text.h"

namespace vornex {

namespace {

constexpr int kMaximumDepth = 512;

struct NodeDeleter {
  void operator()(void* node) const { plist_free(node); }
};
using Node = std::unique_ptr<void, NodeDeleter>;

struct MemoryDeleter {
  void operator()(char* memory) const { std::free(memory); }
};
using Memory = std::unique_ptr<char, MemoryDeleter>;

tl::unexpected<Error> plistFailure(const std::string& message) {
  return failure("plist", 1, message);
}

std::string stringContent(plist_t node, void (*get)(plist_t, char**)) {
  char* raw = nullptr;
  get(node, &raw);
  Memory owner(raw);
  return raw ? std::string(raw) : std::string();
}

Result<Value> readNode(plist_t node, int depth);

Result<Value> readArray(plist_t node, int depth) {
  Array elements;
  std::uint32_t count = plist_array_get_size(node);
  elements.reserve(count);
  for (std::uint32_t i = 0; i < count; ++i) {
    Result<Value> element = readNode(plist_array_get_item(node, i), depth + 1);
    if (!element) return element;
    elements.push_back(std::move(*element));
  }
  return Value(std::move(elements));
}

Result<Value> readDictionary(plist_t node, int depth) {
  Dictionary dictionary;
  plist_dict_iter rawIterator = nullptr;
  plist_dict_new_iter(node, &rawIterator);
  std::unique_ptr<void, decltype(&std::free)> iterator(rawIterator, &std::free);
  for (;;) {
    char* rawKey = nullptr;
    plist_t child = nullptr;
    plist_dict_next_item(node, rawIterator, &rawKey, &child);
    Memory key(rawKey);
    if (!rawKey || !child) return Value(std::move(dictionary));
    Result<Value> value = readNode(child, depth + 1);
    if (!value) return value;
    dictionary.set(rawKey, std::move(*value));
  }
}

Value readInteger(plist_t node) {
  std::uint64_t bits = 0;
  plist_get_uint_val(node, &bits);
  // The library keeps negative numbers as their two's complement.
  return Value(static_cast<std::int64_t>(bits));
}

Value readDate(plist_t node) {
  std::int32_t seconds = 0;
  std::int32_t microseconds = 0;
  plist_get_date_val(node, &seconds, &microseconds);
  return Value(kReferenceDate + std::chrono::seconds(seconds) + std::chrono::microseconds(microseconds));
}

Value readData(plist_t node) {
  char* raw = nullptr;
  std::uint64_t length = 0;
  plist_get_data_val(node, &raw, &length);
  Memory owner(raw);
  return Value(raw ? Data(raw, raw + length) : Data());
}

Result<Value> readNode(plist_t node, int depth) {
  if (depth > kMaximumDepth) return plistFailure("a property list is nested too deep");
  switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
      std::uint8_t flag = 0;
      plist_get_bool_val(node, &flag);
      return Value(flag != 0);
    }
    case PLIST_UINT:
      return readInteger(node);
    case PLIST_REAL: {
      double real = 0;
      plist_get_real_val(node, &real);
      return Value(real);
    }
    case PLIST_STRING:
      return Value(stringContent(node, &plist_get_string_val));
    case PLIST_KEY:
      return Value(stringContent(node, &plist_get_key_val));
    case PLIST_ARRAY:
      return readArray(node, depth);
    case PLIST_DICT:
      return readDictionary(node, depth);
    case PLIST_DATE:
      return readDate(node);
    case PLIST_DATA:
      return readData(node);
    case PLIST_UID: {
      std::uint64_t index = 0;
      plist_get_uid_val(node, &index);
      // The form that XML property lists use.
      return Value(Dictionary{{"CF$UID", Value(index)}});
    }
    default:
      return plistFailure("a property list holds an unknown kind of value");
  }
}

Result<Node> makeNode(const Value& value, int depth);

Result<Node> makeString(const std::string& string) {
  return Node(plist_new_string(validUtf8(string).c_str()));
}

Result<Node> makeArray(const Array& array, int depth) {
  Node node(plist_new_array());
  for (const Value& element : array) {
    Result<Node> child = makeNode(element, depth + 1);
    if (!child) return child;
    plist_array_append_item(node.get(), child->release());
  }
  return node;
}

Result<Node> makeDictionary(const Dictionary& dictionary, int depth) {
  Node node(plist_new_dict());
  for (const auto& [key, value] : dictionary) {
    Result<Node> child = makeNode(value, depth + 1);
    if (!child) return child;
    plist_dict_set_item(node.get(), validUtf8(key).c_str(), child->release());
  }
  return node;
}

Node makeDate(Date date) {
  using namespace std::chrono;
  auto sinceReference = date - kReferenceDate;
  auto whole = floor<seconds>(sinceReference);
  return Node(plist_new_date(static_cast<std::int32_t>(whole.count()),
                             static_cast<std::int32_t>((sinceReference - whole).count())));
}

Result<Node> makeNode(const Value& value, int depth) {
  if (depth > kMaximumDepth) return plistFailure("a value is nested too deep for a property list");
  switch (value.kind()) {
    case Value::Kind::null:
      return plistFailure("a property list cannot hold null");
    case Value::Kind::boolean:
      return Node(plist_new_bool(*value.ifBool()));
    case Value::Kind::integer:
      return Node(plist_new_uint(static_cast<std::uint64_t>(*value.ifInteger())));
    case Value::Kind::unsignedInteger:
      return Node(plist_new_uint(*value.ifUnsigned()));
    case Value::Kind::real:
      return Node(plist_new_real(*value.ifReal()));
    case Value::Kind::string:
      return makeString(*value.ifString());
    case Value::Kind::data: {
      const Data& data = *value.ifData();
      return Node(plist_new_data(reinterpret_cast<const char*>(data.data()), data.size()));
    }
    case Value::Kind::date:
      return makeDate(*value.ifDate());
    case Value::Kind::array:
      return makeArray(*value.ifArray(), depth);
    case Value::Kind::dictionary:
      return makeDictionary(*value.ifDictionary(), depth);
  }
  return plistFailure("unknown kind of value");
}

// XML 1.0 has no form for control characters other than tab, line feed and carriage return.
bool fitsXml(const std::string& text) {
  for (char c : text)
    if (static_cast<unsigned char>(c) < 0x20 && c != '\t' && c != '\n' && c != '\r') return false;
  return text.find('\r') == std::string::npos && text.find("\xEF\xBF\xBE") == std::string::npos &&
         text.find("\xEF\xBF\xBF") == std::string::npos;
}

// The library counts a date's seconds in 32 bits: the years 1933 to 2069.
bool fitsXml(Date date) {
  auto seconds = std::chrono::floor<std::chrono::seconds>(date - kReferenceDate).count();
  return seconds == static_cast<std::int32_t>(seconds);
}

bool fitsXml(const Value& value) {
  if (value.ifUnsigned()) return false;
  if (const Date* date = value.ifDate()) return fitsXml(*date);
  if (const std::string* string = value.ifString()) return fitsXml(*string);
  if (const Array* array = value.ifArray())
    return std::all_of(array->begin(), array->end(), [](const Value& element) { return fitsXml(element); });
  if (const Dictionary* dictionary = value.ifDictionary())
    return std::all_of(dictionary->begin(), dictionary->end(),
                       [](const auto& entry) { return fitsXml(entry.first) && fitsXml(entry.second); });
  return true;
}

}  // namespace

Result<Value> parsePropertyList(std::string_view bytes) {
  if (bytes.size() > std::numeric_limits<std::uint32_t>::max())
    return plistFailure("a property list is too large");
  if (isBinaryPropertyList(bytes)) return parseBinaryPropertyList(bytes);
  if (bytes.find('\0') != std::string_view::npos) return plistFailure("malformed property list");
  plist_t raw = nullptr;
  plist_from_xml(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &raw);
  if (!raw) return plistFailure("malformed property list");
  Node node(raw);
  return readNode(raw, 0);
}

Result<std::string> writePropertyList(const Value& value, PropertyListFormat format) {
  if (format == PropertyListFormat::binary || !fitsXml(value)) return writeBinaryPropertyList(value);
  Result<Node> node = makeNode(value, 0);
  if (!node) return tl::unexpected(node.error());
  char* raw = nullptr;
  std::uint32_t length = 0;
  plist_to_xml(node->get(), &raw, &length);
  Memory owner(raw);
  if (!raw) return plistFailure("a property list could not be written");
  return std::string(raw, length);
}

Result<Value> readPropertyListFile(const std::string& path) {
  Result<std::string> bytes = readFile(path);
  if (!bytes) return tl::unexpected(bytes.error());
  Result<Value> value = parsePropertyList(*bytes);
  if (!value) return plistFailure(path + ": " + value.error().message);
  return value;
}

Result<Dictionary> readDictionaryFile(const std::string& path) {
  Result<Value> value = readPropertyListFile(path);
  if (!value) return tl::unexpected(value.error());
  Dictionary* dictionary = value->ifDictionary();
  if (!dictionary) return plistFailure(path + ": the property list is not a dictionary");
  return std::move(*dictionary);
}

Result<void> writePropertyListFile(const std::string& path, const Value& value) {
  Result<std::string> bytes = writePropertyList(value);
  if (!bytes) return tl::unexpected(bytes.error());
  return writeFileAtomically(path, *bytes);
}

}  // namespace vornex
