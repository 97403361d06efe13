#include <vornex/Log.h>

#include "foundation/KeyedArchive.h"
#include "foundation/PropertyList.h"
#include "foundation/ReferenceDate.h"

namespace vornex {

namespace {

Value reference(std::size_t slot) {
  return Dictionary{{"CF$UID", Value(static_cast<std::uint64_t>(slot))}};
}

// The class and its bases.
Array hierarchy(const std::string& className) {
  constexpr std::string_view kMutable = "NSMutable";
  Array classes{Value(className)};
  if (className.starts_with(kMutable)) classes.emplace_back("NS" + className.substr(kMutable.size()));
  classes.emplace_back("NSObject");
  return classes;
}

}  // namespace

struct KeyedArchiver::State {
  Array objects{Value(archive::kNil)};
  std::unordered_map<std::string, std::size_t> strings, classes;
  std::unordered_map<const Archivable*, std::size_t> slots;
  // Met, in the order of their slots; kept until the end, so that no address is used twice.
  std::vector<std::pair<std::shared_ptr<const Archivable>, std::size_t>> met;
  // The fields of the object being written.
  Dictionary fields;
  bool isTooDeep = false;

  std::size_t append(Value object) {
    objects.push_back(std::move(object));
    return objects.size() - 1;
  }

  Value classReference(const std::string& name) {
    auto [known, isNew] = classes.try_emplace(name, 0);
    if (isNew) known->second = append(Dictionary{{"$classname", name}, {"$classes", hierarchy(name)}});
    return reference(known->second);
  }

  std::size_t slotOf(const std::shared_ptr<const Archivable>& object) {
    if (!object) return 0;
    auto [known, isNew] = slots.try_emplace(object.get(), 0);
    if (isNew) met.emplace_back(object, known->second = append(Value()));
    return known->second;
  }

  std::size_t stringSlot(const std::string& text) {
    auto [known, isNew] = strings.try_emplace(text, 0);
    if (isNew) known->second = append(Value(text));
    return known->second;
  }

  // A slot of its own for an object that the system's own classes describe.
  std::size_t append(Dictionary content, const std::string& className) {
    content.set("$class", classReference(className));
    return append(Value(std::move(content)));
  }

  std::size_t encode(const Value& value, int depth, bool isMutable = false) {
    if (depth > archive::kMaximumDepth) {
      isTooDeep = true;
      return 0;
    }
    if (const std::string* text = value.ifString()) return stringSlot(*text);
    if (const Date* date = value.ifDate())
      return append({{"NS.time", Value(secondsSinceReference(*date))}}, "NSDate");
    if (const Array* array = value.ifArray()) return encodeArray(*array, depth, isMutable);
    if (const Dictionary* dictionary = value.ifDictionary())
      return encodeDictionary(*dictionary, depth, isMutable);
    if (value.isNull()) return append(Dictionary{}, "NSNull");
    return append(value);
  }

  std::size_t encodeArray(const Array& array, int depth, bool isMutable) {
    std::size_t slot = append(Value());
    Array elements;
    for (const Value& element : array) elements.push_back(reference(encode(element, depth + 1)));
    objects[slot] = Dictionary{{"NS.objects", std::move(elements)},
                               {"$class", classReference(isMutable ? "NSMutableArray" : "NSArray")}};
    return slot;
  }

  std::size_t encodeDictionary(const Dictionary& dictionary, int depth, bool isMutable) {
    std::size_t slot = append(Value());
    Array keys, values;
    for (const auto& [key, value] : dictionary) {
      keys.push_back(reference(stringSlot(key)));
      values.push_back(reference(encode(value, depth + 1)));
    }
    objects[slot] =
        Dictionary{{"NS.keys", std::move(keys)},
                   {"NS.objects", std::move(values)},
                   {"$class", classReference(isMutable ? "NSMutableDictionary" : "NSDictionary")}};
    return slot;
  }

  void encodeField(std::string_view key, const Value& value, bool isMutable) {
    fields.set(std::string(key), reference(value.isNull() ? 0 : encode(value, 0, isMutable)));
  }
};

KeyedArchiver::KeyedArchiver() : state_(std::make_unique<State>()) {}
KeyedArchiver::~KeyedArchiver() = default;

std::optional<Data> KeyedArchiver::archivedData(const std::shared_ptr<const Archivable>& root) {
  KeyedArchiver archiver;
  State& state = *archiver.state_;
  std::size_t rootSlot = state.slotOf(root);
  // The list grows while it is worked off.
  for (std::size_t next = 0; next < state.met.size(); ++next) {
    auto [object, slot] = state.met[next];
    state.fields.clear();
    object->encodeWithCoder(archiver);
    state.fields.set("$class", state.classReference(object->archivedClassName()));
    state.objects[slot] = std::move(state.fields);
  }
  Result<std::string> bytes = failure("archive", 1, "a value is nested too deep");
  if (!state.isTooDeep)
    bytes = writePropertyList(Dictionary{{"$version", archive::kVersion},
                                         {"$archiver", archive::kArchiver},
                                         {"$top", Dictionary{{"root", reference(rootSlot)}}},
                                         {"$objects", std::move(state.objects)}},
                              PropertyListFormat::binary);
  if (bytes) return Data(bytes->begin(), bytes->end());
  logLine(LogLevel::error, "no keyed archive: " + bytes.error().message);
  return std::nullopt;
}

void KeyedArchiver::encodeInteger(std::string_view key, std::int64_t value) {
  state_->fields.set(std::string(key), value);
}

void KeyedArchiver::encodeBool(std::string_view key, bool value) {
  state_->fields.set(std::string(key), value);
}

void KeyedArchiver::encodeDouble(std::string_view key, double value) {
  state_->fields.set(std::string(key), value);
}

void KeyedArchiver::encodeValue(std::string_view key, const Value& value) {
  state_->encodeField(key, value, false);
}

void KeyedArchiver::encodeMutableValue(std::string_view key, const Value& value) {
  state_->encodeField(key, value, true);
}

void KeyedArchiver::encodeObject(std::string_view key, const std::shared_ptr<const Archivable>& object) {
  state_->fields.set(std::string(key), reference(state_->slotOf(object)));
}

void KeyedArchiver::encodeList(std::string_view key,
                               const std::vector<std::shared_ptr<const Archivable>>& objects) {
  Array elements;
  for (const auto& object : objects) elements.push_back(reference(state_->slotOf(object)));
  std::size_t slot = state_->append({{"NS.objects", std::move(elements)}}, "NSMutableArray");
  state_->fields.set(std::string(key), reference(slot));
}

}  // namespace vornex
