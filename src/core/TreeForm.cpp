#include "core/TreeForm.h"

#include <algorithm>

#include "core/Coercion.h"

namespace vornex {

static bool isNode(const Value& value, const TreeForm& form) {
  for (const char* key : form.texts)
    if (key && !coerce::string(value.find(key))) return false;
  const Value* below = form.childrenKey ? value.find(form.childrenKey) : nullptr;
  return !below || isTree(below, *form.children);
}

bool isTree(const Value* list, const TreeForm& form) {
  const Array* nodes = list ? list->ifArray() : nullptr;
  return nodes &&
         std::all_of(nodes->begin(), nodes->end(), [&](const Value& node) { return isNode(node, form); });
}

}  // namespace vornex
