#pragma once

#include <vornex/Value.h>

#include <string>

namespace vornex {

// Technical facts about a media file. A fact that the file does not tell has no entry. Times are text
// "HH:MM:SS.mmm"; rates are bits per second. Absent when the file cannot be read as that kind.
// Each blocks, for at most 30 seconds with a file it opens, and is thread-safe.

/// Of all three kinds:
///   "format"              string   container or image format, e.g. "mov,mp4,m4a,3gp,3g2,mj2", "jpeg"
///   "file_size"           integer  bytes
/// Of video and audio:
///   "duration"            string   time text
///   "duration_seconds"    real
///   "bit_rate"            integer  of the whole file
///   "creation_time"       string   as the file tells it
///   "audio_codec"         string   e.g. "aac"
///   "audio_codec_name"    string   in words
///   "audio_channels"      integer
///   "audio_channel_layout" string  e.g. "stereo"
///   "audio_samplerate"    integer  Hz
///   "audio_bits_per_sample" integer
///   "audio_bit_rate"      integer
///   "audio_tracks"        integer  number of sound streams

/// Of video besides:
///   "video_codec"         string   e.g. "h264"
///   "video_codec_name"    string   in words
///   "video_profile"       string   e.g. "High"
///   "video_width", "video_height"  integer  pixels as shown, after rotation
///   "video_coded_width", "video_coded_height"  integer  pixels as stored
///   "video_rotation"      integer  clockwise degrees to turn for showing: 0, 90, 180 or 270
///   "video_aspect_ratio"  string   of the display, e.g. "16:9"
///   "video_pixel_format"  string   e.g. "yuv420p"
///   "video_color_space", "video_color_primaries", "video_color_transfer", "video_color_range"  string
///   "video_field_order"   string   "progressive", "tt", "bb", "tb" or "bt"
///   "video_bit_rate"      integer
///   "video_frames"        integer  number of frames: told by the file, else duration times frame rate
///   "frame_rate"          string   as a fraction, e.g. "30000/1001"
///   "frame_rate_value"    real     e.g. 29.97
///   "timecode"            string   of the first frame, e.g. "01:00:00:00" or "01:00:00;00"
///   "video_startframe"    integer  the frame number of that time code; 0 without one
std::optional<Dictionary> videoInformation(const std::string& path);

/// Of audio besides:
///   "title", "artist", "album", "album_artist", "composer", "genre", "date", "track", "comment"  string
///   "has_artwork"         boolean  an embedded picture is there
std::optional<Dictionary> audioInformation(const std::string& path);

/// What the header of a RED clip tells: "width", "height", "frame_rate", "frames" (integer), "timecode",
/// "audio_channels", and the clip's own tags as strings. Absent for every other file.
std::optional<Dictionary> redInformation(const std::string& path);

/// Of images besides:
///   "image_width", "image_height"  integer  pixels, after orientation
///   "image_orientation"   integer  1 to 8 as stored
///   "image_bands"         integer  channels, transparency included
///   "image_bit_depth"     integer  bits per channel
///   "image_color_space"   string   "srgb", "b-w", "cmyk", "rgb16", ...
///   "image_has_alpha"     boolean
///   "image_has_profile"   boolean  an ICC profile is embedded
///   "image_pages"         integer  pages or frames
///   "image_dpi_x", "image_dpi_y"  real  when the file tells a resolution
std::optional<Dictionary> imageInformation(const std::string& path);

}  // namespace vornex
