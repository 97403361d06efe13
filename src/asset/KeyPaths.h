#pragma once

#include <vornex/Value.h>

#include <string>
#include <utility>
#include <vector>

/// Dotted paths to the values of nested dictionaries.
namespace vornex::keypath {

/// A path and the value at its end, which belongs to the dictionary that was asked.
using Leaf = std::pair<std::string, const Value*>;

/// Every value that is not a dictionary, in order, each path led by the prefix unless that is empty.
std::vector<Leaf> leaves(const Dictionary& dictionary, const std::string& prefix = "");

/// Stores the value, making the missing levels. False, and nothing changed, when a level is no dictionary.
bool store(Dictionary& dictionary, std::string_view keyPath, const Value& value);

}  // namespace vornex::keypath
