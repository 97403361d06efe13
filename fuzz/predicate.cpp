// links: vornex_server
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "server/query/PredicateEvaluator.h"
#include "server/query/PredicateParser.h"
#include "server/query/PredicateSql.h"

using namespace vornex;

// Whatever can be read can be evaluated and compiled, with one binding for each place.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Dictionary document{{"name", "Beach (1) \xc3\xa9"},
                                   {"tags", Array{"sun", "e\xcc\x81", 5, nullptr}},
                                   {"type", 2},
                                   {"trash", false},
                                   {"a", Dictionary{{"b", 1.5}}}};
  static const server::SqlVocabulary vocabulary{{{"type", "assets.type"}, {"trash", "assets.trash"}},
                                                {"name", "tags"}};
  auto predicate = server::parsePredicate(std::string_view(reinterpret_cast<const char*>(data), size));
  if (!predicate) return 0;
  bool whole = server::holds(*predicate, document);
  server::SqlPredicate compiled = server::compilePredicate(*predicate, vocabulary);
  auto places = std::count(compiled.condition.begin(), compiled.condition.end(), '?');
  if (static_cast<std::size_t>(places) != compiled.bindings.size()) std::abort();
  if (whole && compiled.rest && !server::holds(*compiled.rest, document)) std::abort();
  return 0;
}
