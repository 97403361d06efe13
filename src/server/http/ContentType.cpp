#include "server/http/ContentType.h"

#include <algorithm>
#include <string_view>

#include "foundation/Files.h"
#include "foundation/Text.h"

namespace vornex::server {
namespace {

struct TypeRow {
  std::string_view extension;
  const char* type;
};

constexpr TypeRow kTypes[] = {
    {"3gp", "video/3gpp"},      {"aac", "audio/aac"},
    {"aif", "audio/aiff"},      {"aiff", "audio/aiff"},
    {"avi", "video/x-msvideo"}, {"avif", "image/avif"},
    {"bmp", "image/bmp"},       {"dng", "image/x-adobe-dng"},
    {"flac", "audio/flac"},     {"flv", "video/x-flv"},
    {"gif", "image/gif"},       {"heic", "image/heic"},
    {"heif", "image/heif"},     {"jpeg", "image/jpeg"},
    {"jpg", "image/jpeg"},      {"json", "application/json"},
    {"m2ts", "video/mp2t"},     {"m4a", "audio/mp4"},
    {"m4v", "video/x-m4v"},     {"mkv", "video/x-matroska"},
    {"mov", "video/quicktime"}, {"mp3", "audio/mpeg"},
    {"mp4", "video/mp4"},       {"mpeg", "video/mpeg"},
    {"mpg", "video/mpeg"},      {"mts", "video/mp2t"},
    {"mxf", "application/mxf"}, {"oga", "audio/ogg"},
    {"ogg", "audio/ogg"},       {"ogv", "video/ogg"},
    {"opus", "audio/ogg"},      {"pdf", "application/pdf"},
    {"png", "image/png"},       {"psd", "image/vnd.adobe.photoshop"},
    {"rtf", "application/rtf"}, {"svg", "image/svg+xml"},
    {"tif", "image/tiff"},      {"tiff", "image/tiff"},
    {"ts", "video/mp2t"},       {"txt", "text/plain"},
    {"wav", "audio/wav"},       {"webm", "video/webm"},
    {"webp", "image/webp"},     {"wmv", "video/x-ms-wmv"},
    {"zip", "application/zip"},
};

}  // namespace

const char* contentType(const std::string& fileName) {
  std::string extension = lowercased(pathExtension(fileName));
  auto row = std::lower_bound(std::begin(kTypes), std::end(kTypes), extension,
                              [](const TypeRow& a, const std::string& b) { return a.extension < b; });
  return row != std::end(kTypes) && row->extension == extension ? row->type : "application/octet-stream";
}

}  // namespace vornex::server
