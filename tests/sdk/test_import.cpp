#include <gmock/gmock.h>
#include <sys/resource.h>
#include <vornex/TQBookmarkUtil.h>
#include <vornex/TQCopyInterface.h>
#include <vornex/TQLibraryManager.h>
#include <vornex/TQWorkflowEngineInterface.h>

#include <cerrno>
#include <csignal>
#include <future>
#include <thread>

#include "foundation/Patience.h"
#include "sdk/ImportFixture.h"
#include "sdk/ServedLibrary.h"
#include "support/HungMount.h"

namespace vornex::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Creating = FakeAssetServer::Creating;

class Import : public ImportFixture {};

TEST_F(Import, PlacesEveryFileWithItsRecordAndPictures) {
  // Blank, quotes, line break, emoji, a decomposed accent and a byte that is no UTF-8.
  const std::string odd = "a \"b\" 'c'\n\xF0\x9F\x8E\xAC e\xCC\x81 \xE9.txt";
  writePicture(source("wide.jpg"), 2400, 600);
  writePicture(source("small.jpg"), 400, 800);
  writeClip(source("clip.mp4"), "640x320");
  writeText(source(odd), "text");
  writeText(source("empty.jpg"), "");
  // A file must not have its own say in the record.
  writeText(
      source("small.xmp"),
      R"(<x:xmpmeta xmlns:x="adobe:ns:meta/"><rdf:RDF xmlns:rdf="http://www.w3.org/1999/02/22-rdf-syntax-ns#">
            <rdf:Description rdf:about="" xmlns:masterpath="http://a/" xmlns:_id="http://b/" xmlns:own="http://c/"
            masterpath:x="1" _id:x="2" own:x="3"/></rdf:RDF></x:xmpmeta>)");
  auto list = items({"wide.jpg", "small.jpg", "clip.mp4", odd, "empty.jpg"});
  list[0]->metaData = {{"importer", "Someone"}, {"tags", Array{"one", "two"}}, {"custom", 7}};
  std::vector<Step> steps = import(list);

  // Every file is told at 0, then in rising steps to 100, and none before the one before it has ended.
  std::int64_t ended = 0;
  double last = 0;
  for (const Step& step : steps) {
    EXPECT_FALSE(step.error) << step.error->description();
    EXPECT_EQ(step.finishedCount, ended);
    EXPECT_GE(step.progress, last);
    last = step.progress;
    if (step.progress == 0) {
      EXPECT_EQ(step.bytes, 0);
    }
    if (step.progress == 100) {
      EXPECT_EQ(step.bytes, static_cast<std::int64_t>(std::filesystem::file_size(source(step.file))));
      ++ended;
      last = 0;
    }
  }
  EXPECT_EQ(ended, 5);

  for (const auto& [path, asset] : assets_) {
    ASSERT_TRUE(asset->id);
    Dictionary record = server_.records().at(*asset->id);
    EXPECT_EQ(*record.find("masterpath"), Value(*asset->masterPath));
    EXPECT_EQ(*record.find("importstatus"), Value(0));
    EXPECT_EQ(*record.find("importtype"), Value(1));
    EXPECT_EQ(*record.find("project"), Value(*project_->id));
    EXPECT_EQ(readFile(inPackage(asset->masterPath)).value(), readFile(path).value());
  }
  AssetPtr wide = assets_[source("wide.jpg")];
  Dictionary wideRecord = server_.records().at(*wide->id);
  EXPECT_EQ(*wideRecord.find("importer"), Value("Someone"));
  EXPECT_EQ(*wideRecord.find("custom"), Value(7));
  EXPECT_EQ(*wideRecord.find("importfrompath"), Value(source("wide.jpg")));
  EXPECT_THAT(wide->tags(), ElementsAre("one", "two"));
  Dictionary smallRecord = server_.records().at(*assets_[source("small.jpg")]->id);
  EXPECT_EQ(*smallRecord.find("own"), Value(Dictionary{{"x", "3"}}));

  ImageSize thumbnail = imageSize(inPackage(wide->thumbnailPath)).value();
  EXPECT_EQ(thumbnail.width, 300);
  EXPECT_EQ(thumbnail.height, 75);
  EXPECT_EQ(imageSize(inPackage(wide->previewPath)).value().width, 1600);
  EXPECT_TRUE(wide->previewPath->ends_with("/wide.jpg"));
  EXPECT_FALSE(fileExists(inPackage(assets_[source("small.jpg")]->previewPath)));
  ImageSize frame = imageSize(inPackage(assets_[source("clip.mp4")]->thumbnailPath)).value();
  EXPECT_EQ(frame.width, 600);
  EXPECT_EQ(frame.height, 300);
  EXPECT_TRUE(assets_[source("clip.mp4")]->thumbnailPath->ends_with("/clip.mp4.jpg"));

  AssetPtr text = assets_[source(odd)];
  EXPECT_EQ(lastPathComponent(*text->masterPath), "a \"b\" 'c'\n\xF0\x9F\x8E\xAC e\xCC\x81 %E9.txt");
  EXPECT_FALSE(text->previewPath);
  EXPECT_FALSE(fileExists(inPackage(assets_[source("empty.jpg")]->thumbnailPath)));
  EXPECT_THAT(packageFiles(), ::testing::Not(::testing::Contains(::testing::HasSubstr("journal"))));
}

TEST_F(Import, NamesThatClashAreNumbered) {
  std::filesystem::create_directory(source("other"));
  std::filesystem::create_directory(source("third"));
  for (const char* name : {"notes", "a.txt", "other/a.txt", "third/a.txt", "other/notes"})
    writeText(source(name), name);
  import(items({"a.txt", "other/a.txt", "third/a.txt", "notes", "other/notes"}));
  EXPECT_EQ(lastPathComponent(*assets_[source("third/a.txt")]->masterPath), "a 2.txt");
  EXPECT_EQ(lastPathComponent(*assets_[source("third/a.txt")]->thumbnailPath), "a 2.txt.jpg");
  EXPECT_EQ(lastPathComponent(*assets_[source("other/notes")]->masterPath), "notes 1.");
  EXPECT_EQ(readFile(inPackage(assets_[source("other/a.txt")]->masterPath)).value(), "other/a.txt");
}

TEST_F(Import, AFailedFileLeavesNothingAndTheBatchGoesOn) {
  writePicture(source("a.jpg"), 100, 100);
  writeText(source("b.txt"), "b");
  std::filesystem::create_symlink(source("loop"), source("loop"));
  server_.creating = Creating::refuses;
  std::vector<Step> steps = import(items({"missing.jpg", "loop", "a.jpg", "b.txt"}), ImportType::copy, false,
                                   [this](const Step& step) {
                                     if (step.file == "b.txt") server_.creating = Creating::works;
                                     return false;
                                   });
  std::vector<std::int64_t> codes;
  for (const Step& step : steps)
    if (step.error) codes.push_back(step.error->code());
  EXPECT_THAT(codes, ElementsAre(10009, 10009, 16));
  EXPECT_EQ(assets_[source("a.jpg")]->importStatus(), -1);
  EXPECT_THAT(packageFiles(), ElementsAre(*assets_[source("b.txt")]->masterPath));
  EXPECT_EQ(server_.records().size(), 1U);
}

TEST_F(Import, ACopyThatCannotBeWrittenFailsByNameAndLeavesNothing) {
  std::ofstream(source("big.bin")) << std::string(2 << 20, 'x');
  writeText(source("small.txt"), "small");
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit before;
  ::getrlimit(RLIMIT_FSIZE, &before);
  rlimit small{1 << 20, before.rlim_max};
  ::setrlimit(RLIMIT_FSIZE, &small);
  std::vector<Step> steps = import(items({"big.bin", "small.txt"}));
  ::setrlimit(RLIMIT_FSIZE, &before);
  auto failed =
      std::find_if(steps.begin(), steps.end(), [](const Step& step) { return step.error != nullptr; });
  ASSERT_NE(failed, steps.end());
  EXPECT_EQ(failed->error->domain(), "posix");
  EXPECT_EQ(failed->error->code(), EFBIG);
  EXPECT_THAT(failed->error->message(), ::testing::HasSubstr("big.bin"));
  EXPECT_THAT(packageFiles(), ElementsAre(*assets_[source("small.txt")]->masterPath));
}

TEST_F(Import, ARecordWhoseAnswerWasLostIsTakenBack) {
  std::filesystem::create_directory(source("other"));
  writeText(source("a.txt"), "a");
  writeText(source("other/a.txt"), "other");
  server_.creating = Creating::losesAnswer;
  auto recover = [this](const Step& step) {
    if (step.file == "other/a.txt") server_.creating = Creating::works;
    return false;
  };
  import(items({"a.txt", "other/a.txt"}), ImportType::copy, false, recover);
  // The lost record keeps its name, so the second file cannot be taken for it.
  const std::string kept = *assets_[source("other/a.txt")]->masterPath;
  EXPECT_EQ(lastPathComponent(kept), "a 1.txt");
  EXPECT_EQ(server_.records().size(), 1U);
  EXPECT_THAT(packageFiles(), ElementsAre(::testing::HasSubstr("journal"), kept));

  // A record that the server makes later all the same is found by the next look, for a while. The same goes
  // for one of which the server said that it takes too long.
  std::vector<std::string> late{*assets_[source("a.txt")]->masterPath};
  server_.creating = Creating::takesTooLong;
  import(items({"a.txt"}));
  late.push_back(*assets_[source("a.txt")]->masterPath);
  for (const std::string& master : late)
    server_.add(master, {{"name", "a"}, {"type", 3}, {"importtype", 1}, {"masterpath", master}});
  EXPECT_TRUE(library_->recoverInterruptedImports(nullptr));
  EXPECT_EQ(server_.records().size(), 1U);
  EXPECT_TRUE(fileExists(inPackage(kept)));
}

TEST_F(Import, StopTakesTheCurrentFileBackAndEndsTheBatch) {
  writeText(source("first.txt"), "first");
  std::ofstream(source("big.bin")) << std::string(64 << 20, 'x');
  writeText(source("last.txt"), "last");
  std::vector<Step> steps =
      import(items({"first.txt", "big.bin", "last.txt"}), ImportType::copy, false,
             [](const Step& step) { return step.file == "big.bin" && step.progress > 0; });
  EXPECT_EQ(steps.back().file, "big.bin");
  // Where the file system shares the space of both files, the copy may have ended before it is stopped.
  if (steps.back().error) {
    EXPECT_EQ(steps.back().error->domain(), "posix");
    EXPECT_EQ(steps.back().error->code(), ECANCELED);
  }
  EXPECT_THAT(packageFiles(), ElementsAre(*assets_[source("first.txt")]->masterPath));

  // At the first word of a file nothing of it is placed; at its last, everything is taken back.
  for (double when : {0.0, 100.0}) {
    auto stop = [when](const Step& step) { return !step.error && step.progress == when; };
    import(items({"last.txt", "first.txt"}), ImportType::copy, false, stop);
    EXPECT_EQ(packageFiles().size(), 1U);
    EXPECT_EQ(server_.records().size(), 1U);
  }
}

TEST_F(Import, ALostDiskCostsItsFilesAndPicturesAndNotTheBatch) {
  HungMount mount(source("mount"), folder_ / "mounted");
  if (!mount.isMounted()) GTEST_SKIP() << "this process may not mount";
  setSourcePatience(std::chrono::milliseconds(1500));
  writeText(source("local.txt"), "local");
  // The disk is lost when the first file is copied and all but recorded.
  server_.whenCreating = [&] { mount.fallSilent(); };
  std::vector<std::string> names{"mount/copied.txt"};
  for (int i = 0; i < 40; ++i) names.push_back("mount/" + std::to_string(i));
  names.push_back("local.txt");
  auto list = items(names);
  list[0]->metaData = {{"tags", Array{"one"}}};
  auto begin = std::chrono::steady_clock::now();
  std::set<std::string> silent;
  for (const Step& step : import(list)) {
    EXPECT_TRUE(assets_[source(step.file)]) << step.file;
    if (!step.error) continue;
    EXPECT_EQ(step.error->code(), ETIMEDOUT);
    silent.insert(step.file);
  }
  EXPECT_EQ(silent.size(), 40U);
  EXPECT_EQ(server_.records().size(), 2U);
  EXPECT_TRUE(fileExists(inPackage(assets_[source("mount/copied.txt")]->masterPath)));
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(40));

  // A stop is heard while the look at a file hangs.
  setSourcePatience(std::chrono::hours(1));
  EXPECT_EQ(import(items({"mount/0"}), ImportType::copy, false, [](const Step&) { return true; })
                .back()
                .error->code(),
            ECANCELED);
}

TEST_F(Import, ALostTargetCostsEachFileAndNotTheBatch) {
  HungMount target(folder_ / "target", folder_ / "mounted");
  if (!target.isMounted()) GTEST_SKIP() << "this process may not mount";
  auto lose = [&](const Step&) {
    target.fallSilent();
    return false;
  };
  setSourcePatience(std::chrono::milliseconds(1500));
  for (const char* name : {"a.txt", "b.txt"}) writeText(source(name), name);
  std::set<std::string> silent;
  for (const Step& step : import(items({"a.txt", "b.txt"}), ImportType::reference, true, lose)) {
    if (!step.error) continue;
    EXPECT_EQ(step.error->code(), ETIMEDOUT);
    silent.insert(step.file);
  }
  EXPECT_THAT(silent, ElementsAre("a.txt", "b.txt"));
  EXPECT_TRUE(server_.records().empty());
  EXPECT_THAT(packageFiles(), ElementsAre("/library.plist"));
}

TEST_F(Import, ReferencesAreLinksToTheSourceOrToItsIndexedCopy) {
  writePicture(source("a.jpg"), 200, 100);
  import(items({"a.jpg"}), ImportType::reference);
  AssetPtr asset = assets_[source("a.jpg")];
  EXPECT_EQ(std::filesystem::read_symlink(inPackage(asset->masterPath)), source("a.jpg"));
  EXPECT_TRUE(library_->hasReferenceFile);
  // A reference may be offline: even a small image gets a preview.
  EXPECT_TRUE(fileExists(inPackage(asset->previewPath)));

  import(items({"a.jpg"}), ImportType::reference, true);
  asset = assets_[source("a.jpg")];
  std::string copy = folder_ / ("target/" + lastPathComponent(*asset->masterPath));
  EXPECT_EQ(std::filesystem::read_symlink(inPackage(asset->masterPath)), copy);
  EXPECT_EQ(*server_.records().at(*asset->id).find("importfrompath"), Value(copy));
  EXPECT_EQ(readFile(copy).value(), readFile(source("a.jpg")).value());
  EXPECT_EQ(*server_.records().at(*asset->id).find("sourcepath"), Value(source("a.jpg")));
}

TEST_F(Import, ACopyForAReferenceTakesNoNameOfOthersAndGoesWhenTheFileFails) {
  writeText(source("a.txt"), "a");
  int zeros = 0;
  // The second word comes from the copy under way: another program is faster.
  auto interfere = [&](const Step& step) {
    if (step.progress == 0 && ++zeros == 2) writeText(folder_ / "target/a.txt", "foreign");
    return false;
  };
  import(items({"a.txt"}), ImportType::reference, true, interfere);
  AssetPtr asset = assets_[source("a.txt")];
  const std::string copy = folder_ / "target/a 1.txt";
  EXPECT_EQ(std::filesystem::read_symlink(inPackage(asset->masterPath)), copy);
  EXPECT_EQ(*server_.records().at(*asset->id).find("importfrompath"), Value(copy));
  EXPECT_EQ(readFile(folder_ / "target/a.txt").value(), "foreign");

  std::filesystem::remove(folder_ / "target/a.txt");
  server_.creating = Creating::refuses;
  import(items({"a.txt"}), ImportType::reference, true);
  EXPECT_FALSE(itemExists(folder_ / "target/a.txt"));
  EXPECT_TRUE(fileExists(copy));
  EXPECT_FALSE(itemExists(inPackage(assets_[source("a.txt")]->masterPath)));
}

TEST_F(Import, EveryFileThatEndsWellIsHandedToTheWorkflowEngine) {
  writeText(source("a.txt"), "a");
  writeText(source("b.txt"), "b");
  TQWorkflowEngineInterface& engine = TQLibraryManager::sharedManager().workflowEngineInterface();
  std::mutex mutex;
  std::vector<std::string> handed;
  std::promise<void> both;
  engine.setAssetEngine([&](std::vector<Dictionary> assets, const OptionalString& folder,
                            const OptionalString& project, const OptionalString&) {
    std::lock_guard lock(mutex);
    if (folder != package()) return;  // of a batch before this one
    EXPECT_EQ(project, project_->id);
    handed.push_back(*assets.at(0).find("masterpath")->ifString());
    if (handed.size() == 2) both.set_value();
  });
  import(items({"a.txt", "missing", "b.txt"}));
  EXPECT_EQ(both.get_future().wait_for(std::chrono::seconds(20)), std::future_status::ready);
  engine.setAssetEngine({});
  // The last call may still be on its way out.
  std::lock_guard lock(mutex);
  EXPECT_THAT(handed,
              ElementsAre(*assets_[source("a.txt")]->masterPath, *assets_[source("b.txt")]->masterPath));
}

TEST_F(Import, SideFilesAreRecordedOrPlacedOnTheirOwn) {
  writeText(source("clip.rmd"), "side");
  auto list = items({"clip.rmd", "clip.rmd"});
  list[1]->isSeparateRMDFile = true;
  import(list);
  EXPECT_EQ(server_.records().size(), 2U);
  EXPECT_EQ(packageFiles().size(), 1U);
}

/// A clip of one frame, as far as the demuxer reads it: a header, then a JPEG 2000 picture.
void writeREDClip(const std::string& path) {
  const std::string picture = path + ".j2k";
  const std::string command =
      "ffmpeg -loglevel error -y -f lavfi -i testsrc=size=640x320 -frames:v 1 -pix_fmt rgb24 -c:v jpeg2000 "
      "-format j2k -f image2 '" +
      picture + "'";
  ASSERT_EQ(std::system(command.c_str()), 0);
  auto number = [](std::uint32_t value, int bytes) {
    std::string text;
    while (bytes-- > 0) text += static_cast<char>(value >> (8 * bytes));
    return text;
  };
  auto atom = [&](const char* tag, const std::string& body) {
    return number(static_cast<std::uint32_t>(body.size()) + 8, 4) + tag + body;
  };
  std::string name = lastPathComponent(path);
  name.resize(257);
  std::string header = number(0x0100, 2) + number(0, 2) + number(24000, 4) + number(1, 4) +
                       std::string(32, '\0') + number(640, 4) + number(320, 4) + number(0, 2) +
                       number(24000, 2) + number(1001, 2) + number(0, 1) + name;
  std::string frame =
      number(0, 4) + number(0, 4) + number(0x0100, 2) + number(0, 2) + readFile(picture).value();
  writeText(path, atom("RED1", header) + atom("REDV", frame));
  std::filesystem::remove(picture);
}

TEST_F(Import, AClipFolderIsCopiedWholeAndItsSideFileFollows) {
  std::filesystem::create_directory(source("A001_C002_0101AB.RDC"));
  const std::string clip = "A001_C002_0101AB.RDC/A001_C002_0101AB_001.R3D";
  writeREDClip(source(clip));
  writeText(source("A001_C002_0101AB.RDC/A001_C002_0101AB.rmd"), "side");
  std::filesystem::create_directory(folder_ / "target/A001_C002_0101AB.RDC");  // the name is taken
  auto list = items({"A001_C002_0101AB.RDC", "A001_C002_0101AB.RDC/A001_C002_0101AB.rmd"});
  list[0]->isREDFile = true;
  list[0]->fileSize = 1234;
  list[0]->verifiesCopy = true;
  // A later part of a spanned clip is copied, and has no record.
  std::filesystem::create_directory(source("A001_C003_0101AB.RDC"));
  writeText(source("A001_C003_0101AB.RDC/A001_C003_0101AB_002.R3D"), "part");
  list.push_back(items({"A001_C003_0101AB.RDC"}).front());
  list[2]->isREDFile = list[2]->isSequentialREDFile = true;
  std::vector<Step> steps = import(list, ImportType::reference, true);
  for (const Step& step : steps) EXPECT_FALSE(step.error) << step.error->description();
  EXPECT_FALSE(project_->availableTargetREDFolders());
  EXPECT_TRUE(fileExists(folder_ / "target/A001_C003_0101AB.RDC/A001_C003_0101AB_002.R3D"));
  EXPECT_EQ(server_.records().size(), 2U);

  const std::string copies = folder_ / "target/A001_C002_0101AB 1.RDC";
  AssetPtr asset = assets_[source("A001_C002_0101AB.RDC")];
  EXPECT_EQ(asset->name(), "A001_C002_0101AB");
  EXPECT_EQ(std::filesystem::read_symlink(inPackage(asset->masterPath)),
            copies + "/A001_C002_0101AB_001.R3D");
  Dictionary record = server_.records().at(*asset->id);
  EXPECT_EQ(*record.find("name"), Value("A001_C002_0101AB"));
  EXPECT_EQ(*record.find("filesize"), Value(1234));
  EXPECT_EQ(*record.find("importfrompath"), Value(copies + "/A001_C002_0101AB_001.R3D"));
  EXPECT_EQ(*record.find("red")->find("frame_rate"), Value("24000/1001"));
  EXPECT_EQ(*record.find("mediainfo")->find("video_width"), Value(640));
  EXPECT_TRUE(record.find("checksum")->ifString()->starts_with("xxh128:"));
  EXPECT_EQ(imageSize(inPackage(asset->thumbnailPath)).value().width, 600);

  AssetPtr side = assets_[source("A001_C002_0101AB.RDC/A001_C002_0101AB.rmd")];
  EXPECT_EQ(readFile(inPackage(side->masterPath)).value(), "side");
  EXPECT_EQ(std::filesystem::read_symlink(inPackage(side->masterPath)), copies + "/A001_C002_0101AB.rmd");
}

TEST_F(Import, NamesThatDoNotFitAreCutAndKeepTheirPreviewsApart) {
  // Equal but for the ends that are cut off for a suffix; and bytes that take three characters each in a
  // record.
  const std::string stem(250, 'n'), bytes(200, '\xff');
  for (const char* end : {"a.jpg", "b.jpg"}) writePicture(source(stem + end), 1700, 20);
  writeText(source(bytes + ".txt"), "bytes");
  for (const Step& step : import(items({stem + "a.jpg", stem + "b.jpg", bytes + ".txt"})))
    EXPECT_FALSE(step.error) << step.error->description();
  EXPECT_NE(*assets_[source(stem + "a.jpg")]->previewPath, *assets_[source(stem + "b.jpg")]->previewPath);
  EXPECT_TRUE(fileExists(inPackage(assets_[source(stem + "b.jpg")]->previewPath)));
  EXPECT_TRUE(assets_[source(bytes + ".txt")]->masterPath->ends_with(".txt"));
}

TEST_F(Import, RefusesAtOnceWhatCannotBegin) {
  auto refusal = [this](ImportType type, const OptionalString& target) {
    std::int64_t code = 0;
    project_->createAssetsWithImportAssets(
        {}, type, target, true, {}, [&](bool ok, const TQErrorPtr& error) { code = ok ? 0 : error->code(); });
    return code;
  };
  EXPECT_EQ(refusal(ImportType::reference, folder_ / "none"), 10009);
  library_->libraryType = kLibraryTypeNetwork;
  EXPECT_EQ(refusal(ImportType::copy, {}), 10005);
  library_->packageFolder = folder_ / "none";
  EXPECT_EQ(refusal(ImportType::copy, {}), 10009);
}

TEST_F(Import, BatchesSideBySideKeepApart) {
  writeText(source("a.txt"), "a");
  std::atomic<int> open = 4;
  for (int i = 0; i < 4; ++i)
    project_->createAssetsWithImportAssets(items({"a.txt"}), ImportType::copy, {}, false, {},
                                           [&](bool, const TQErrorPtr&) {
                                             if (--open == 0) MainQueue::shared().stop();
                                           });
  MainQueue::shared().run();
  std::set<std::string> masters;
  for (const auto& [id, record] : server_.records()) masters.insert(*record.find("masterpath")->ifString());
  EXPECT_EQ(masters.size(), 4U);
  EXPECT_EQ(packageFiles().size(), 4U);
}

TEST_F(Import, OneFileOutsideABatch) {
  writeText(source("a.txt"), "a");
  TQErrorPtr failure;
  int ends = 0;
  auto callback = [&](const AssetPtr&, double, std::int64_t, bool finished, const TQErrorPtr& error) {
    if (!finished) return;
    ++ends;
    failure = error;
    if (!error) MainQueue::shared().stop();
  };
  project_->importAssetWithSourcePath(source("a.txt"), library_->createAssetFolder(), {{"rating", 3}},
                                      ImportType::reference, {}, false, callback);
  MainQueue::shared().run();
  EXPECT_FALSE(failure);
  ASSERT_EQ(server_.records().size(), 1U);
  EXPECT_EQ(*server_.records().begin()->second.find("rating"), Value(3));

  AssetFolderPtr outside =
      TQAssetFolder::assetFolderWithMasterpath(folder_ / "x", folder_ / "y", folder_ / "z", "");
  project_->importAssetWithSourcePath(source("a.txt"), outside, {}, ImportType::reference, {}, false,
                                      callback);
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->code(), 10001);
  project_->importAssetWithSourcePath(source("a.txt"), nullptr, {}, ImportType::reference, {}, false,
                                      callback);
  EXPECT_EQ(failure->code(), 10000);
  // A copy needs a folder to go to.
  project_->createAssetWithFolder(library_->createAssetFolder(), source("a.txt"), {}, true, true,
                                  ImportType::reference, nullptr, callback);
  EXPECT_EQ(failure->code(), 10000);
  EXPECT_EQ(ends, 4);
}

TEST(CopyService, TakesJobsInTurnAndReportsEachOnce) {
  TemporaryFolder folder;
  for (const char* name : {"a", "b", "c"}) std::ofstream(folder / name) << std::string(40 << 20, name[0]);
  Data token = TQBookmarkUtil::sharedInstance().bookmarkDataFromFilePath(folder.path()).value();
  TQCopyInterface service;
  std::mutex mutex;
  std::vector<std::pair<std::string, std::int64_t>> ends;
  auto start = [&](const std::string& name, TQCopyInterface::ProgressHandler progress) {
    auto report = [&, name](const Value&, const TQErrorPtr& error) {
      std::lock_guard lock(mutex);
      ends.emplace_back(name, error ? error->code() : 0);
      throw std::runtime_error("a host's mistake");
    };
    return service.copy({folder / name, folder / (name + " copy"), token, true, progress, report}, {});
  };
  std::promise<void> begun, mayGoOn;
  std::atomic<bool> isFirst = true;
  std::atomic<std::int64_t> mostBytes = 0;
  start("a", [&, wait = mayGoOn.get_future().share()](double percent, std::int64_t bytes) {
    if (isFirst.exchange(false)) begun.set_value();
    wait.wait();
    EXPECT_LT(percent, 100);
    mostBytes = std::max<std::int64_t>(mostBytes, bytes);
  });
  TQCopyInterface::JobID second = start("b", {});
  start("c", [&](double, std::int64_t) { service.cancel(); });
  begun.get_future().wait();
  service.cancel(second);  // while it waits
  mayGoOn.set_value();
  auto count = [&] {
    std::lock_guard lock(mutex);
    return ends.size();
  };
  for (int i = 0; i < 2000 && count() < 3; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  EXPECT_THAT(ends, ElementsAre(std::pair("a", 0), std::pair("b", ECANCELED), std::pair("c", ECANCELED)));
  EXPECT_TRUE(mostBytes == 40 << 20);
  EXPECT_TRUE(fileExists(folder / "a copy"));
  EXPECT_FALSE(itemExists(folder / "b copy") || itemExists(folder / "c copy"));
}

class ImportRequests : public ServedLibrary {};

TEST_F(ImportRequests, ReferencesOfWhichTheServerSaysThatItCannotReachThem) {
  ProjectPtr project = addRoot("p", "Project");
  using Paths = std::vector<std::string>;
  auto ask = [&] {
    return await<bool, TQErrorPtr, Paths>([&](auto done) {
      project->accessibilityForReferenceFilePaths({"/a", "/b"}, done);
    });
  };
  answer(R"({"failures": [{"path": "/b"}, {"other": 1}, 7]})");
  EXPECT_EQ(ask(), std::tuple(true, nullptr, Paths{"/b"}));
  EXPECT_EQ(lastTarget(), "POST /vornex/libraries/db/assets/access");
  EXPECT_EQ(lastBody().find("items")->ifArray()->back(), Value(Dictionary{{"path", "/b"}}));
  answer("{}");
  EXPECT_EQ(ask(), std::tuple(true, nullptr, Paths{}));
  // What the server says, and what the caller is told.
  for (auto [code, told] : {std::pair(35, 0), std::pair(14, 10022), std::pair(16, 16)}) {
    refuse(code);
    auto [ok, error, paths] = ask();
    EXPECT_FALSE(ok);
    EXPECT_EQ(codeOf(error), told);
    EXPECT_EQ(paths, (Paths{"/a", "/b"}));
  }
}

TEST_F(ImportRequests, AVideoGetsItsCatalogFolderAndARecordOfIt) {
  ProjectPtr project = addRoot("p", "Project");
  const std::string catalogs = folder_ / "Media/Catalog";
  EXPECT_EQ(project->createCatalogPathWithAssetID("7", kAssetTypeImage, catalogs), std::nullopt);
  EXPECT_EQ(project->createCatalogPathWithAssetID("7", kAssetTypeVideo, catalogs), "/Media/Catalog/7");
  EXPECT_TRUE(std::filesystem::is_directory(catalogs + "/7"));
  EXPECT_EQ(lastTarget(), "POST /vornex/libraries/db/assets/update");
  EXPECT_EQ(lastItem(), Value(Dictionary{{"_id", "7"}, {"catalogpath", "/Media/Catalog/7"}}));
  writeText(folder_ / "file", "");
  EXPECT_EQ(project->createCatalogPathWithAssetID("7", kAssetTypeVideo, folder_ / "file"), std::nullopt);
}

}  // namespace
}  // namespace vornex::testing
