#include <fcntl.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <sys/file.h>

#include "foundation/FileDescriptor.h"
#include "foundation/Patience.h"
#include "foundation/Text.h"
#include "import/FileFacts.h"
#include "import/FileNames.h"
#include "import/ImportJournal.h"
#include "import/PackagePath.h"
#include "import/Thumbnail.h"
#include "sdk/ImportFixture.h"
#include "support/HungMount.h"

namespace vornex::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ImportRecoveryTest : public ImportFixture {
 protected:
  void SetUp() override {
    ImportFixture::SetUp();
    for (const char* name : {"Master", "Thumbnail", "Preview"})
      std::filesystem::create_directories(package() + "/Media/" + name);
  }

  static ImportJournalEntry entry(const std::string& name) {
    return {"/Media/Master/" + name, "/Media/Thumbnail/" + name + ".jpg", "/Media/Preview/" + name, ""};
  }
  void leaveJournal(const std::vector<ImportJournalEntry>& entries) {
    ImportJournal journal(importJournalFolder(package()));
    for (const ImportJournalEntry& each : entries) ASSERT_TRUE(journal.begin(each));
  }
  void addRecord(const std::string& name) {
    server_.add(name, {{"name", name},
                       {"type", 2},
                       {"importtype", 1},
                       {"masterpath", "/Media/Master/" + name},
                       {"mediainfo", Dictionary{{"image_width", 2000}, {"image_height", 1000}}}});
  }
};

TEST_F(ImportRecoveryTest, SettlesEachStateThatAKilledImportLeaves) {
  const std::string odd = "odd \"x\" \\ \n.txt";
  leaveJournal(
      {entry("unplaced.jpg"), entry("placed.jpg"), entry("orphan.jpg"), entry("whole.jpg"), entry(odd)});
  writeText(package() + "/Media/Master/placed.jpg", "half");
  writeText(package() + "/Media/Thumbnail/.vornex-0123456789abcdef.tmp", "half");
  addRecord("orphan.jpg");
  addRecord("whole.jpg");
  writePicture(package() + "/Media/Master/whole.jpg", 2000, 1000);
  addRecord(odd);
  writeText(package() + "/Media/Master/" + odd, "text");

  TQErrorPtr error;
  EXPECT_TRUE(library_->recoverInterruptedImports(&error));
  EXPECT_FALSE(error);
  EXPECT_THAT(packageFiles(), ElementsAre("/Media/Master/" + odd, "/Media/Master/whole.jpg",
                                          "/Media/Preview/whole.jpg", "/Media/Thumbnail/whole.jpg.jpg"));
  EXPECT_EQ(server_.records().size(), 2U);
  EXPECT_EQ(server_.records().count("orphan.jpg"), 0U);
}

TEST_F(ImportRecoveryTest, WaitsForAServerThatCannotTell) {
  leaveJournal({entry("placed.jpg")});
  writeText(package() + "/Media/Master/placed.jpg", "half");
  server_.isBroken = true;
  TQErrorPtr error;
  EXPECT_FALSE(library_->recoverInterruptedImports(&error));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code(), 16);
  EXPECT_TRUE(fileExists(package() + "/Media/Master/placed.jpg"));
  server_.isBroken = false;
  EXPECT_TRUE(library_->recoverInterruptedImports(nullptr));
  EXPECT_THAT(packageFiles(), IsEmpty());
}

TEST_F(ImportRecoveryTest, LeavesRunningImportsAndForeignPathsAlone) {
  std::string journals = importJournalFolder(package());
  ImportJournal running(journals);
  ASSERT_TRUE(running.begin(entry("running.jpg")));
  writeText(package() + "/Media/Master/running.jpg", "coming");
  // Also by a link that a package from elsewhere brings along.
  std::filesystem::create_directories(folder_ / "outside/folder");
  writeText(folder_ / "outside/folder/mine.jpg", "mine");
  std::filesystem::create_symlink(folder_ / "outside", package() + "/Media/Master/link");
  leaveJournal({entry("../../../outside/folder"),
                entry("link/folder"),
                entry("link/folder/mine.jpg"),
                entry("running.jpg"),
                {"/Media/Master/", "/Media/Thumbnail", "", ""}});
  EXPECT_TRUE(library_->recoverInterruptedImports(nullptr));
  EXPECT_TRUE(fileExists(package() + "/Media/Master/running.jpg"));
  EXPECT_TRUE(fileExists(folder_ / "outside/folder/mine.jpg"));
  EXPECT_TRUE(running.isPending("/Media/Master/running.jpg"));
}

TEST_F(ImportRecoveryTest, ABatchTidiesUpFirst) {
  leaveJournal({entry("placed.jpg")});
  writeText(package() + "/Media/Master/placed.jpg", "half");
  import({});
  EXPECT_THAT(packageFiles(), IsEmpty());
}

TEST_F(ImportRecoveryTest, ACopyForAReferenceGoesIfItIsStillTheOneThatWasMade) {
  for (const char* name : {"mine", "changed"}) {
    const std::string copy = folder_ / (std::string("target/") + name);
    writeText(copy, "copy");
    ImportJournal journal(importJournalFolder(package()));
    ImportJournalEntry reference = entry(name);
    reference.targetPath = copy;
    ASSERT_TRUE(journal.begin(reference));
    journal.markPlaced(reference.masterPath, fileIdentity(copy));
  }
  writeText(folder_ / "target/changed", "edited since");
  // What is unfinished in a folder that another import holds may be that one's: the journal stays for later.
  const std::string unfinished = folder_ / "target/.vornex-copy-0123456789abcdef";
  writeText(unfinished, "half");
  {
    FileDescriptor other(::open((folder_ / "target").c_str(), O_RDONLY | O_DIRECTORY));
    ASSERT_EQ(::flock(other.get(), LOCK_SH), 0);
    EXPECT_TRUE(library_->recoverInterruptedImports(nullptr));
    EXPECT_TRUE(itemExists(unfinished));
  }
  EXPECT_FALSE(itemExists(folder_ / "target/mine"));
  EXPECT_TRUE(library_->recoverInterruptedImports(nullptr));
  EXPECT_FALSE(itemExists(unfinished));
  EXPECT_TRUE(itemExists(folder_ / "target/changed"));
  EXPECT_THAT(packageFiles(), IsEmpty());
}

TEST_F(ImportRecoveryTest, ALostTargetIsLeftForLater) {
  ImportJournalEntry reference = entry("copied.jpg");
  reference.targetPath = folder_ / "target/copied.jpg";
  leaveJournal({reference});
  {
    HungMount mount(folder_ / "target", folder_ / "mounted");
    if (!mount.isMounted()) GTEST_SKIP() << "this process may not mount";
    mount.fallSilent();
    setSourcePatience(std::chrono::milliseconds(500));
    EXPECT_TRUE(library_->recoverInterruptedImports(nullptr));
    EXPECT_FALSE(packageFiles().empty());
  }
  EXPECT_TRUE(library_->recoverInterruptedImports(nullptr));
  EXPECT_THAT(packageFiles(), IsEmpty());
}

TEST(ImportJournal, ReadsWhatIsWholeAndNotEnded) {
  TemporaryFolder folder;
  ImportJournalEntry first{"/Media/Master/a", "/Media/Thumbnail/a.jpg", "", "/target/\xE9"};
  {
    ImportJournal journal(folder.path());
    ASSERT_TRUE(journal.begin(first));
    ASSERT_TRUE(journal.begin({"/Media/Master/b", "/Media/Thumbnail/b.jpg", "", ""}));
    journal.end("/Media/Master/b");
    EXPECT_TRUE(FoundJournal::inFolder(folder.path()).at(0).isRunning());
  }
  std::vector<FoundJournal> found = FoundJournal::inFolder(folder.path());
  ASSERT_EQ(found.size(), 1U);
  EXPECT_FALSE(found[0].isRunning());
  EXPECT_THAT(found[0].pending(), ElementsAre(first));

  // A line that a full disk broke off, and the ones after it.
  EXPECT_THAT(pendingEntries("\n{\"begin\": {\"masterpath\": \"/Media/Mas\n"
                             "{\"begin\":{\"masterpath\":\"/Media/M/a\",\"thumbnailpath\":\"/Media/T/a\"}}\n"
                             "{\"end\": \"/Media/X\"}\n[1]\nnull\n{\"end\":"),
              ElementsAre(ImportJournalEntry{"/Media/M/a", "/Media/T/a", "", ""}));
}

TEST(FileNames, StayWithinWhatAFileNameHolds) {
  std::string longName;
  while (longName.size() < 255) longName += "\xEA\xB0\x80";
  std::string thumbnail = fittingFileName(longName, ".jpg");
  EXPECT_LE(thumbnail.size(), 255U);
  EXPECT_TRUE(isValidUtf8(thumbnail));
  std::string numbered =
      availableFileName(longName, [&](const std::string& name) { return name == longName; });
  EXPECT_LE(numbered.size(), 255U);
  EXPECT_TRUE(numbered.ends_with(" 1."));
}

TEST(FileNames, RedClips) {
  EXPECT_EQ(reelName("A001_C002_0101AB_001.R3D"), "A001_C002_0101AB");
  EXPECT_EQ(reelName("A001_C002_0101AB.R3D"), std::nullopt);
  TemporaryFolder folder;
  writeText(folder / "notes.txt", "");
  EXPECT_EQ(referenceREDFile(folder.path(), "/t"), std::nullopt);
  for (int part = 12; part > 0; --part)
    writeText(folder / fmt::format("A001_C002_0101AB_{:03}.R3D", part), "");
  EXPECT_EQ(referenceREDFile(folder.path(), "/t"), "/t/A001_C002_0101AB_001.R3D");
  std::filesystem::create_directory(folder / "clip.RDC");
  EXPECT_EQ(availableREDFolder(folder.path(), "clip.RDC"), folder / "clip 1.RDC");
}

TEST(Thumbnails, OfFilesThatThePreviewerDoesNotShow) {
  TemporaryFolder folder;
  writeClip(folder / "tall.mp4", "160x320");
  ASSERT_TRUE(writeThumbnail(folder / "tall.mp4", folder / "tall.jpg"));
  EXPECT_EQ(imageSize(folder / "tall.jpg").value().width, 300);
  EXPECT_EQ(imageSize(folder / "tall.jpg").value().height, 600);

  writePicture(folder / "cover.jpg", 400, 100);
  std::string encode = "ffmpeg -loglevel error -y -f lavfi -i sine=duration=1 -i '" + (folder / "cover.jpg") +
                       "' -map 0 -map 1 -c:v copy -disposition:v attached_pic '" + (folder / "song.mp3") +
                       "'";
  ASSERT_EQ(std::system(encode.c_str()), 0);
  ASSERT_TRUE(writeThumbnail(folder / "song.mp3", folder / "song.jpg"));
  EXPECT_EQ(imageSize(folder / "song.jpg").value().width, 1200);
  EXPECT_EQ(imageSize(folder / "song.jpg").value().height, 300);

  writeText(folder / "silent.wav", "RIFF");
  EXPECT_FALSE(writeThumbnail(folder / "silent.wav", folder / "silent.jpg"));
}

TEST(Thumbnails, ByTheProgramWhenNothingElseCan) {
  TemporaryFolder folder;
  writeClip(folder / "50%d.mp4", "640x320");
  // Shorter than the time asked for: only the second try gives a frame.
  EXPECT_FALSE(TQImage::ffMpegWriteThumbImageWithFrom(folder / "50%d.mp4", folder / "50%d.jpg", 10));
  EXPECT_FALSE(fileExists(folder / "50%d.jpg"));
  EXPECT_TRUE(TQImage::ffMpegWriteThumbImageWithFrom(folder / "50%d.mp4", folder / "50%d.jpg", 0));
  EXPECT_EQ(imageSize(folder / "50%d.jpg").value().width, 300);
  EXPECT_EQ(imageSize(folder / "50%d.jpg").value().height, 150);
  ::setenv("VORNEX_FFMPEG", "/nowhere/ffmpeg", 1);
  EXPECT_FALSE(TQImage::ffMpegWriteThumbImageWithFrom(folder / "50%d.mp4", folder / "no.jpg", 0));
  ::unsetenv("VORNEX_FFMPEG");
}

TEST(Previews, AreMadeForLargeAndReferencedImages) {
  auto metadata = [](int width, int height) {
    return Dictionary{{"mediainfo", Dictionary{{"image_width", width}, {"image_height", height}}}};
  };
  EXPECT_FALSE(needsPreview(metadata(1600, 1200), 1));
  EXPECT_TRUE(needsPreview(metadata(1600, 1200), 0));
  EXPECT_TRUE(needsPreview(metadata(1601, 100), 1));
  EXPECT_TRUE(needsPreview({{"mediainfo", Dictionary()}}, 1));
  EXPECT_FALSE(needsPreview({}, 0));
}

}  // namespace
}  // namespace vornex::testing
