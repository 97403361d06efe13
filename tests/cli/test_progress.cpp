#include <gmock/gmock.h>

#include "cli/DisplayText.h"
#include "cli/Progress.h"

namespace vornex::cli {
namespace {

ImportState halfWay() {
  return {.files = 5,
          .totalFiles = 10,
          .bytes = 1'000'000'000,
          .totalBytes = 2'000'000'000,
          .seconds = 20,
          .current = "写真 with a rather long name that no terminal shows in full.jpg",
          .currentPercent = 40};
}

TEST(Progress, BarTellsEverythingOnAWideTerminal) {
  const std::string bar = progressBar(halfWay(), 120);
  EXPECT_THAT(
      bar, testing::StartsWith(
               "[###############---------------] 5/10 files  1.0 GB/2.0 GB  50 MB/s  0:20 left  40 % 写真"));
}

TEST(Progress, BarNeverBreaksTheLine) {
  for (std::size_t width = 0; width <= 140; ++width) {
    EXPECT_LE(displayWidth(progressBar(halfWay(), width)), width);
  }
}

TEST(Progress, ManySmallFilesAdvanceTheBarLikeAFewLargeOnes) {
  EXPECT_NEAR((ImportState{.files = 1, .totalFiles = 2, .bytes = 10, .totalBytes = 20}.fraction()), 0.5,
              1e-9);
  EXPECT_NEAR(
      (ImportState{.files = 500, .totalFiles = 1001, .bytes = 0, .totalBytes = 500'000'000}.fraction()),
      0.333, 0.001);
}

TEST(Progress, KnowsNoTimeLeftBeforeTheFirstByte) {
  EXPECT_LT((ImportState{.totalFiles = 3, .totalBytes = 9, .seconds = 1}.secondsLeft()), 0);
  EXPECT_EQ(progressLine(ImportState{.totalFiles = 3, .totalBytes = 9}), "0 of 3 files, 0 B of 9 B, 0 B/s");
  EXPECT_EQ(progressLine(ImportState{.totalBytes = 9}), "0 B of 9 B, 0 B/s") << "no files are counted";
  EXPECT_EQ(ImportState{}.fraction(), 1);
}

}  // namespace
}  // namespace vornex::cli
