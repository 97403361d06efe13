#include "asset/KeyPaths.h"

#include <vornex/Log.h>
#include <vornex/TQAsset.h>

namespace vornex {

namespace keypath {

static void appendLeaves(const Dictionary& dictionary, const std::string& prefix, std::vector<Leaf>& found) {
  for (const auto& [key, value] : dictionary) {
    std::string path = prefix.empty() ? key : prefix + "." + key;
    if (const Dictionary* level = value.ifDictionary())
      appendLeaves(*level, path, found);
    else
      found.emplace_back(std::move(path), &value);
  }
}

std::vector<Leaf> leaves(const Dictionary& dictionary, const std::string& prefix) {
  std::vector<Leaf> found;
  appendLeaves(dictionary, prefix, found);
  return found;
}

bool store(Dictionary& dictionary, std::string_view keyPath, const Value& value) {
  std::size_t dot = keyPath.find('.');
  std::string_view key = keyPath.substr(0, dot);
  if (dot == std::string_view::npos) {
    dictionary.set(std::string(key), value);
    return true;
  }
  std::string_view rest = keyPath.substr(dot + 1);
  if (Value* known = dictionary.find(key)) {
    Dictionary* level = known->ifDictionary();
    return level && store(*level, rest, value);
  }
  // Nothing can stand in the way within new levels.
  Dictionary level;
  store(level, rest, value);
  dictionary.set(std::string(key), std::move(level));
  return true;
}

}  // namespace keypath

void setMetaValue(Dictionary& dictionary, const Value& value, const OptionalString& keyPath) {
  if (value.isNull() || !keyPath)
    return logLine(LogLevel::error, "setMetaValue metaValue and keyPath can't be nil.");
  if (!keypath::store(dictionary, *keyPath, value))
    logLine(LogLevel::error, "setMetaValue: a level of " + *keyPath + " is no dictionary");
}

}  // namespace vornex
