#include <vornex/Value.h>

#include <bit>
#include <functional>
#include <limits>

namespace vornex {

// Dictionaries are mostly small: a linear search beats hashing up to this size.
static constexpr std::size_t kLinearLimit = 16;

// What the index holds for no position, less one.
static constexpr std::size_t kNotFound = std::numeric_limits<std::size_t>::max();

Dictionary::Dictionary() = default;

Dictionary::Dictionary(std::initializer_list<Entry> entries) {
  entries_.reserve(entries.size());
  for (const Entry& entry : entries) set(entry.first, entry.second);
}

Dictionary::Dictionary(const Dictionary& other) = default;

Dictionary::Dictionary(Dictionary&& other) noexcept = default;

Dictionary& Dictionary::operator=(const Dictionary& other) = default;

Dictionary& Dictionary::operator=(Dictionary&& other) noexcept = default;

Dictionary::~Dictionary() = default;

std::size_t Dictionary::size() const {
  return entries_.size();
}

std::size_t Dictionary::position(std::string_view key) const {
  if (!index_.empty()) {
    return index_[indexSlot(key)] - std::size_t{1};
  }
  for (std::size_t i = 0; i < entries_.size(); ++i)
    if (entries_[i].first == key) return i;
  return kNotFound;
}

std::size_t Dictionary::indexSlot(std::string_view key) const {
  std::size_t mask = index_.size() - 1;
  std::size_t slot = std::hash<std::string_view>()(key) & mask;
  while (index_[slot] != 0 && entries_[index_[slot] - 1].first != key) slot = (slot + 1) & mask;
  return slot;
}

void Dictionary::rebuildIndex() {
  index_.clear();
  if (entries_.size() <= kLinearLimit) return;
  index_.resize(std::bit_ceil(entries_.size() * 4));
  for (std::size_t i = 0; i < entries_.size(); ++i)
    index_[indexSlot(entries_[i].first)] = static_cast<std::uint32_t>(i + 1);
}

const Value* Dictionary::find(std::string_view key) const {
  std::size_t at = position(key);
  return at == kNotFound ? nullptr : &entries_[at].second;
}

Value* Dictionary::find(std::string_view key) {
  return const_cast<Value*>(std::as_const(*this).find(key));
}

Value& Dictionary::operator[](std::string_view key) {
  if (Value* known = find(key)) return *known;
  set(std::string(key), Value());
  return entries_.back().second;
}

void Dictionary::set(std::string key, Value value) {
  std::size_t slot = index_.empty() ? 0 : indexSlot(key);
  std::size_t at = index_.empty() ? position(key) : index_[slot] - std::size_t{1};
  if (at != kNotFound) {
    entries_[at].second = std::move(value);
    return;
  }
  entries_.emplace_back(std::move(key), std::move(value));
  if (entries_.size() * 2 > index_.size())
    rebuildIndex();
  else
    index_[slot] = static_cast<std::uint32_t>(entries_.size());
}

bool Dictionary::erase(std::string_view key) {
  std::size_t at = position(key);
  if (at == kNotFound) return false;
  entries_.erase(entries_.begin() + static_cast<std::ptrdiff_t>(at));
  rebuildIndex();
  return true;
}

void Dictionary::clear() {
  entries_.clear();
  index_.clear();
}

void Dictionary::reserve(std::size_t count) {
  entries_.reserve(count);
}

void Dictionary::merge(const Dictionary& other) {
  if (this == &other) return;
  for (const Entry& entry : other) set(entry.first, entry.second);
}

Dictionary::const_iterator Dictionary::begin() const {
  return entries_.begin();
}
Dictionary::const_iterator Dictionary::end() const {
  return entries_.end();
}

bool Dictionary::operator==(const Dictionary& other) const {
  if (size() != other.size()) return false;
  for (const Entry& entry : entries_) {
    const Value* twin = other.find(entry.first);
    if (!twin || !(*twin == entry.second)) return false;
  }
  return true;
}

Value::Value() = default;
Value::Value(const Value& other) = default;
Value::Value(Value&& other) noexcept = default;
Value& Value::operator=(const Value& other) = default;
Value& Value::operator=(Value&& other) noexcept = default;
Value::~Value() = default;

Value::Value(const char* value) : storage_(std::string(value)) {}
Value::Value(std::string_view value) : storage_(std::string(value)) {}

bool Value::operator==(const Value& other) const {
  return storage_ == other.storage_;
}

Value::Value(std::uint64_t value) {
  if (value <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
    storage_ = static_cast<std::int64_t>(value);
  else
    storage_ = value;
}

Value::Value(const OptionalString& value) {
  if (value) storage_ = *value;
}

bool Value::isNumber() const {
  return kind() == Kind::integer || kind() == Kind::unsignedInteger || kind() == Kind::real;
}

const Value* Value::find(std::string_view key) const {
  const Dictionary* dictionary = ifDictionary();
  return dictionary ? dictionary->find(key) : nullptr;
}

}  // namespace vornex
