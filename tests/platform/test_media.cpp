#include <fmt/format.h>
#include <gtest/gtest.h>

#include <random>

#include "Fixtures.h"
#include "platform/Media.h"
#include "platform/MediaInformation.h"
#include "support/TemporaryFolder.h"

namespace vornex {

using testing::colourAt;
using testing::ffmpeg;

class Media : public ::testing::Test {
 protected:
  /// Two seconds: red for the first, blue for the second.
  std::string makeVideo(const std::string& name, const std::vector<std::string>& options = {}) {
    std::string path = folder_ / name;
    std::vector<std::string> arguments{
        "-f",        "lavfi",
        "-i",        "color=red:s=320x180:r=25:d=1[a];color=blue:s=320x180:r=25:d=1[b];[a][b]concat",
        "-f",        "lavfi",
        "-i",        "sine=440:r=48000:d=2",
        "-shortest", "-pix_fmt",
        "yuv420p"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    arguments.push_back(path);
    EXPECT_TRUE(ffmpeg(arguments));
    return path;
  }

  testing::TemporaryFolder folder_;
};

TEST_F(Media, GivesTheFrameOfATime) {
  std::string path = makeVideo("a.mov");
  EXPECT_EQ(mediaKind(path), MediaKind::video);
  auto first = videoFrame(path, 0);
  ASSERT_TRUE(first) << first.error().message;
  EXPECT_EQ(first->width(), 320);
  EXPECT_EQ(first->height(), 180);
  EXPECT_EQ(colourAt(*first, 0.5, 0.5), "red");
  EXPECT_EQ(colourAt(videoFrame(path, 0.9).value(), 0.5, 0.5), "red");
  EXPECT_EQ(colourAt(videoFrame(path, 1.1).value(), 0.5, 0.5), "blue");
  EXPECT_EQ(colourAt(videoFrame(path, 1e300).value(), 0.5, 0.5), "blue");
  EXPECT_EQ(colourAt(videoFrame(path, -5).value(), 0.5, 0.5), "red");
}

TEST_F(Media, FramesAreUprightAndInDisplayAspect) {
  testing::quarters(320, 180).pngsave((folder_ / "quarters.png").c_str());
  ASSERT_TRUE(ffmpeg({"-loop", "1", "-i", folder_ / "quarters.png", "-t", "1", "-pix_fmt", "yuv420p",
                      folder_ / "flat.mp4"}));
  std::string turned = folder_ / "turned.mp4";
  ASSERT_TRUE(ffmpeg({"-i", folder_ / "flat.mp4", "-c", "copy", "-metadata:s:v:0", "rotate=270", turned}));
  auto facts = videoInformation(turned);
  ASSERT_TRUE(facts);
  EXPECT_EQ(*facts->find("video_width"), Value(180));
  EXPECT_EQ(*facts->find("video_height"), Value(320));
  EXPECT_EQ(*facts->find("video_aspect_ratio"), Value("9:16"));

  // The ffmpeg program turns pictures as players do.
  ASSERT_TRUE(ffmpeg({"-i", turned, "-vframes", "1", folder_ / "expected.png"}));
  Image expected = loadThumbnail(folder_ / "expected.png", 500, 500).value();
  auto frame = videoFrame(turned, 0);
  ASSERT_TRUE(frame) << frame.error().message;
  EXPECT_EQ(frame->width(), 180);
  EXPECT_EQ(frame->height(), 320);
  for (double x : {0.2, 0.8}) {
    for (double y : {0.2, 0.8}) EXPECT_EQ(colourAt(*frame, x, y), colourAt(expected, x, y));
  }

  std::string wide = makeVideo("wide.mp4", {"-vf", "setsar=2/1"});
  EXPECT_EQ(videoFrame(wide, 0)->width(), 640);
  EXPECT_EQ(videoFrame(wide, 0)->height(), 180);
}

TEST_F(Media, HighDynamicRangeIsShownAsAPersonSeesIt) {
  // Diffuse white, a mid grey and a light far above white, as both systems store them (10 bits of full
  // range).
  struct System {
    const char* name;
    const char* transfer;
    int white, grey, glare;
  };
  for (const System& system :
       {System{"pq.mp4", "smpte2084", 594, 446, 769}, System{"hlg.mp4", "arib-std-b67", 767, 430, 1000}}) {
    SCOPED_TRACE(system.name);
    auto level = [&](int start, int value) {
      return fmt::format("between(X,{},{})*{}", start, start + 99, value * 64);
    };
    std::string columns =
        level(0, system.white) + "+" + level(100, system.grey) + "+" + level(200, system.glare);
    std::string reds = columns + "+" + level(300, system.grey);
    ASSERT_TRUE(
        ffmpeg({"-f", "lavfi", "-i", "color=black:s=400x100:r=1:d=1", "-vf",
                "format=gbrp16le,geq=r='" + reds + "':g='" + columns + "':b='" + columns +
                    "',scale=out_color_matrix=bt2020:out_range=tv,format=yuv420p10le",
                "-c:v", "libx265", "-x265-params",
                "log-level=none:lossless=1:colorprim=bt2020:colormatrix=bt2020nc:range=limited:transfer=" +
                    std::string(system.transfer),
                folder_ / system.name}));
    auto frame = videoFrame(folder_ / system.name, 0);
    ASSERT_TRUE(frame) << frame.error().message;
    double white = testing::pixel(*frame, 50, 50)[1];
    double grey = testing::pixel(*frame, 150, 50)[1];
    double glare = testing::pixel(*frame, 250, 50)[1];
    // White is bright, grey is in the middle, and glare is brighter than white.
    EXPECT_GT(white, 200);
    EXPECT_GT(grey, 90);
    EXPECT_LT(grey, 150);
    EXPECT_GT(glare, white + 8);
    // The red of these systems is stronger than any that the picture has, so the same level shows brighter.
    auto red = testing::pixel(*frame, 350, 50);
    EXPECT_GT(red[0], grey + 8);
    EXPECT_LT(red[1], 30);
  }
}

TEST_F(Media, TellsTheFactsOfAVideo) {
  std::string path =
      makeVideo("a.mov", {"-c:v", "mpeg4", "-timecode", "01:00:00:10", "-c:a", "pcm_s16le", "-ac", "2"});
  auto facts = videoInformation(path);
  ASSERT_TRUE(facts);
  Dictionary expected{{"video_codec", "mpeg4"},
                      {"video_width", 320},
                      {"video_height", 180},
                      {"frame_rate", "25/1"},
                      {"frame_rate_value", 25.0},
                      {"duration", "00:00:02.000"},
                      {"video_frames", 50},
                      {"timecode", "01:00:00:10"},
                      {"video_startframe", 90010},
                      {"audio_codec", "pcm_s16le"},
                      {"audio_channels", 2},
                      {"audio_samplerate", 48000},
                      {"audio_channel_layout", "stereo"},
                      {"audio_tracks", 1},
                      {"video_pixel_format", "yuv420p"}};
  for (const auto& [key, value] : expected) {
    ASSERT_TRUE(facts->contains(key)) << key;
    EXPECT_EQ(*facts->find(key), value) << key;
  }
  EXPECT_FALSE(imageInformation(path));
}

TEST_F(Media, TellsTheFactsAndTheArtworkOfSound) {
  std::string cover = folder_ / "cover.jpg";
  testing::quarters(80, 60).jpegsave(cover.c_str());
  std::string song = folder_ / "song.mp3";
  ASSERT_TRUE(
      ffmpeg({"-f", "lavfi", "-i", "sine=440:d=3", "-i", cover, "-map", "0", "-map", "1", "-c:v", "copy",
              "-disposition:v", "attached_pic", "-metadata", "title=Lied", "-metadata", "artist=Wir", song}));
  EXPECT_EQ(mediaKind(song), MediaKind::audio);
  auto facts = audioInformation(song);
  ASSERT_TRUE(facts);
  EXPECT_EQ(*facts->find("title"), Value("Lied"));
  EXPECT_EQ(*facts->find("artist"), Value("Wir"));
  EXPECT_EQ(*facts->find("audio_codec"), Value("mp3"));
  EXPECT_EQ(*facts->find("has_artwork"), Value(true));
  EXPECT_EQ(facts->find("duration")->ifString()->substr(0, 8), "00:00:03");
  auto artwork = embeddedArtwork(song);
  ASSERT_TRUE(artwork) << artwork.error().message;
  EXPECT_EQ(decodeImage({reinterpret_cast<const char*>(artwork->data()), artwork->size()})->width(), 80);
  EXPECT_FALSE(videoFrame(song, 0));
  EXPECT_FALSE(videoInformation(song));

  std::string plain = folder_ / "plain.wav";
  ASSERT_TRUE(ffmpeg({"-f", "lavfi", "-i", "sine=440:d=1", plain}));
  EXPECT_FALSE(embeddedArtwork(plain));
  EXPECT_EQ(*audioInformation(plain)->find("has_artwork"), Value(false));
}

TEST_F(Media, BrokenFilesAreErrorsOrGiveWhatIsThere) {
  std::string whole = makeVideo("whole.mkv");
  std::string half = folder_ / "half.mkv";
  testing::writeTruncated(half, whole, 0.5);
  auto frame = videoFrame(half, 10);
  ASSERT_TRUE(frame) << frame.error().message;
  EXPECT_EQ(frame->width(), 320);
  std::string headless = folder_ / "half.mov";
  testing::writeTruncated(headless, makeVideo("whole.mov"), 0.5);  // its index is at the end
  EXPECT_FALSE(videoFrame(headless, 0));
  EXPECT_FALSE(videoInformation(headless));
  for (const char* name : {"a.txt", "a.mp3", "a.mp4", "a.r3d"}) {
    for (std::string_view bytes : {std::string_view(""), std::string_view("no media at all, just words\n"),
                                   std::string_view("\0\0\0\x18"
                                                    "ftypqt  ",
                                                    12)}) {
      testing::write(folder_ / name, bytes);
      EXPECT_EQ(mediaKind(folder_ / name), MediaKind::none) << name << bytes;
      EXPECT_FALSE(embeddedArtwork(folder_ / name));
    }
  }
  EXPECT_EQ(mediaKind(folder_.path()), MediaKind::none);

  // Some format's first bytes come up in any noise.
  std::mt19937 noise(7);
  for (int i = 0; i < 300; ++i) {
    std::string bytes(4096, '\0');
    for (char& byte : bytes) byte = static_cast<char>(noise());
    testing::write(folder_ / "noise.blob", bytes);
    EXPECT_EQ(mediaKind(folder_ / "noise.blob"), MediaKind::none) << i;
  }
}

TEST_F(Media, AListThatNamesAnotherFileDoesNotOpenIt) {
  std::string video = makeVideo("a.ts", {"-c:v", "mpeg2video"});
  testing::write(folder_ / "list.m3u8",
                 "#EXTM3U\n#EXT-X-TARGETDURATION:2\n#EXTINF:2,\n" + video + "\n#EXT-X-ENDLIST\n");
  EXPECT_EQ(mediaKind(video), MediaKind::video);
  EXPECT_EQ(mediaKind(folder_ / "list.m3u8"), MediaKind::none);
  EXPECT_FALSE(videoFrame(folder_ / "list.m3u8", 0));
}

}  // namespace vornex
