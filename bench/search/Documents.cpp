#include "Documents.h"

#include <fmt/format.h>

#include <array>
#include <chrono>
#include <cmath>
#include <set>
#include <sstream>

namespace vornex::bench {

namespace {

constexpr const char* kFrequent =
    "interview final drone sunset camera take beach wedding sound city night music scene street logo master "
    "trailer concert portrait report archive product launch mountain river forest aerial family summer "
    "winter "
    "promo teaser speech train office kitchen dancer garden rooftop harbor bridge festival backstage crowd";
constexpr std::array kSyllables = {"ba",  "ko",  "ri", "ten", "mar", "lo", "sa",  "vin", "del",  "tra",
                                   "pen", "so",  "mi", "gra", "ul",  "ne", "for", "cas", "ti",   "ber",
                                   "ho",  "lan", "ve", "dor", "qui", "es", "pal", "re",  "ster", "na"};
constexpr std::array<std::array<const char*, 3>, 5> kExtensions = {{{"mov", "mp4", "mxf"},
                                                                    {"wav", "mp3", "aif"},
                                                                    {"jpg", "png", "tif"},
                                                                    {"pdf", "txt", "docx"},
                                                                    {"zip", "srt", "xml"}}};
constexpr std::array kSigns = {"v2.1", "(1)", "c++", "take*", "$rate", "[alt]"};

// splitmix64
class Random {
 public:
  explicit Random(std::uint64_t seed) : state_(seed) {}

  std::uint64_t next() {
    std::uint64_t z = state_ += 0x9e3779b97f4a7c15;
    z = (z ^ z >> 30) * 0xbf58476d1ce4e5b9;
    z = (z ^ z >> 27) * 0x94d049bb133111eb;
    return z ^ z >> 31;
  }
  std::size_t below(std::size_t count) { return next() % count; }
  bool percent(double percents) { return unit() * 100 < percents; }
  double unit() { return static_cast<double>(next() >> 11) / 9007199254740992.0; }
  // A rank whose probability is one through itself.
  std::size_t zipf(std::size_t count) {
    auto rank = static_cast<std::size_t>(std::exp(unit() * std::log(static_cast<double>(count) + 1)));
    return std::min(rank, count) - 1;
  }
  std::string hex(std::size_t digits) {
    std::string text;
    while (text.size() < digits) text += fmt::format("{:016x}", next());
    return text.substr(0, digits);
  }

 private:
  std::uint64_t state_;
};

std::vector<std::string> vocabulary(std::size_t count, std::uint64_t seed, const char* first = "") {
  std::vector<std::string> words;
  std::set<std::string> known;
  std::istringstream given(first);
  for (std::string word; given >> word;)
    if (known.insert(word).second) words.push_back(word);
  for (Random random(seed); words.size() < count;) {
    std::string word;
    for (std::size_t i = 2 + random.below(3); i > 0; --i) word += kSyllables[random.below(kSyllables.size())];
    if (random.below(50) == 0) word += "é";
    if (known.insert(word).second) words.push_back(word);
  }
  return words;
}

std::vector<std::string> identifiers(std::size_t count, std::uint64_t seed) {
  Random random(seed);
  std::vector<std::string> all;
  for (std::size_t i = 0; i < count; ++i)
    all.push_back(fmt::format("{}-{}-{}-{}-{}", random.hex(8), random.hex(4), random.hex(4), random.hex(4),
                              random.hex(12)));
  return all;
}

constexpr std::int64_t kSpan = std::int64_t{5} * 365 * 86'400'000;
constexpr std::int64_t kJitter = std::int64_t{3} * 86'400'000;

// From the year 2020 on.
std::int64_t dateNumber(std::int64_t milliseconds) {
  using namespace std::chrono;
  sys_time<std::chrono::milliseconds> time =
      sys_days(year(2020) / 1 / 1) + std::chrono::milliseconds(milliseconds);
  auto day = floor<days>(time);
  year_month_day date(day);
  hh_mm_ss clock(time - day);
  std::int64_t number = static_cast<int>(date.year());
  number = number * 100 + static_cast<unsigned>(date.month());
  number = number * 100 + static_cast<unsigned>(date.day());
  number = number * 100 + clock.hours().count();
  number = number * 100 + clock.minutes().count();
  number = number * 100 + clock.seconds().count();
  return number * 1000 + clock.subseconds().count();
}

std::int64_t importTime(std::size_t number, std::size_t count) {
  Random random(number * 2 + 1);
  return static_cast<std::int64_t>(static_cast<double>(number) / static_cast<double>(count) * kSpan) +
         static_cast<std::int64_t>(random.below(kJitter));
}

int typeOf(double percents) {
  return percents < 45 ? 0 : percents < 55 ? 1 : percents < 90 ? 2 : percents < 97 ? 3 : 4;
}

}  // namespace

Documents::Documents(std::size_t count)
    : count_(count),
      nameWords_(vocabulary(20'000, 1, kFrequent)),
      tagWords_(vocabulary(5'000, 2, kFrequent)),
      folderWords_(vocabulary(600, 3)),
      projects_(identifiers(200, 4)),
      groups_(identifiers(2'000, 5)) {}

std::int64_t Documents::importDate(std::size_t number) const {
  return dateNumber(importTime(number, count_));
}

std::string Documents::json(std::size_t number) const {
  Random random(number * 2);
  std::int64_t imported = importTime(number, count_);
  std::int64_t created =
      imported - static_cast<std::int64_t>(random.unit() * random.unit() * 400 * 86'400'000.0);
  int type = typeOf(random.unit() * 100);
  std::string extension = kExtensions[static_cast<std::size_t>(type)][random.zipf(3)];
  if (random.percent(10))
    for (char& c : extension) c = static_cast<char>(std::toupper(c));
  std::string name;
  for (std::size_t i = 0, words = 2 + random.below(4); i < words; ++i) {
    std::string word = nameWords_[random.zipf(nameWords_.size())];
    if (random.percent(50)) word[0] = static_cast<char>(std::toupper(word[0]));
    name += word + (i % 2 == 0 ? "_" : " ");
  }
  if (random.percent(1.5)) name += std::string(kSigns[random.below(kSigns.size())]) + " ";
  name += fmt::format("{:04}", random.below(10'000));
  std::string tags;
  for (std::size_t i = random.below(7); i > 0; --i)
    tags += fmt::format("{}\"{}\"", tags.empty() ? "" : ",", tagWords_[random.zipf(tagWords_.size())]);
  auto folder = [&] { return folderWords_[random.zipf(folderWords_.size())]; };
  std::string folders =
      fmt::format("/Volumes/Storage{}/Projects/{}/{}/{}/{}_cam/A{}R/", 1 + random.below(12), folder(),
                  folder(), 2019 + random.below(7), folder(), 100 + random.below(900));
  bool live = random.percent(10), located = random.percent(20), cut = type == 0 && random.percent(4);
  std::string own = random.hex(24);
  std::int64_t date = dateNumber(imported);
  std::string day = fmt::format("{}/{:02}/{:02}", date / 10'000'000'000'000, date / 100'000'000'000 % 100,
                                date / 1'000'000'000 % 100);
  std::string json = fmt::format(
      R"({{"originid":"{}","name":"{}","type":{},"project":"{}","group":"{}","masterpath":"/Media/Master/{}/{}/{}.{}",)"
      R"("thumbnailpath":"/Media/Thumbnail/{}/{}.jpg","previewpath":"{}","trash":{},"wantreview":{},"fileext":"{}",)"
      R"("filesize":{},"tags":[{}],"createdate":{},"modifydate":{},"importdate":{},"updatedate":{},)",
      own, name, type, projects_[random.zipf(projects_.size())],
      random.percent(40) ? std::string() : groups_[random.below(groups_.size())], day, own, name, extension,
      day, own, type == 0 ? fmt::format("/Media/Preview/{}/{}.mp4", day, own) : "", random.percent(5),
      random.percent(2), extension, 1'000 + random.below(type == 0 ? 4'000'000'000 : 30'000'000), tags,
      dateNumber(created), dateNumber((created + imported) / 2), date,
      dateNumber(imported + (random.percent(25) ? static_cast<std::int64_t>(random.below(86'400'000)) : 0)));
  json += fmt::format(
      R"("colorlabel":{},"flagged":{},"rating":{},"haslocation":{},"latitude":{:.6f},"longitude":{:.6f},"importtype":{},)"
      R"("duplicated":{},"islivefolder":{},"livefolder":"{}","livesubfolder":"{}","isfcpxlibrary":{},"fcpx_library":"{}",)"
      R"("fcpx_event":"{}","fcpx_multicam_uid":"","importfrompath":"{}{}.{}",)",
      random.percent(80) ? 0 : random.below(8), random.percent(3), random.percent(70) ? 0 : random.below(6),
      located, located ? random.unit() * 180 - 90 : 0.0, located ? random.unit() * 360 - 180 : 0.0,
      random.below(3), random.percent(3), live, live ? folders.substr(0, folders.find('/', 24)) : "",
      live ? "/" + folder() : "", cut, cut ? folder() + ".bundle" : "", cut ? folder() : "", folders, name,
      extension);
  json += fmt::format(
      R"("mediainfo":{{"format":"{}","duration":{:.3f},"width":{},"height":{},"framerate":{:.3f},"videocodec":"{}",)"
      R"("audiocodec":"{}","bitrate":{},"samplerate":48000,"channels":2,"colorspace":"bt709"}},)"
      R"("importer":"{}","importerdesc":"{}","importdisklabel":"Storage","importvolume":"{}"}})",
      extension, random.unit() * 600, type == 0 ? 1920 : 4000, type == 0 ? 1080 : 3000,
      type == 0 ? 25.0 : 0.0, type == 0 ? "h264" : "", type < 2 ? "aac" : "", random.below(50'000'000),
      random.hex(32), random.hex(64), random.hex(36));
  return json;
}

}  // namespace vornex::bench
