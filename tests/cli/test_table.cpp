#include <gmock/gmock.h>

#include "cli/DisplayText.h"
#include "cli/Format.h"
#include "cli/Table.h"

namespace vornex::cli {
namespace {

using testing::ElementsAre;

TEST(DisplayText, MeasuresWhatATerminalShows) {
  EXPECT_EQ(displayWidth("plain"), 5u);
  EXPECT_EQ(displayWidth("caf\u00e9"), 4u);
  EXPECT_EQ(displayWidth("cafe\u0301"), 4u);
  EXPECT_EQ(displayWidth("写真"), 4u);
  EXPECT_EQ(displayWidth("👍🏽"), 2u);
  EXPECT_EQ(displayWidth("👨‍👩‍👧"), 2u);
  EXPECT_EQ(displayWidth("🇰🇷"), 2u);
}

TEST(DisplayText, NeutralisesWhatSteersATerminal) {
  EXPECT_EQ(printable("a\nb\tc\x1b[31m"), "a\\nb\\tc\\u{1b}[31m");
  EXPECT_EQ(printable("gpj.\u202eexe"), "gpj.\\u{202e}exe");
  EXPECT_EQ(printable("bad\xff"), "bad\ufffd");
  EXPECT_EQ(printable("é 写真 👨‍👩‍👧"), "é 写真 👨‍👩‍👧");
}

TEST(DisplayText, ShortensWithoutCuttingACharacter) {
  EXPECT_EQ(shortened("写真写真", 8), "写真写真");
  EXPECT_EQ(shortened("写真写真", 6), "写真…");
  EXPECT_EQ(shortened("cafe\u0301 noir", 5), "cafe\u0301…");
  EXPECT_EQ(shortenedAtStart("/media/写真.jpg", 7), "…真.jpg");
  EXPECT_EQ(shortened("abc", 1), "…");
  EXPECT_EQ(shortened("abc", 0), "");
}

TEST(Table, FitsTheTerminalByGivingWayWhereItMay) {
  Table table({{"NAME", Table::Kind::text}, {"SIZE", Table::Kind::number}, {"PATH", Table::Kind::path}});
  table.addRow({"写真 one", "9 B", "/a/very/long/folder/thumbnail.jpg"});
  table.addRow({"line\nbreak", "12 kB", ""});
  EXPECT_THAT(table.lines(0),
              ElementsAre("NAME          SIZE  PATH",  //
                          "写真 one       9 B  /a/very/long/folder/thumbnail.jpg", "line\\nbreak  12 kB"));
  for (const std::string& line : table.lines(34)) EXPECT_LE(displayWidth(line), 34u) << line;
  EXPECT_EQ(table.lines(34)[1], "写真 one       9 B  …thumbnail.jpg");
}

TEST(Table, LeavesOutWhatMattersLeastBeforeItCutsWhatMattersMost) {
  Table table({{"NAME", Table::Kind::text},
               {"TYPE", Table::Kind::fixed, 2},
               {"SIZE", Table::Kind::number, 1},
               {"DATE", Table::Kind::fixed, 3},
               {"PROJECT", Table::Kind::text, 4},
               {"ID"},
               {"THUMBNAIL", Table::Kind::path, 5}});
  table.addRow({"A rather long name of a file.mov", "document", "1.2 MB", "2026-11-21 22:23",
                "Winter in the Alps", "0123456789abcdef01234567", "/package/Media/Thumbnail/picture.jpg"});
  const auto titles = [&](std::size_t width) { return table.lines(width)[0]; };
  EXPECT_THAT(titles(130), testing::HasSubstr("THUMBNAIL"));
  EXPECT_THAT(titles(80),
              testing::AllOf(testing::HasSubstr("SIZE"), testing::Not(testing::HasSubstr("DATE"))));
  EXPECT_THAT(table.lines(80)[1], testing::StartsWith("A rather long name of a file.mov  "));
  EXPECT_EQ(table.lines(40)[1], "A rather long…  0123456789abcdef01234567");
  EXPECT_EQ(table.lines(30)[1], "A r…  0123456789abcdef01234567");
  for (std::size_t width = 29; width < 160; ++width)
    for (const std::string& line : table.lines(width)) EXPECT_LE(displayWidth(line), width) << line;
}

TEST(Format, WritesSizesAndDurations) {
  EXPECT_EQ(formatBytes(999), "999 B");
  EXPECT_EQ(formatBytes(1234), "1.2 kB");
  EXPECT_EQ(formatBytes(9'960'000), "10 MB");
  EXPECT_EQ(formatBytes(999'700), "1.0 MB");
  EXPECT_EQ(formatBytes(UINT64_MAX), "18447 PB");
  EXPECT_EQ(formatDuration(6.6), "0:07");
  EXPECT_EQ(formatDuration(3 * 3600 + 65), "3:01:05");
  EXPECT_EQ(formatDuration(std::nan("")), "0:00");
}

}  // namespace
}  // namespace vornex::cli
