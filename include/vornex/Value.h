#pragma once

#include <chrono>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace vornex {

class Value;

/// A string that may be absent. Absent and empty are different.
using OptionalString = std::optional<std::string>;

/// Bytes without an encoding.
using Data = std::vector<std::uint8_t>;

/// A point in time, UTC, with microsecond resolution.
using Date = std::chrono::sys_time<std::chrono::microseconds>;

using Array = std::vector<Value>;

/// String-keyed values in insertion order; a key occurs once. Setting a known key keeps its place.
/// Keys are UTF-8 and compared byte by byte.
///
/// Thread-safety: like a standard container. Concurrent reads are safe; a write excludes everything else.
class Dictionary {
 public:
  using Entry = std::pair<std::string, Value>;
  using const_iterator = std::vector<Entry>::const_iterator;

  Dictionary();
  Dictionary(std::initializer_list<Entry> entries);
  Dictionary(const Dictionary& other);
  Dictionary(Dictionary&& other) noexcept;
  Dictionary& operator=(const Dictionary& other);
  Dictionary& operator=(Dictionary&& other) noexcept;
  ~Dictionary();

  std::size_t size() const;
  bool empty() const { return size() == 0; }
  bool contains(std::string_view key) const { return find(key) != nullptr; }

  /// The value under the key, or null when the key is absent. The pointer is valid until the next change.
  const Value* find(std::string_view key) const;
  Value* find(std::string_view key);

  /// The value under the key; a null value is stored there first when the key is absent.
  Value& operator[](std::string_view key);

  void set(std::string key, Value value);
  /// Returns whether the key was present.
  bool erase(std::string_view key);
  void clear();
  void reserve(std::size_t count);

  /// Stores every entry of `other`, replacing the values of equal keys.
  void merge(const Dictionary& other);

  const_iterator begin() const;
  const_iterator end() const;

  /// Equal keys with equal values; the order does not count.
  bool operator==(const Dictionary& other) const;

 private:
  std::size_t position(std::string_view key) const;
  /// Of the key, or the empty one where it belongs.
  std::size_t indexSlot(std::string_view key) const;
  void rebuildIndex();

  std::vector<Entry> entries_;
  /// A hash table of positions counted from 1, 0 being empty; at most half full. None for few entries.
  std::vector<std::uint32_t> index_;
};

/// One value of a JSON document, property list or request: null, boolean, signed or unsigned 64-bit integer,
/// double, string, data, date, array or dictionary. A boolean is not a number and a number is not a string.
/// An unsigned integer that fits a signed one is stored as signed, so equal numbers compare equal.
///
/// Thread-safety: like a standard container. Concurrent reads are safe; a write excludes everything else.
class Value {
 public:
  enum class Kind { null, boolean, integer, unsignedInteger, real, string, data, date, array, dictionary };

  // Defined out of line: inlined, a variant of this size makes every user slow to compile and large.
  Value();
  Value(const Value& other);
  Value(Value&& other) noexcept;
  Value& operator=(const Value& other);
  Value& operator=(Value&& other) noexcept;
  ~Value();

  Value(std::nullptr_t) {}
  Value(bool value) : storage_(value) {}
  Value(int value) : storage_(std::int64_t{value}) {}
  Value(std::int64_t value) : storage_(value) {}
  Value(long long value) : storage_(static_cast<std::int64_t>(value)) {}
  Value(unsigned int value) : storage_(static_cast<std::int64_t>(value)) {}
  Value(std::uint64_t value);
  Value(double value) : storage_(value) {}
  Value(const char* value);
  Value(std::string_view value);
  Value(std::string value) : storage_(std::move(value)) {}
  Value(Data value) : storage_(std::move(value)) {}
  Value(Date value) : storage_(value) {}
  Value(Array value) : storage_(std::move(value)) {}
  Value(Dictionary value) : storage_(std::move(value)) {}
  /// An absent string is null.
  Value(const OptionalString& value);

  Kind kind() const { return static_cast<Kind>(storage_.index()); }
  bool isNull() const { return kind() == Kind::null; }
  bool isNumber() const;

  /// Each gives the content when the value is of exactly that kind, else null. The pointer is valid as long
  /// as the value is neither changed nor destroyed.
  const bool* ifBool() const { return std::get_if<bool>(&storage_); }
  const std::int64_t* ifInteger() const { return std::get_if<std::int64_t>(&storage_); }
  const std::uint64_t* ifUnsigned() const { return std::get_if<std::uint64_t>(&storage_); }
  const double* ifReal() const { return std::get_if<double>(&storage_); }
  const std::string* ifString() const { return std::get_if<std::string>(&storage_); }
  const Data* ifData() const { return std::get_if<Data>(&storage_); }
  const Date* ifDate() const { return std::get_if<Date>(&storage_); }
  const Array* ifArray() const { return std::get_if<Array>(&storage_); }
  const Dictionary* ifDictionary() const { return std::get_if<Dictionary>(&storage_); }
  Array* ifArray() { return std::get_if<Array>(&storage_); }
  Dictionary* ifDictionary() { return std::get_if<Dictionary>(&storage_); }

  /// The value under the key when this is a dictionary that has it, else null.
  const Value* find(std::string_view key) const;

  bool operator==(const Value& other) const;

 private:
  // The order of the alternatives is the order of Kind.
  using Storage = std::variant<std::monostate, bool, std::int64_t, std::uint64_t, double, std::string, Data,
                               Date, Array, Dictionary>;
  Storage storage_;
};

}  // namespace vornex
