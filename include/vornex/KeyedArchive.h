#pragma once

#include <vornex/Value.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Keyed archives: object graphs as bytes, in the form that the desktop's pasteboard and its documents use (a
// property list with "$objects", references by index, and fields under their keys). Cycles and shared objects
// are kept; keys and classes that a reader does not know are skipped.

namespace vornex {

class KeyedArchiver;
class KeyedUnarchiver;

/// An object that has a place in archives. Its class registers itself with an ArchivedClass.
class Archivable {
 public:
  virtual ~Archivable() = default;

  /// The name under which the class is registered.
  virtual std::string archivedClassName() const = 0;
  /// Writes the fields.
  virtual void encodeWithCoder(KeyedArchiver& coder) const = 0;
  /// Assigns every archived field from its key. Objects that decodeObject gives are filled later: keep them,
  /// do not look into them yet.
  virtual void initWithCoder(KeyedUnarchiver& coder) = 0;

 protected:
  Archivable() = default;
  Archivable(const Archivable&) = default;
  Archivable& operator=(const Archivable&) = default;
};

/// Registers a class for the life of the process: readers make an empty object with `make`, then fill it by
/// initWithCoder. Define one per class, at namespace scope or as a static member.
///
/// Thread-safety: safe on any thread.
class ArchivedClass {
 public:
  using Maker = std::function<std::shared_ptr<Archivable>()>;
  ArchivedClass(std::string name, Maker make);
};

/// Writes one object graph. Objects reach their encodeWithCoder one after another, never nested: a graph of
/// any depth is fine. A null object, an absent string and a null value are written as nil.
///
/// Thread-safety: none; the graph must not change meanwhile.
class KeyedArchiver {
 public:
  /// The archive of the object and of all that it leads to. Absent, and logged, when a value in it is
  /// nested deeper than 512 levels.
  static std::optional<Data> archivedData(const std::shared_ptr<const Archivable>& root);

  void encodeInteger(std::string_view key, std::int64_t value);
  void encodeBool(std::string_view key, bool value);
  void encodeDouble(std::string_view key, double value);
  /// A string, date, data, array or dictionary with all it holds.
  void encodeValue(std::string_view key, const Value& value);
  /// The same, an array or dictionary as one that its reader may change.
  void encodeMutableValue(std::string_view key, const Value& value);
  /// An object that owns or refers to this one may be among them: each object is written once.
  void encodeObject(std::string_view key, const std::shared_ptr<const Archivable>& object);
  /// As an array that its reader may change.
  template <typename T>
  void encodeObjects(std::string_view key, const std::vector<std::shared_ptr<T>>& objects) {
    encodeList(key, {objects.begin(), objects.end()});
  }

 private:
  KeyedArchiver();
  ~KeyedArchiver();
  void encodeList(std::string_view key, const std::vector<std::shared_ptr<const Archivable>>& objects);
  struct State;
  const std::unique_ptr<State> state_;
};

/// Reads one object graph from bytes of any origin. Nothing raises: a key that is missing or holds something
/// else gives 0, false, 0.0, absent or null; so does an object of an unknown class.
///
/// Thread-safety: none.
class KeyedUnarchiver {
 public:
  /// The archive's root. Null when the bytes are no archive, when its root is of an unknown or another class,
  /// and when it is hostile: references that lead nowhere do no harm, but an archive whose values or owned
  /// objects are nested in themselves or beyond 512 levels, or unfold to immense lists, is refused as a
  /// whole. Logged.
  template <typename T>
  static std::shared_ptr<T> unarchivedObject(const Data& bytes) {
    std::shared_ptr<Archivable> root = unarchivedRoot(bytes);
    auto object = std::dynamic_pointer_cast<T>(root);
    if (root && !object) logWrongRoot(*root);
    return object;
  }

  std::int64_t decodeInteger(std::string_view key);
  bool decodeBool(std::string_view key);
  double decodeDouble(std::string_view key);
  Value decodeValue(std::string_view key);
  OptionalString decodeString(std::string_view key);
  std::optional<Date> decodeDate(std::string_view key);
  /// The empty dictionary unless the key holds one.
  Dictionary decodeDictionary(std::string_view key);

  /// An object that the one being read owns. What owns one another must form no cycle.
  template <typename T>
  std::shared_ptr<T> decodeObject(std::string_view key) {
    return std::dynamic_pointer_cast<T>(decodeOwned(key));
  }
  /// The objects of an array that the one being read owns; elements of another class are left out.
  template <typename T>
  std::vector<std::shared_ptr<T>> decodeObjects(std::string_view key) {
    std::vector<std::shared_ptr<T>> objects;
    for (const std::shared_ptr<Archivable>& element : decodeOwnedList(key))
      if (auto object = std::dynamic_pointer_cast<T>(element)) objects.push_back(std::move(object));
    return objects;
  }
  /// An object that the one being read only refers to. It lives on only if something else owns it.
  template <typename T>
  std::weak_ptr<T> decodeReference(std::string_view key) {
    return std::dynamic_pointer_cast<T>(decodeReferred(key));
  }

 private:
  KeyedUnarchiver();
  ~KeyedUnarchiver();
  static std::shared_ptr<Archivable> unarchivedRoot(const Data& bytes);
  static void logWrongRoot(const Archivable& root);
  std::shared_ptr<Archivable> decodeOwned(std::string_view key);
  std::vector<std::shared_ptr<Archivable>> decodeOwnedList(std::string_view key);
  std::shared_ptr<Archivable> decodeReferred(std::string_view key);
  struct State;
  const std::unique_ptr<State> state_;
};

}  // namespace vornex
