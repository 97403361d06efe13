// A result page of 100 assets (about 200 KB of JSON) read into values, beside the parser alone on the same
// bytes.

#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>

#include "Ratio.h"
#include "foundation/Json.h"

using namespace vornex;

/// A photograph's record as the server sends it.
static Value asset(int number) {
  std::string id = fmt::format("{:024x}", number);
  std::string name = fmt::format("IMG_{:04} from the second day", number);
  Dictionary document{
      {"_id", id},
      {"originid", id},
      {"name", name},
      {"type", 2},
      {"project", "5E0F5103-ED5F-F423-D300-00005E0F5103"},
      {"group", "AFBF7F99-CA04-9B17-EEF9-6B3848D8CDCD"},
      {"masterpath", fmt::format("/Media/Master/2024/03/05/140709/{}/{}.CR3", id, name)},
      {"thumbnailpath", fmt::format("/Media/Thumbnail/2024/03/05/140709/{}.jpg", id)},
      {"previewpath", fmt::format("/Media/Preview/2024/03/05/140709/{}.jpg", id)},
      {"trash", false},
      {"fileext", "CR3"},
      {"filesize", 24'800'000 + number},
      {"importdate", std::int64_t{20240305140709250} + number},
      {"createdate", std::int64_t{20240303101500000} + number},
      {"tags", Array{"beach", "sunset", "second unit"}},
      {"latitude", 37.558333 + number},
      {"longitude", -122.030083},
      {"importfrompath", fmt::format("/run/media/studio/CARD_A/DCIM/100CANON/{}.CR3", name)},
      {"mediainfo", Dictionary{{"image_width", 6000}, {"image_height", 4000}, {"bit_depth", 14}}}};
  for (const char* key : {"livefolder", "livesubfolder", "fcpx_library", "fcpx_event", "fcpx_multicam_uid"})
    document.set(key, "");
  for (int i = 0; i < 15; ++i)
    document.set(fmt::format("metadata_{}", i),
                 fmt::format("What the photographer wrote under heading {} about photograph {}", i, number));
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
