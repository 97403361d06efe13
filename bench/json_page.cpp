// A result page of 100 assets (about 200 KB of JSON) read into values, beside the parser alone on the same
// bytes.

#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>

#include "Ratio.h"
#include "foundation/Json.h"

using namespace vornex;

static Value asset(int number) {
  Dictionary document{
      {"_id", fmt::format("{:024x}", number)},
      {"name", fmt::format("IMG_{:04} from the second day", number)},
      {"type", 2},
      {"trash", false},
      {"filesize", 4'800'000 + number},
      {"importdate", std::int64_t{20240305140709250} + number},
      {"tags", Array{"beach", "sunset", "second unit"}},
      {"latitude", 37.558333 + number},
      {"mediainfo", Dictionary{{"image_width", 4000}, {"image_height", 3000}, {"bit_depth", 8}}}};
  for (int i = 0; i < 30; ++i)
    document.set(fmt::format("metadata_{}", i), fmt::format("value {} of asset {}", i, number));
  return document;
}

static std::string page() {
  Array items;
  for (int i = 0; i < 100; ++i) items.push_back(asset(i));
  return writeJson(Dictionary{{"items", std::move(items)}, {"total", 100}});
}

static void readPageIntoValues(benchmark::State& state) {
  std::string text = page();
  for (auto _ : state) benchmark::DoNotOptimize(parseJson(text));
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}
BENCHMARK(readPageIntoValues);

static void parserAlone(benchmark::State& state) {
  std::string text = page();
  for (auto _ : state) {
    rapidjson::MemoryStream stream(text.data(), text.size());
    rapidjson::Reader reader;
    rapidjson::BaseReaderHandler<> ignore;
    benchmark::DoNotOptimize(reader.Parse(stream, ignore));
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}
BENCHMARK(parserAlone);

int main(int argc, char** argv) {
  return bench::runWithRatios(argc, argv, {{"readPageIntoValues", "parserAlone"}});
}
