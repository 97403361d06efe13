// links: vornex_server
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "server/index/SegmentSearch.h"
#include "server/index/SegmentWriter.h"
#include "server/query/PredicateEvaluator.h"
#include "server/query/PredicateParser.h"

using namespace vornex;

static std::vector<Dictionary> documents() {
  std::vector<Dictionary> all = {{{"name", "Beach (1) \xc3\xa9"},
                                  {"tags", Array{"sun", "e\xcc\x81"}},
                                  {"type", 2},
                                  {"importdate", std::int64_t{20240131120000123}},
                                  {"masterpath", "/a/b.mov"},
                                  {"trash", false}},
                                 {{"name", "b. B"}, {"tags", "sun"}, {"type", 1.5}, {"trash", true}},
                                 {{"name", ""},
                                  {"tags", Array{"x", 5}},
                                  {"type", "2"},
                                  {"a", Dictionary{{"b", 1}}},
                                  {"notes", Array{Dictionary{{"text", "x"}, {"at", Array{1, "y"}}}, 2}}}};
  char digit = '1';
  for (Dictionary& document : all) document.set("_id", std::string(24, digit++));
  return all;
}

static server::SegmentPtr segmentOf(const std::vector<Dictionary>& all) {
  std::vector<server::IndexedDocument> indexed;
  for (const Dictionary& document : all)
    indexed.push_back({static_cast<std::int64_t>(indexed.size()), *document.find("_id")->ifString(),
                       server::indexedValues(document)});
  return server::makeSegment(std::move(indexed));
}

// What can be read can be evaluated, and the index says nothing else than the documents do.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::vector<Dictionary> kDocuments = documents();
  static const server::SegmentPtr kSegment = segmentOf(kDocuments);
  auto predicate = server::parsePredicate(std::string_view(reinterpret_cast<const char*>(data), size));
  if (!predicate) return 0;
  server::arrangeByCost(*predicate);
  server::DocumentSet all(kSegment->size(), true);
  server::TimeLimit limit;
  server::SegmentAnswer answer = server::searchSegment(*kSegment, all, *predicate, limit);
  for (std::uint32_t i = 0; i < kDocuments.size(); ++i)
    if (!answer.open.contains(i) && answer.yes.contains(i) != server::holds(*predicate, kDocuments[i], limit))
      std::abort();
  return 0;
}
