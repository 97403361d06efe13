#include "platform/MediaInformation.h"

#include <sys/stat.h>

#include <cmath>

#include "foundation/Text.h"
#include "platform/AvSupport.h"
#include "platform/RawPreview.h"
#include "platform/VipsSupport.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/pixdesc.h>
#include <libavutil/timecode.h>
}

namespace vornex {

namespace {

void setText(Dictionary& facts, const char* key, const char* value) {
  if (value && *value) facts.set(key, validUtf8(value));
}

void setPositive(Dictionary& facts, const char* key, std::int64_t value) {
  if (value > 0) facts.set(key, value);
}

void setFileSize(Dictionary& facts, const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) == 0) facts.set("file_size", static_cast<std::int64_t>(status.st_size));
}

const char* tag(const AVDictionary* tags, const char* name) {
  const AVDictionaryEntry* entry = av_dict_get(tags, name, nullptr, 0);
  return entry ? entry->value : nullptr;
}

std::string timeText(double seconds) {
  auto milliseconds = static_cast<std::int64_t>(std::llround(seconds * 1000));
  return fmt::format("{:02}:{:02}:{:02}.{:03}", milliseconds / 3'600'000, milliseconds / 60'000 % 60,
                     milliseconds / 1000 % 60, milliseconds % 1000);
}

/// Seconds; 0 when the file does not tell.
double durationOf(const AVFormatContext* context, const AVStream* stream) {
  if (context->duration > 0) return static_cast<double>(context->duration) / AV_TIME_BASE;
  return stream && stream->duration > 0 ? static_cast<double>(stream->duration) * av_q2d(stream->time_base)
                                        : 0.0;
}

void addContainer(const AVFormatContext* context, const AVStream* stream, Dictionary& facts) {
  setText(facts, "format", context->iformat->name);
  if (double seconds = durationOf(context, stream); seconds > 0) {
    facts.set("duration", timeText(seconds));
    facts.set("duration_seconds", seconds);
  }
  setPositive(facts, "bit_rate", context->bit_rate);
  setText(facts, "creation_time", tag(context->metadata, "creation_time"));
}

void addCodec(const AVCodecParameters* codec, const char* key, const char* nameKey, Dictionary& facts) {
  const AVCodecDescriptor* descriptor = avcodec_descriptor_get(codec->codec_id);
  if (!descriptor) return;
  setText(facts, key, descriptor->name);
  setText(facts, nameKey, descriptor->long_name);
}

void addAudio(const MediaFile& file, Dictionary& facts) {
  const AVFormatContext* context = file.context();
  std::int64_t tracks = 0;
  for (unsigned i = 0; i < context->nb_streams; ++i) {
    if (context->streams[i]->codecpar->codec_type == AVMEDIA_TYPE_AUDIO) ++tracks;
  }
  facts.set("audio_tracks", tracks);
  const AVStream* stream = file.bestStream(AVMEDIA_TYPE_AUDIO);
  if (!stream) return;
  const AVCodecParameters* codec = stream->codecpar;
  addCodec(codec, "audio_codec", "audio_codec_name", facts);
  setPositive(facts, "audio_channels", codec->ch_layout.nb_channels);
  char layout[64] = {};
  if (av_channel_layout_describe(&codec->ch_layout, layout, sizeof layout) > 0) {
    setText(facts, "audio_channel_layout", layout);
  }
  setPositive(facts, "audio_samplerate", codec->sample_rate);
  setPositive(facts, "audio_bits_per_sample",
              codec->bits_per_raw_sample > 0 ? codec->bits_per_raw_sample : codec->bits_per_coded_sample);
  setPositive(facts, "audio_bit_rate", codec->bit_rate);
}

const char* fieldOrder(AVFieldOrder order) {
  switch (order) {
    case AV_FIELD_PROGRESSIVE:
      return "progressive";
    case AV_FIELD_TT:
      return "tt";
    case AV_FIELD_BB:
      return "bb";
    case AV_FIELD_TB:
      return "tb";
    case AV_FIELD_BT:
      return "bt";
    case AV_FIELD_UNKNOWN:
      break;
  }
  return nullptr;
}

void addColors(const AVCodecParameters* codec, Dictionary& facts) {
  setText(facts, "video_pixel_format", av_get_pix_fmt_name(static_cast<AVPixelFormat>(codec->format)));
  if (codec->color_space != AVCOL_SPC_UNSPECIFIED) {
    setText(facts, "video_color_space", av_color_space_name(codec->color_space));
  }
  if (codec->color_primaries != AVCOL_PRI_UNSPECIFIED) {
    setText(facts, "video_color_primaries", av_color_primaries_name(codec->color_primaries));
  }
  if (codec->color_trc != AVCOL_TRC_UNSPECIFIED) {
    setText(facts, "video_color_transfer", av_color_transfer_name(codec->color_trc));
  }
  if (codec->color_range != AVCOL_RANGE_UNSPECIFIED) {
    setText(facts, "video_color_range", av_color_range_name(codec->color_range));
  }
}

void addGeometry(AVFormatContext* context, AVStream* stream, Dictionary& facts) {
  const AVCodecParameters* codec = stream->codecpar;
  if (codec->width <= 0 || codec->height <= 0) return;
  int rotation = rotationOf(stream);
  bool turned = rotation % 180 != 0;
  facts.set("video_width", turned ? codec->height : codec->width);
  facts.set("video_height", turned ? codec->width : codec->height);
  facts.set("video_coded_width", codec->width);
  facts.set("video_coded_height", codec->height);
  facts.set("video_rotation", rotation);

  AVRational pixel = av_guess_sample_aspect_ratio(context, stream, nullptr);
  if (pixel.num <= 0 || pixel.den <= 0) pixel = {1, 1};
  AVRational display{};
  av_reduce(&display.num, &display.den, std::int64_t{codec->width} * pixel.num,
            std::int64_t{codec->height} * pixel.den, 1 << 20);
  if (turned) std::swap(display.num, display.den);
  facts.set("video_aspect_ratio", fmt::format("{}:{}", display.num, display.den));
}

/// The time code of the first frame: of the video, of the file, or of a time-code track.
const char* timecodeOf(const AVFormatContext* context, const AVStream* video) {
  const char* found = tag(video->metadata, "timecode");
  if (!found) found = tag(context->metadata, "timecode");
  for (unsigned i = 0; !found && i < context->nb_streams; ++i) {
    found = tag(context->streams[i]->metadata, "timecode");
  }
  return found;
}

void addTimes(AVFormatContext* context, AVStream* stream, Dictionary& facts) {
  AVRational rate = av_guess_frame_rate(context, stream, nullptr);
  bool knownRate = rate.num > 0 && rate.den > 0;
  if (knownRate) {
    facts.set("frame_rate", fmt::format("{}/{}", rate.num, rate.den));
    facts.set("frame_rate_value", av_q2d(rate));
  }
  std::int64_t frames = stream->nb_frames;
  if (frames <= 0 && knownRate) {
    double counted = durationOf(context, stream) * av_q2d(rate);
    frames = counted < 1e15 ? std::llround(counted) : 0;
  }
  setPositive(facts, "video_frames", frames);

  const char* timecode = timecodeOf(context, stream);
  setText(facts, "timecode", timecode);
  AVTimecode parsed{};
  bool understood =
      timecode && knownRate && av_timecode_init_from_string(&parsed, rate, timecode, nullptr) >= 0;
  facts.set("video_startframe", understood ? parsed.start : 0);
}

void addTags(const AVFormatContext* context, Dictionary& facts) {
  for (const char* name :
       {"title", "artist", "album", "album_artist", "composer", "genre", "date", "track", "comment"}) {
    const char* value = tag(context->metadata, name);
    // Some containers keep the tags with the stream.
    for (unsigned i = 0; !value && i < context->nb_streams; ++i)
      value = tag(context->streams[i]->metadata, name);
    setText(facts, name, value);
  }
}

bool hasArtwork(const AVFormatContext* context) {
  for (unsigned i = 0; i < context->nb_streams; ++i) {
    if (context->streams[i]->disposition & AV_DISPOSITION_ATTACHED_PIC) return true;
  }
  return false;
}

int bitsPerChannel(VipsBandFormat format) {
  return static_cast<int>(vips_format_sizeof(format)) * 8;
}

std::string imageFormat(const vips::VImage& image) {
  std::string loader = image.get_typeof("vips-loader") != 0 ? image.get_string("vips-loader") : "";
  if (std::size_t position = loader.find("load"); position != std::string::npos) loader.resize(position);
  return loader;
}

Dictionary imageFacts(const vips::VImage& image) {
  VipsImage* raw = image.get_image();
  bool turned = vips_image_get_orientation_swap(raw);
  Dictionary facts;
  setText(facts, "format", imageFormat(image).c_str());
  facts.set("image_width", turned ? image.height() : image.width());
  facts.set("image_height", turned ? image.width() : image.height());
  facts.set("image_orientation", vips_image_get_orientation(raw));
  facts.set("image_bands", image.bands());
  facts.set("image_bit_depth", bitsPerChannel(image.format()));
  setText(facts, "image_color_space", vips_enum_nick(VIPS_TYPE_INTERPRETATION, image.interpretation()));
  facts.set("image_has_alpha", image.has_alpha());
  facts.set("image_has_profile", image.get_typeof(VIPS_META_ICC_NAME) != 0);
  facts.set("image_pages", vips_image_get_n_pages(raw));
  // libvips counts pixels per millimetre, and 1 stands for a file that tells no resolution.
  constexpr double kMillimetresPerInch = 25.4;
  if (image.xres() > 0 && image.yres() > 0 && image.xres() != 1.0) {
    facts.set("image_dpi_x", image.xres() * kMillimetresPerInch);
    facts.set("image_dpi_y", image.yres() * kMillimetresPerInch);
  }
  return facts;
}

}  // namespace

std::optional<Dictionary> videoInformation(const std::string& path) {
  auto file = MediaFile::open(path);
  if (!file) return std::nullopt;
  AVStream* video = (*file)->bestStream(AVMEDIA_TYPE_VIDEO);
  if (!video) return std::nullopt;
  AVFormatContext* context = (*file)->context();
  Dictionary facts;
  addContainer(context, video, facts);
  setFileSize(facts, path);
  addCodec(video->codecpar, "video_codec", "video_codec_name", facts);
  setText(facts, "video_profile", avcodec_profile_name(video->codecpar->codec_id, video->codecpar->profile));
  addGeometry(context, video, facts);
  addColors(video->codecpar, facts);
  setText(facts, "video_field_order", fieldOrder(video->codecpar->field_order));
  setPositive(facts, "video_bit_rate", video->codecpar->bit_rate);
  addTimes(context, video, facts);
  addAudio(**file, facts);
  return facts;
}

static void addAllTags(const AVDictionary* tags, Dictionary& facts) {
  const AVDictionaryEntry* entry = nullptr;
  while ((entry = av_dict_get(tags, "", entry, AV_DICT_IGNORE_SUFFIX)))
    setText(facts, validUtf8(entry->key).c_str(), entry->value);
}

std::optional<Dictionary> redInformation(const std::string& path) {
  auto file = MediaFile::open(path);
  if (!file || std::string_view((*file)->context()->iformat->name) != "r3d") return std::nullopt;
  AVFormatContext* context = (*file)->context();
  Dictionary red;
  addAllTags(context->metadata, red);
  for (unsigned i = 0; i < context->nb_streams; ++i) {
    AVStream* stream = context->streams[i];
    addAllTags(stream->metadata, red);
    if (stream->codecpar->codec_type == AVMEDIA_TYPE_AUDIO)
      setPositive(red, "audio_channels", stream->codecpar->ch_layout.nb_channels);
    if (stream->codecpar->codec_type != AVMEDIA_TYPE_VIDEO) continue;
    setPositive(red, "width", stream->codecpar->width);
    setPositive(red, "height", stream->codecpar->height);
    Dictionary times;
    addTimes(context, stream, times);
    for (const auto& [from, to] : {std::pair("frame_rate", "frame_rate"), std::pair("video_frames", "frames"),
                                   std::pair("timecode", "timecode")}) {
      if (const Value* value = times.find(from)) red.set(to, *value);
    }
  }
  return red;
}

std::optional<Dictionary> audioInformation(const std::string& path) {
  auto file = MediaFile::open(path);
  if (!file) return std::nullopt;
  const AVStream* audio = (*file)->bestStream(AVMEDIA_TYPE_AUDIO);
  if (!audio) return std::nullopt;
  Dictionary facts;
  addContainer((*file)->context(), audio, facts);
  setFileSize(facts, path);
  addAudio(**file, facts);
  addTags((*file)->context(), facts);
  facts.set("has_artwork", hasArtwork((*file)->context()));
  return facts;
}

/// Of a raw file libvips sees the first picture only, which may be a stamp.
static void addRawSize(const std::string& path, Dictionary& facts) {
  auto preview = rawPreview(path);
  const Value* width = facts.find("image_width");
  if (!preview || (width && width->ifInteger() &&
                   *width->ifInteger() >= std::max(preview->fullWidth, preview->fullHeight)))
    return;
  bool turned = preview->orientation >= 5;
  facts.set("image_width", turned ? preview->fullHeight : preview->fullWidth);
  facts.set("image_height", turned ? preview->fullWidth : preview->fullHeight);
  facts.set("image_orientation", preview->orientation);
}

std::optional<Dictionary> imageInformation(const std::string& path) {
  auto source = imageSource(path);
  auto read = source.and_then([&](const ImageSource& known) {
    return catchingVips(path, [&] { return imageFacts(openImage(known)); });
  });
  Dictionary facts = read.value_or(Dictionary());
  if (isCameraRaw(path)) addRawSize(path, facts);
  if (facts.empty()) return std::nullopt;
  setFileSize(facts, path);
  return facts;
}

}  // namespace vornex
