#include <gtest/gtest.h>

#include "Fixtures.h"
#include "foundation/Json.h"
#include "platform/GpsText.h"
#include "platform/MediaInformation.h"
#include "platform/Xmp.h"
#include "support/TemporaryFolder.h"

namespace vornex {

using testing::quarters;
using vips::VImage;

class Metadata : public ::testing::Test {
 protected:
  /// An image with a position in its EXIF: 37 degrees 33.5 minutes north, 126 degrees 58 minutes 40.2 seconds
  /// east.
  VImage placed() {
    VImage image = quarters(64, 48).copy();
    image.set("exif-ifd0-Make", "Acme");
    image.set("exif-ifd3-GPSLatitudeRef", "N");
    image.set("exif-ifd3-GPSLatitude", "37/1 33/1 30/1");
    image.set("exif-ifd3-GPSLongitudeRef", "E");
    image.set("exif-ifd3-GPSLongitude", "126/1 58/1 4020/100");
    return image;
  }

  /// A packet with a title in several languages, two keywords, a position and a structure.
  std::string packet() {
    return R"(<x:xmpmeta xmlns:x="adobe:ns:meta/"><rdf:RDF xmlns:rdf="http://www.w3.org/1999/02/22-rdf-syntax-ns#">
      <rdf:Description rdf:about="" xmlns:dc="http://purl.org/dc/elements/1.1/"
        xmlns:exif="http://ns.adobe.com/exif/1.0/" xmlns:xmp="http://ns.adobe.com/xap/1.0/"
        xmp:Rating="4" exif:GPSLatitude="48,12,30S" exif:GPSLongitude="16,22.5W">
        <dc:title><rdf:Alt><rdf:li xml:lang="x-default">Boat</rdf:li><rdf:li xml:lang="de">Boot</rdf:li><rdf:li xml:lang="fr">Bateau</rdf:li></rdf:Alt></dc:title>
        <dc:subject><rdf:Bag><rdf:li>sea</rdf:li><rdf:li>wind</rdf:li></rdf:Bag></dc:subject>
        <exif:Flash rdf:parseType="Resource"><exif:Fired>True</exif:Fired></exif:Flash>
      </rdf:Description></rdf:RDF></x:xmpmeta>)";
  }

  static std::string at(const Dictionary& tree, const char* prefix, const char* name) {
    const Value* properties = tree.find(prefix);
    const Value* value = properties ? properties->find(name) : nullptr;
    return value ? writeJson(*value) : "";
  }

  testing::TemporaryFolder folder_;
};

TEST_F(Metadata, ThePositionOfExifIsToldForEveryFormat) {
  placed().jpegsave((folder_ / "a.jpg").c_str());
  placed().webpsave((folder_ / "a.webp").c_str());
  placed().heifsave((folder_ / "a.avif").c_str(),
                    VImage::option()->set("compression", VIPS_FOREIGN_HEIF_COMPRESSION_AV1));
  for (const char* name : {"a.jpg", "a.webp", "a.avif"}) {
    SCOPED_TRACE(name);
    auto tree = xmpMetadata(folder_ / name);
    ASSERT_TRUE(tree);
    EXPECT_EQ(at(*tree, "exif", "GPSLatitude"), R"("37,33.5000N")");
    EXPECT_EQ(at(*tree, "exif", "GPSLongitude"), R"("126,58.6700E")");
  }
  EXPECT_EQ(at(*xmpMetadata(folder_ / "a.jpg"), "tiff", "Make"), R"("Acme")");
}

TEST_F(Metadata, EmbeddedAndSideCarPropertiesBecomeATree) {
  std::string path = folder_ / "a.jpg";
  placed().jpegsave(path.c_str());
  testing::write(folder_ / "a.xmp", packet());
  auto tree = xmpMetadata(path);
  ASSERT_TRUE(tree);
  EXPECT_EQ(at(*tree, "dc", "title"), R"({"x-default":"Boat","de":"Boot","fr":"Bateau"})");
  EXPECT_EQ(at(*tree, "dc", "subject"), R"(["sea","wind"])");
  EXPECT_EQ(at(*tree, "exif", "Flash"), R"({"Fired":"True"})");
  EXPECT_EQ(at(*tree, "xmp", "Rating"), R"("4")");
  EXPECT_EQ(at(*tree, "exif", "GPSLatitude"), R"("48,12.5000S")");
  EXPECT_EQ(at(*tree, "exif", "GPSLongitude"), R"("16,22.5000W")");
  EXPECT_EQ(at(*tree, "tiff", "Make"), R"("Acme")");

  VImage image = quarters(64, 48).copy();
  std::string xmp = packet();
  image.set("xmp-data", static_cast<VipsCallbackFn>(nullptr), xmp.data(), xmp.size());
  image.jpegsave((folder_ / "b.jpg").c_str());
  EXPECT_EQ(at(*xmpMetadata(folder_ / "b.jpg"), "xmp", "Rating"), R"("4")");
}

TEST_F(Metadata, BrokenAndEmptyFilesHaveNone) {
  testing::write(folder_ / "empty.jpg", "");
  testing::write(folder_ / "text.jpg", "nothing");
  testing::write(folder_ / "broken.jpg", "\xff\xd8\xff\xe1\xff\xff");
  testing::write(folder_ / "broken.xmp", "<x:xmpmeta><rdf:RDF>");
  for (const char* name : {"empty.jpg", "text.jpg", "broken.jpg", "missing.jpg", "."}) {
    EXPECT_FALSE(xmpMetadata(folder_ / name)) << name;
    EXPECT_FALSE(imageInformation(folder_ / name)) << name;
  }
}

TEST(GpsText, HasOneForm) {
  struct Case {
    const char* text;
    const char* expected;
  };
  for (Case c : {Case{"37,33.50N", "37,33.5000N"},
                 {"37,33,30N", "37,33.5000N"},
                 {"122,1.805W", "122,01.8050W"},
                 {"0,0.0S", "0,00.0000S"},
                 {"10,59.99999E", "11,00.0000E"}}) {
    EXPECT_EQ(normalisedGpsText(c.text), c.expected) << c.text;
  }
  for (const char* text :
       {"", "37", "37,33.5", "37,33.5X", "91,0.0N", "37,60.0N", "-3,1.0E", "nan,1.0E", "1,2,3,4N"}) {
    EXPECT_FALSE(normalisedGpsText(text)) << text;
  }
  EXPECT_EQ(gpsTextFromExif("37/1 335/10 0/0 (x)", "N (N, ASCII)"), "37,33.5000N");
  EXPECT_FALSE(gpsTextFromExif("37/1", "N"));
  EXPECT_FALSE(gpsTextFromExif("37/1 33/1 30/1", ""));
}

TEST_F(Metadata, TellsTheFactsOfAnImage) {
  VImage image = quarters(600, 400).bandjoin_const({255}).copy(
      VImage::option()->set("xres", 300 / 25.4)->set("yres", 300 / 25.4));
  image.pngsave((folder_ / "a.png").c_str());
  auto facts = imageInformation(folder_ / "a.png");
  ASSERT_TRUE(facts);
  for (const auto& [key, value] : Dictionary{{"format", "png"},
                                             {"image_width", 600},
                                             {"image_height", 400},
                                             {"image_bands", 4},
                                             {"image_bit_depth", 8},
                                             {"image_color_space", "srgb"},
                                             {"image_has_alpha", true},
                                             {"image_pages", 1},
                                             {"image_has_profile", false}}) {
    EXPECT_EQ(*facts->find(key), value) << key;
  }
  EXPECT_NEAR(*facts->find("image_dpi_x")->ifReal(), 300, 1);

  VImage turned = quarters(600, 400).copy();
  turned.set("orientation", 8);
  turned.jpegsave((folder_ / "b.jpg").c_str());
  facts = imageInformation(folder_ / "b.jpg");
  EXPECT_EQ(*facts->find("image_width"), Value(400));
  EXPECT_EQ(*facts->find("image_orientation"), Value(8));
}

}  // namespace vornex
