#include <gtest/gtest.h>
#include <sys/stat.h>

#include <thread>

#include "Fixtures.h"
#include "platform/MediaInformation.h"
#include "platform/Previewer.h"
#include "support/TemporaryFolder.h"

namespace vornex {

using testing::colourAt;
using testing::photo;
using testing::quarters;
using vips::VImage;

class Images : public ::testing::Test {
 protected:
  /// The user's thumbnailers: read once, so set before anything asks for one.
  static void SetUpTestSuite() { setenv("XDG_DATA_HOME", dataHome().path().c_str(), 1); }
  static testing::TemporaryFolder& dataHome() {
    static testing::TemporaryFolder folder;
    return folder;
  }

  testing::TemporaryFolder folder_;
};

TEST_F(Images, ThumbnailsKeepTheAspectWithinTheBoundAndAreNotEnlarged) {
  struct Case {
    int width, height, expectedWidth, expectedHeight;
  };
  for (Case c : {Case{4000, 1000, 300, 75}, {1000, 4000, 75, 300}, {300, 300, 300, 300}, {40, 20, 40, 20}}) {
    std::string path = folder_ / "a.png";
    quarters(c.width, c.height).pngsave(path.c_str());
    auto image = loadThumbnail(path, 300, 300);
    ASSERT_TRUE(image) << image.error().message;
    EXPECT_EQ(image->width(), c.expectedWidth);
    EXPECT_EQ(image->height(), c.expectedHeight);
    EXPECT_FALSE(image->isPartial());
    EXPECT_EQ(colourAt(*image, 0.2, 0.2), "red");
  }
  std::string line = folder_ / "line.jpg";
  quarters(4000, 7).jpegsave(line.c_str());
  auto image = loadThumbnail(line, 300, 300);
  ASSERT_TRUE(image) << image.error().message;
  EXPECT_EQ(image->width(), 300);
  EXPECT_EQ(image->height(), 1);
}

TEST_F(Images, OrientationIsAppliedToPixelsAndSize) {
  std::string path = folder_ / "turned.jpg";
  VImage image = quarters(800, 600).copy();
  image.set("orientation", 6);  // shown turned clockwise by 90 degrees
  image.jpegsave(path.c_str());
  auto thumbnail = loadThumbnail(path, 300, 300);
  ASSERT_TRUE(thumbnail) << thumbnail.error().message;
  EXPECT_EQ(thumbnail->width(), 225);
  EXPECT_EQ(thumbnail->height(), 300);
  EXPECT_EQ(colourAt(*thumbnail, 0.2, 0.2), "blue");
  EXPECT_EQ(colourAt(*thumbnail, 0.8, 0.2), "red");
  auto size = imageSize(path);
  ASSERT_TRUE(size);
  EXPECT_EQ(size->width, 600);
  EXPECT_EQ(size->height, 800);
  auto decoded = decodeImage(readFile(path).value());
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->height(), 800);
}

TEST_F(Images, EveryFormatAndPixelKindBecomesAJpegInSrgb) {
  VImage base = quarters(640, 480);
  base.tiffsave((folder_ / "a.tif").c_str());
  base.webpsave((folder_ / "a.webp").c_str());
  base.gifsave((folder_ / "a.gif").c_str());
  base.heifsave((folder_ / "a.avif").c_str(),
                VImage::option()->set("compression", VIPS_FOREIGN_HEIF_COMPRESSION_AV1));
  base.magicksave((folder_ / "a.bmp").c_str());
  base.magicksave((folder_ / "a.psd").c_str());
  // Cameras' raw files: a directory that says "turn right" and the size (also in a box), a stamp, and the
  // picture for showing.
  std::string stamp = folder_ / "stamp.jpg", large = folder_ / "large.jpg";
  VImage::black(16, 16).jpegsave(stamp.c_str());
  base.rot270().jpegsave(large.c_str());
  const std::string pictures = readFile(stamp).value() + readFile(large).value();
  const std::string turned("\x12\x1\x3\0\x1\0\0\0\x6\0\0\0", 12);
  const std::string size("\0\x1\x3\0\x1\0\0\0\xB8\xB\0\0\x1\x1\x4\0\x1\0\0\0\xA0\xF\0\0", 24);
  const std::string head("II*\0\x8\0\0\0", 8), end(4, '\0');
  testing::write(folder_ / "a.nef", head + std::string("\x1\0", 2) + turned + end + pictures);
  testing::write(folder_ / "a.cr3", std::string("\0\0\0\x18", 4) + "ftypcrx box CMT1" + head +
                                        std::string("\x3\0", 2) + size + turned + end + pictures);
  std::filesystem::remove(stamp);
  std::filesystem::remove(large);
  EXPECT_EQ(*imageInformation(folder_ / "a.nef")->find("image_width"), Value(640));
  EXPECT_EQ(*imageInformation(folder_ / "a.cr3")->find("image_width"), Value(4000));
  EXPECT_EQ(*imageInformation(folder_ / "a.cr3")->find("image_height"), Value(3000));
  base.colourspace(VIPS_INTERPRETATION_RGB16).pngsave((folder_ / "16bit.png").c_str());
  base.icc_export(VImage::option()->set("output_profile", "cmyk")).jpegsave((folder_ / "cmyk.jpg").c_str());
  base.icc_transform("p3", VImage::option()->set("input_profile", "srgb"))
      .jpegsave((folder_ / "p3.jpg").c_str());
  base.jpegsave((folder_ / "name with [brackets]").c_str());
  base.jpegsave((folder_ / "plain.jpg").c_str());
  std::filesystem::rename(folder_ / "plain.jpg", folder_ / "x.jpg[fail=true]");
  testing::write(
      folder_ / "a.svg",
      "<svg xmlns='http://www.w3.org/2000/svg' width='64' height='48'>"
      "<rect width='32' height='24' fill='#f00'/><rect x='32' width='32' height='24' fill='#0f0'/></svg>");
  testing::TemporaryFolder other;
  std::string saved = other / "saved";
  for (const auto& item : std::filesystem::directory_iterator(folder_.path())) {
    SCOPED_TRACE(item.path().filename().string());
    auto images = previewImages(item.path().string(), {300});
    ASSERT_TRUE(images) << images.error().message;
    const Image* image = &images->front();
    EXPECT_EQ(image->width(), 300);
    EXPECT_EQ(image->height(), 225);
    ASSERT_TRUE(image->saveJpeg(saved));
    VImage read = VImage::new_from_file(saved.c_str());
    EXPECT_EQ(read.bands(), 3);
    EXPECT_EQ(read.interpretation(), VIPS_INTERPRETATION_sRGB);
    auto red = read.getpoint(75, 56);
    EXPECT_GT(red[0], 200);
    EXPECT_LT(red[2], 70);
    // Printing inks have no such blue, and the drawing none at all.
    if (item.path().extension() != ".svg" && item.path().stem() != "cmyk") {
      EXPECT_EQ(colourAt(*image, 0.25, 0.75), "blue");
    }
  }
}

TEST_F(Images, TransparencyIsLaidOnWhite) {
  std::string path = folder_ / "clear.png";
  quarters(64, 64).bandjoin_const({0}).pngsave(path.c_str());
  auto image = loadThumbnail(path, 300, 300);
  ASSERT_TRUE(image);
  EXPECT_EQ(colourAt(*image, 0.2, 0.2), "white");
}

TEST_F(Images, BrokenFilesGiveAPartOrAnErrorButNeverHang) {
  std::string whole = folder_ / "whole.jpg";
  photo(2000, 1500).jpegsave(whole.c_str());
  std::string half = folder_ / "half.jpg";
  testing::writeTruncated(half, whole, 0.5);
  auto part = loadThumbnail(half, 300, 300);
  ASSERT_TRUE(part) << part.error().message;
  EXPECT_TRUE(part->isPartial());
  EXPECT_EQ(part->width(), 300);

  std::string head = folder_ / "head.jpg";
  testing::write(head, readFile(whole).value().substr(0, 700));
  EXPECT_FALSE(loadThumbnail(head, 300, 300));
  for (std::string_view bytes :
       {"", "\xff\xd8\xff", "GIF89a", "just text", "%PDF-1.4", "<svg", "BM", "P6 99999 99999 255 "}) {
    std::string path = folder_ / "broken.jpg";
    testing::write(path, bytes);
    EXPECT_FALSE(previewImages(path, {300})) << bytes;
    EXPECT_FALSE(decodeImage(bytes)) << bytes;
  }
  std::string pipe = folder_ / "pipe.jpg";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_FALSE(loadThumbnail(pipe, 300, 300));
  EXPECT_FALSE(loadThumbnail(folder_.path(), 300, 300));
  EXPECT_FALSE(previewImages(folder_ / "missing", {300}));
}

TEST_F(Images, AnAbsurdSizeIsRefusedFromTheHeader) {
  // A header of 60000 x 60000 with next to no data behind it.
  std::string path = folder_ / "bomb.ppm";
  testing::write(path, "P6\n60000 60000\n255\n");
  EXPECT_FALSE(loadThumbnail(path, 300, 300));
  auto empty = Image::fromRgb(4, 4, Data(3));
  EXPECT_FALSE(empty);
}

TEST_F(Images, ResizingStretchesFittingKeepsTheAspect) {
  std::string path = folder_ / "a.png";
  quarters(400, 200).pngsave(path.c_str());
  Image image = loadThumbnail(path, 1000, 1000).value();
  Image stretched = image.resizedTo(300, 300).value();
  EXPECT_EQ(stretched.width(), 300);
  EXPECT_EQ(stretched.height(), 300);
  EXPECT_EQ(image.resizedTo(1200, 600)->width(), 1200);
  EXPECT_EQ(image.fittedWithin(100, 100)->height(), 50);
  EXPECT_EQ(image.fittedWithin(1000, 1000)->width(), 400);
  Image turned = image.rotated(-90).value();
  EXPECT_EQ(turned.height(), 400);
  EXPECT_EQ(colourAt(turned, 0.2, 0.2), "green");
  EXPECT_FALSE(image.resizedTo(0, 10));
}

TEST_F(Images, SeveralThreadsMakeThumbnailsAtOnce) {
  std::string path = folder_ / "a.jpg";
  photo(1200, 900).jpegsave(path.c_str());
  std::atomic<int> made = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&, i] {
      for (int round = 0; round < 5; ++round) {
        auto image = loadThumbnail(path, 300, 300);
        if (image && image->saveJpeg(folder_ / ("out" + std::to_string(i)))) ++made;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(made, 20);
}

TEST_F(Images, ThePreviewerAsksTheInstalledThumbnailerForOtherKinds) {
  // A thumbnailer of the user for a type that libvips does not read.
  std::filesystem::create_directories(dataHome() / "thumbnailers");
  quarters(100, 50).pngsave((folder_ / "drawn.png").c_str());
  testing::write(
      dataHome() / "thumbnailers/zip.thumbnailer",
      "[Thumbnailer Entry]\nExec=/bin/cp \"" + folder_ / "drawn.png" + "\" %o\nMimeType=application/zip;\n");
  testing::write(folder_ / "a.zip", std::string("PK\5\6") + std::string(18, '\0'));
  auto images = previewImages(folder_ / "a.zip", {80, 20});
  ASSERT_TRUE(images) << images.error().message;
  EXPECT_EQ(images->front().width(), 80);
  EXPECT_EQ(images->front().height(), 40);
  EXPECT_EQ(images->back().width(), 20);
  testing::write(folder_ / "a.mp4", "not really");
  EXPECT_FALSE(previewImages(folder_ / "a.mp4", {80}));
}

}  // namespace vornex
