#include <vornex/Log.h>

#include <algorithm>
#include <map>
#include <mutex>

#include "foundation/KeyedArchive.h"
#include "foundation/PropertyList.h"
#include "foundation/ReferenceDate.h"

namespace vornex {

namespace {

struct Registry {
  std::mutex mutex;
  std::map<std::string, ArchivedClass::Maker> makers;
};

// Never destroyed: classes register before main and may be asked for after it.
Registry& registry() {
  static auto* shared = new Registry;
  return *shared;
}

// Deeper hierarchies do not occur.
constexpr std::size_t kMaximumBases = 8;

// How many values a list of `objects` objects may unfold to.
std::size_t unfoldingLimit(std::size_t objects) {
  return std::max<std::size_t>(100'000, objects * 64);
}

const Array* arrayAt(const Dictionary& dictionary, std::string_view key) {
  const Value* value = dictionary.find(key);
  return value ? value->ifArray() : nullptr;
}

}  // namespace

ArchivedClass::ArchivedClass(std::string name, Maker make) {
  std::lock_guard lock(registry().mutex);
  registry().makers.insert_or_assign(std::move(name), std::move(make));
}

std::shared_ptr<Archivable> archive::makeObject(const std::string& className) {
  ArchivedClass::Maker make;
  {
    std::lock_guard lock(registry().mutex);
    auto known = registry().makers.find(className);
    if (known == registry().makers.end()) return nullptr;
    make = known->second;
  }
  return make();
}

struct KeyedUnarchiver::State {
  Value root;
  Array objects;
  // One per slot, null until met.
  std::vector<std::shared_ptr<Archivable>> made;
  std::vector<bool> isMet;
  // Made, not yet filled.
  std::vector<std::size_t> unfilled;
  // Owner and owned, by slot.
  std::vector<std::pair<std::size_t, std::size_t>> ownerships;
  // The object being filled: its slot and its fields, null when everything is to be let go.
  std::size_t current = 0;
  const Dictionary* fields = nullptr;
  std::size_t remainingValues = 0;
  const char* refusal = nullptr;

  static bool isOurForm(const Dictionary& archive) {
    const Value* archiver = archive.find("$archiver");
    const Value* version = archive.find("$version");
    return archiver && version && *archiver == Value(archive::kArchiver) &&
           *version == Value(archive::kVersion);
  }

  bool open(const Data& bytes) {
    Result<Value> list =
        parsePropertyList(std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
    Dictionary* archive = list ? list->ifDictionary() : nullptr;
    Value* stored = archive ? archive->find("$objects") : nullptr;
    const Value* top = archive ? archive->find("$top") : nullptr;
    const Value* topRoot = top ? top->find("root") : nullptr;
    if (!stored || !stored->ifArray() || !topRoot || !isOurForm(*archive)) return false;
    root = *topRoot;
    objects = std::move(*stored->ifArray());
    made.resize(objects.size());
    isMet.resize(objects.size());
    remainingValues = unfoldingLimit(objects.size());
    return true;
  }

  bool spend() {
    if (remainingValues == 0) refusal = "its values unfold to an immense list";
    return remainingValues != 0 && remainingValues-- != 0;
  }

  const Value* field(std::string_view key) const { return fields ? fields->find(key) : nullptr; }

  // The slot that a value refers to; 0 for nil, for what is no reference and for one that leads nowhere.
  std::size_t slot(const Value* value) const {
    const Value* index = value ? value->find("CF$UID") : nullptr;
    const std::int64_t* number = index ? index->ifInteger() : nullptr;
    bool isInside = number && *number >= 0 && static_cast<std::uint64_t>(*number) < objects.size();
    return isInside ? static_cast<std::size_t>(*number) : 0;
  }

  const Value& object(const Value* value) const {
    static const auto* kNull = new Value;
    std::size_t index = slot(value);
    return index == 0 ? *kNull : objects[index];
  }

  // Whether the object's class or one of its bases, nearest first, satisfies the test of its name.
  template <typename Test>
  bool anyClass(const Dictionary& content, Test test) const {
    const Value& description = object(content.find("$class"));
    auto passes = [&](const Value* name) { return name && name->ifString() && test(*name->ifString()); };
    if (passes(description.find("$classname"))) return true;
    const Value* list = description.find("$classes");
    const Array* bases = list ? list->ifArray() : nullptr;
    for (std::size_t i = 0; bases && i < std::min(bases->size(), kMaximumBases); ++i)
      if (passes(&(*bases)[i])) return true;
    return false;
  }

  bool isOfClass(const Dictionary& content, std::string_view name) const {
    return anyClass(content, [&](const std::string& candidate) { return candidate == name; });
  }

  std::shared_ptr<Archivable> met(const Value* value) {
    std::size_t index = slot(value);
    const Dictionary* content = object(value).ifDictionary();
    if (!spend() || !content) return nullptr;
    if (!isMet[index]) {
      isMet[index] = true;
      bool isKnown = anyClass(*content, [&](const std::string& name) {
        made[index] = archive::makeObject(name);
        return made[index] != nullptr;
      });
      if (isKnown) unfilled.push_back(index);
    }
    return made[index];
  }

  std::shared_ptr<Archivable> owned(const Value* value) {
    std::shared_ptr<Archivable> result = met(value);
    if (result) ownerships.emplace_back(current, slot(value));
    return result;
  }

  Value decode(const Value* value, int depth) {
    if (depth > archive::kMaximumDepth) refusal = "its values are nested too deep";
    if (refusal || !spend()) return nullptr;
    const Value& content = object(value);
    if (const Dictionary* described = content.ifDictionary()) return decodeDescribed(*described, depth);
    return content.ifArray() ? Value() : content;
  }

  Value decodeDescribed(const Dictionary& content, int depth) {
    if (isOfClass(content, "NSArray")) return decodeArray(content, depth);
    if (isOfClass(content, "NSDictionary")) return decodeDictionary(content, depth);
    if (isOfClass(content, "NSDate")) {
      const Value* time = content.find("NS.time");
      auto date = time && time->ifReal() ? dateFromReferenceSeconds(*time->ifReal()) : std::nullopt;
      return date ? Value(*date) : Value();
    }
    for (auto [className, key] : {std::pair("NSString", "NS.string"), std::pair("NSData", "NS.data")})
      if (const Value* plain = content.find(key); plain && isOfClass(content, className)) return *plain;
    return nullptr;
  }

  Value decodeArray(const Dictionary& content, int depth) {
    Array result;
    if (const Array* elements = arrayAt(content, "NS.objects"))
      for (const Value& element : *elements) result.push_back(decode(&element, depth + 1));
    return result;
  }

  Value decodeDictionary(const Dictionary& content, int depth) {
    Dictionary result;
    const Array* keys = arrayAt(content, "NS.keys");
    const Array* values = arrayAt(content, "NS.objects");
    for (std::size_t i = 0; keys && values && i < std::min(keys->size(), values->size()); ++i) {
      if (const std::string* key = object(&(*keys)[i]).ifString())
        result.set(*key, decode(&(*values)[i], depth + 1));
    }
    return result;
  }

  void fill(KeyedUnarchiver& coder) {
    while (!unfilled.empty() && !refusal) {
      current = unfilled.back();
      unfilled.pop_back();
      fields = objects[current].ifDictionary();
      made[current]->initWithCoder(coder);
    }
    if (!refusal && !isOwnershipSound()) refusal = "its objects own one another in a circle or too deep";
    if (refusal) letGo(coder);
  }

  // Takes away the owned objects level by level, those without an owner first.
  bool isOwnershipSound() {
    std::sort(ownerships.begin(), ownerships.end());
    std::vector<std::size_t> owners(objects.size());
    for (auto [owner, thing] : ownerships) ++owners[thing];
    std::vector<std::size_t> level;
    for (std::size_t index = 0; index < made.size(); ++index)
      if (made[index] && owners[index] == 0) level.push_back(index);
    std::size_t taken = 0;
    for (int depth = 0; !level.empty() && depth <= archive::kMaximumDepth; ++depth) {
      taken += level.size();
      std::vector<std::size_t> next;
      for (std::size_t owner : level) {
        auto first = std::lower_bound(ownerships.begin(), ownerships.end(), std::pair(owner, std::size_t{0}));
        for (; first != ownerships.end() && first->first == owner; ++first)
          if (--owners[first->second] == 0) next.push_back(first->second);
      }
      level = std::move(next);
    }
    return taken == static_cast<std::size_t>(std::count_if(
                        made.begin(), made.end(), [](const auto& object) { return object != nullptr; }));
  }

  // Empties every object, so that circles fall apart and long chains are not destroyed link within link.
  void letGo(KeyedUnarchiver& coder) {
    fields = nullptr;
    for (const auto& object : made)
      if (object) object->initWithCoder(coder);
  }
};

KeyedUnarchiver::KeyedUnarchiver() : state_(std::make_unique<State>()) {}
KeyedUnarchiver::~KeyedUnarchiver() = default;

std::shared_ptr<Archivable> KeyedUnarchiver::unarchivedRoot(const Data& bytes) {
  KeyedUnarchiver unarchiver;
  State& state = *unarchiver.state_;
  if (!state.open(bytes)) {
    logLine(LogLevel::error, "not a keyed archive");
    return nullptr;
  }
  std::shared_ptr<Archivable> root = state.met(&state.root);
  state.fill(unarchiver);
  if (!root && !state.refusal) state.refusal = "its root is of no known class";
  if (!state.refusal) return root;
  logLine(LogLevel::error, std::string("a keyed archive is refused: ") + state.refusal);
  return nullptr;
}

void KeyedUnarchiver::logWrongRoot(const Archivable& root) {
  logLine(LogLevel::error, "a keyed archive is refused: its root is a " + root.archivedClassName());
}

std::int64_t KeyedUnarchiver::decodeInteger(std::string_view key) {
  const Value* value = state_->field(key);
  if (value && value->ifInteger()) return *value->ifInteger();
  return value && value->ifBool() && *value->ifBool() ? 1 : 0;
}

bool KeyedUnarchiver::decodeBool(std::string_view key) {
  return decodeInteger(key) != 0;
}

double KeyedUnarchiver::decodeDouble(std::string_view key) {
  const Value* value = state_->field(key);
  if (value && value->ifReal()) return *value->ifReal();
  return static_cast<double>(decodeInteger(key));
}

Value KeyedUnarchiver::decodeValue(std::string_view key) {
  return state_->decode(state_->field(key), 0);
}

OptionalString KeyedUnarchiver::decodeString(std::string_view key) {
  Value value = decodeValue(key);
  return value.ifString() ? OptionalString(*value.ifString()) : std::nullopt;
}

std::optional<Date> KeyedUnarchiver::decodeDate(std::string_view key) {
  Value value = decodeValue(key);
  return value.ifDate() ? std::optional(*value.ifDate()) : std::nullopt;
}

Dictionary KeyedUnarchiver::decodeDictionary(std::string_view key) {
  Value value = decodeValue(key);
  return value.ifDictionary() ? std::move(*value.ifDictionary()) : Dictionary{};
}

std::shared_ptr<Archivable> KeyedUnarchiver::decodeOwned(std::string_view key) {
  return state_->owned(state_->field(key));
}

std::vector<std::shared_ptr<Archivable>> KeyedUnarchiver::decodeOwnedList(std::string_view key) {
  std::vector<std::shared_ptr<Archivable>> result;
  const Dictionary* content = state_->object(state_->field(key)).ifDictionary();
  if (!content || !state_->isOfClass(*content, "NSArray")) return result;
  if (const Array* elements = arrayAt(*content, "NS.objects")) {
    for (const Value& element : *elements) {
      if (state_->refusal) break;
      result.push_back(state_->owned(&element));
    }
  }
  return result;
}

std::shared_ptr<Archivable> KeyedUnarchiver::decodeReferred(std::string_view key) {
  return state_->met(state_->field(key));
}

}  // namespace vornex
