// links: vornex_server
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "server/index/SegmentSearch.h"
#include "server/index/SegmentWriter.h"
#include "server/query/PredicateEvaluator.h"
#include "server/query/PredicateParser.h"

using namespace vornex;

static std::vector<server::IndexedDocument> documents() {
  std::vector<Dictionary> all = {
      {{"name", "Beach (1) \xc3\xa9"},
       {"tags", Array{"sun", "e\xcc\x81"}},
       {"type", 2},
       {"importdate", std::int64_t{20240131120000123}},
       {"masterpath", "/a/b.mov"},
       {"trash", false}},
      {{"name", "b. B"}, {"tags", "sun"}, {"type", 1.5}, {"trash", true}},
      {{"name", ""}, {"tags", Array{"x", 5}}, {"type", "2"}, {"a", Dictionary{{"b", 1}}}}};
  std::vector<server::IndexedDocument> result;
  for (Dictionary& document : all) {
    std::string id(24, static_cast<char>('1' + result.size()));
    document.set("_id", id);
    result.push_back({static_cast<std::int64_t>(result.size()), id, std::move(document)});
  }
  return result;
}

// What can be read can be evaluated, and the index says nothing else than the documents do.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::vector<server::IndexedDocument> kDocuments = documents();
  static const server::Segment kSegment([] {
    server::SectionWriter sections;
    server::writeSegment(kDocuments, sections);
    (void)sections.finish(server::kIndexVersion);
    return server::SectionBytes(sections.takeMemory());
  }());
  auto predicate = server::parsePredicate(std::string_view(reinterpret_cast<const char*>(data), size));
  if (!predicate) return 0;
  server::DocumentSet all(kSegment.size(), true);
  auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  auto answer = server::searchSegment(kSegment, all, *predicate, deadline);
  if (!answer) std::abort();
  for (std::uint32_t i = 0; i < kDocuments.size(); ++i)
    if (!answer->open.contains(i) &&
        answer->yes.contains(i) != server::holds(*predicate, kDocuments[i].content))
      std::abort();
  return 0;
}
