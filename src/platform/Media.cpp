#include "platform/Media.h"

#include <cerrno>

#include "platform/AvSupport.h"
#include "platform/ToneMapping.h"

extern "C" {
#include <libswscale/swscale.h>
}

namespace vornex {

namespace {

constexpr int kMaxSide = 4096;
constexpr std::int64_t kMaxPixels = 200'000'000;

struct FrameRelease {
  void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
struct PacketRelease {
  void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
struct DecoderRelease {
  void operator()(AVCodecContext* decoder) const { avcodec_free_context(&decoder); }
};
struct ScalerRelease {
  void operator()(SwsContext* scaler) const { sws_freeContext(scaler); }
};
using FramePtr = std::unique_ptr<AVFrame, FrameRelease>;
using PacketPtr = std::unique_ptr<AVPacket, PacketRelease>;
using DecoderPtr = std::unique_ptr<AVCodecContext, DecoderRelease>;

Result<DecoderPtr> openDecoder(const AVStream* stream) {
  const AVCodec* codec = avcodec_find_decoder(stream->codecpar->codec_id);
  if (!codec) return failure("media", AVERROR_DECODER_NOT_FOUND, "no decoder for the video");
  DecoderPtr decoder(avcodec_alloc_context3(codec));
  if (!decoder) return failure("media", AVERROR(ENOMEM), "no memory for the decoder");
  int code = avcodec_parameters_to_context(decoder.get(), stream->codecpar);
  decoder->max_pixels = kMaxPixels;
  decoder->thread_count = 1;
  if (code >= 0) code = avcodec_open2(decoder.get(), codec, nullptr);
  if (code < 0) return failure("media", code, "the video's decoder: " + avErrorText(code));
  return decoder;
}

/// Decodes one video from where the file stands up to the frame of a time.
class FrameReader {
 public:
  FrameReader(MediaFile& file, AVStream* stream, AVCodecContext* decoder)
      : file_(file), stream_(stream), decoder_(decoder), shown_(av_frame_alloc()), next_(av_frame_alloc()) {}

  /// The frame shown at `time` (in the stream's time base), else the last one before the end; null for none.
  FramePtr frameAt(std::int64_t time) {
    if (!shown_ || !next_) return nullptr;
    PacketPtr packet(av_packet_alloc());
    while (packet && !reached_ && !file_.late() && av_read_frame(file_.context(), packet.get()) >= 0) {
      if (packet->stream_index == stream_->index) feed(packet.get(), time);
      av_packet_unref(packet.get());
    }
    if (!reached_) feed(nullptr, time);
    return found_ ? std::move(shown_) : nullptr;
  }

 private:
  /// Gives the decoder a packet, or its end, and takes what frames it has. A damaged packet is passed over.
  void feed(const AVPacket* packet, std::int64_t time) {
    if (avcodec_send_packet(decoder_, packet) < 0) return;
    while (!reached_ && !file_.late() && avcodec_receive_frame(decoder_, next_.get()) >= 0) {
      std::int64_t start = next_->best_effort_timestamp;
      bool isLater = start != AV_NOPTS_VALUE && start > time;
      if (!found_ || !isLater) std::swap(shown_, next_);
      found_ = true;
      reached_ = isLater || start == time;
    }
  }

  MediaFile& file_;
  AVStream* stream_;
  AVCodecContext* decoder_;
  FramePtr shown_;
  FramePtr next_;
  bool found_ = false;
  bool reached_ = false;
};

Result<FramePtr> decodeFrame(const std::string& path, double seconds, bool seek, int& rotation,
                             AVRational& aspect) {
  auto file = MediaFile::open(path);
  if (!file) return tl::unexpected(file.error());
  AVFormatContext* context = (*file)->context();
  AVStream* stream = (*file)->bestStream(AVMEDIA_TYPE_VIDEO);
  if (!stream) return failure("media", AVERROR_STREAM_NOT_FOUND, path + " has no video");
  for (unsigned i = 0; i < context->nb_streams; ++i) {
    if (context->streams[i] != stream) context->streams[i]->discard = AVDISCARD_ALL;
  }
  auto decoder = openDecoder(stream);
  if (!decoder) return tl::unexpected(decoder.error());

  std::int64_t start = stream->start_time == AV_NOPTS_VALUE ? 0 : stream->start_time;
  auto offset = static_cast<std::int64_t>(std::clamp(seconds, 0.0, 1e8) * AV_TIME_BASE);
  std::int64_t time = start + av_rescale_q(offset, AVRational{1, AV_TIME_BASE}, stream->time_base);
  if (seek && offset > 0) av_seek_frame(context, stream->index, time, AVSEEK_FLAG_BACKWARD);

  FramePtr frame = FrameReader(**file, stream, decoder->get()).frameAt(time);
  if (!frame) return failure("media", AVERROR_INVALIDDATA, path + " has no frame that can be decoded");
  rotation = rotationOf(stream);
  aspect = av_guess_sample_aspect_ratio(context, stream, frame.get());
  return frame;
}

/// The size to show the frame at: square pixels, neither side above the limit.
ImageSize displaySize(const AVFrame& frame, AVRational aspect) {
  double width = frame.width;
  double height = frame.height;
  double ratio = aspect.num > 0 && aspect.den > 0 ? av_q2d(aspect) : 1.0;
  // A ratio beyond reason is a fault of the file.
  if (ratio > 0.1 && ratio < 10.0) (ratio > 1.0 ? width : height) *= ratio > 1.0 ? ratio : 1.0 / ratio;
  double shrink = std::max({1.0, width / kMaxSide, height / kMaxSide});
  auto side = [&](double length) { return std::max(1, static_cast<int>(length / shrink + 0.5)); };
  return {side(width), side(height)};
}

/// How the frame stores high dynamic range; absent for ordinary video.
std::optional<HdrTransfer> hdrTransfer(const AVFrame& frame) {
  if (frame.color_trc == AVCOL_TRC_SMPTE2084) return HdrTransfer::pq;
  if (frame.color_trc == AVCOL_TRC_ARIB_STD_B67) return HdrTransfer::hlg;
  return std::nullopt;
}

/// Coefficients of the conversion from brightness and colour differences.
const int* colourMatrix(const AVFrame& frame) {
  constexpr int kSmallestHd = 720;
  if (frame.colorspace != AVCOL_SPC_UNSPECIFIED) return sws_getCoefficients(frame.colorspace);
  if (hdrTransfer(frame)) return sws_getCoefficients(SWS_CS_BT2020);
  return sws_getCoefficients(frame.height >= kSmallestHd ? SWS_CS_ITU709 : SWS_CS_ITU601);
}

/// The frame's red, green and blue at this size, as rows without padding; `Channel` is that of the format.
template <typename Channel>
Result<std::vector<Channel>> convertedPixels(const AVFrame& frame, ImageSize size, AVPixelFormat wanted) {
  auto format = static_cast<AVPixelFormat>(frame.format);
  std::unique_ptr<SwsContext, ScalerRelease> scaler(sws_getContext(frame.width, frame.height, format,
                                                                   size.width, size.height, wanted,
                                                                   SWS_BICUBIC, nullptr, nullptr, nullptr));
  if (!scaler) return failure("media", AVERROR(EINVAL), "the frame's pixels cannot be converted");
  sws_setColorspaceDetails(scaler.get(), colourMatrix(frame), frame.color_range == AVCOL_RANGE_JPEG,
                           sws_getCoefficients(SWS_CS_DEFAULT), 1, 0, 1 << 16, 1 << 16);

  // The converter writes rows of whole vectors: give it room behind each row, then drop that.
  int bytes = static_cast<int>(sizeof(Channel));
  int stride = (size.width * 3 * bytes + 63) / 64 * 64;
  std::vector<Channel> padded(
      static_cast<std::size_t>(stride / bytes) * static_cast<std::size_t>(size.height) + 64);
  std::uint8_t* planes[1] = {reinterpret_cast<std::uint8_t*>(padded.data())};
  int strides[1] = {stride};
  int rows = sws_scale(scaler.get(), frame.data, frame.linesize, 0, frame.height, planes, strides);
  if (rows != size.height) return failure("media", AVERROR(EINVAL), "the frame's pixels cannot be converted");
  std::vector<Channel> pixels;
  pixels.reserve(static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height) * 3);
  for (int row = 0; row < size.height; ++row) {
    auto start = padded.begin() + std::ptrdiff_t{row} * (stride / bytes);
    pixels.insert(pixels.end(), start, start + size.width * 3);
  }
  return pixels;
}

Result<Image> renderFrame(const AVFrame& frame, AVRational aspect) {
  ImageSize size = displaySize(frame, aspect);
  if (auto transfer = hdrTransfer(frame)) {
    auto light = convertedPixels<std::uint16_t>(frame, size, AV_PIX_FMT_RGB48);
    if (!light) return tl::unexpected(light.error());
    return Image::fromRgb(size.width, size.height, toneMapped(*light, *transfer));
  }
  auto pixels = convertedPixels<std::uint8_t>(frame, size, AV_PIX_FMT_RGB24);
  if (!pixels) return tl::unexpected(pixels.error());
  return Image::fromRgb(size.width, size.height, *pixels);
}

}  // namespace

MediaKind mediaKind(const std::string& path) {
  auto file = MediaFile::open(path);
  if (!file) return MediaKind::none;
  if ((*file)->bestStream(AVMEDIA_TYPE_VIDEO)) return MediaKind::video;
  return (*file)->bestStream(AVMEDIA_TYPE_AUDIO) ? MediaKind::audio : MediaKind::none;
}

Result<Image> videoFrame(const std::string& path, double seconds) {
  int rotation = 0;
  AVRational aspect{0, 1};
  auto frame = decodeFrame(path, seconds, true, rotation, aspect);
  // Behind the last key frame that the index names there may be nothing; reading from the start finds what
  // there is.
  if (!frame && seconds > 0) frame = decodeFrame(path, seconds, false, rotation, aspect);
  if (!frame) return tl::unexpected(frame.error());
  return renderFrame(**frame, aspect).and_then([&](const Image& image) { return image.rotated(rotation); });
}

Result<Data> embeddedArtwork(const std::string& path) {
  auto file = MediaFile::open(path);
  if (!file) return tl::unexpected(file.error());
  AVFormatContext* context = (*file)->context();
  for (unsigned i = 0; i < context->nb_streams; ++i) {
    const AVStream* stream = context->streams[i];
    if (!(stream->disposition & AV_DISPOSITION_ATTACHED_PIC) || stream->attached_pic.size <= 0) continue;
    const std::uint8_t* bytes = stream->attached_pic.data;
    Data picture(bytes, bytes + stream->attached_pic.size);
    if (decodeImage({reinterpret_cast<const char*>(picture.data()), picture.size()})) return picture;
  }
  return failure("media", AVERROR_STREAM_NOT_FOUND, path + " has no artwork");
}

}  // namespace vornex
