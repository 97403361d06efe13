// What importing photographs costs at the least: each file copied, its thumbnail made by libvips and its
// metadata read, all in one process, one file after another and nothing kept. Prints the seconds it took.
// Usage: bench_import_floor SOURCE_FOLDER EMPTY_FOLDER
#include <exempi/xmp.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>
#include <vips/vips8>

namespace {

void require(bool ok, const std::string& what) {
  if (ok) return;
  std::fprintf(stderr, "failed: %s\n", what.c_str());
  std::exit(1);
}

void copyFile(const std::string& source, const std::string& target) {
  int from = ::open(source.c_str(), O_RDONLY | O_CLOEXEC);
  int to = ::open(target.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
  struct stat status {};
  require(from >= 0 && to >= 0 && ::fstat(from, &status) == 0, source);
  for (off_t left = status.st_size; left > 0;) {
    ssize_t moved = ::copy_file_range(from, nullptr, to, nullptr, static_cast<std::size_t>(left), 0);
    require(moved > 0, target);
    left -= moved;
  }
  ::close(from);
  ::close(to);
}

void makeThumbnail(const std::string& source, const std::string& target) {
  constexpr int kSize = 300;
  vips::VImage::thumbnail(source.c_str(), kSize,
                          vips::VImage::option()->set("height", kSize)->set("size", VIPS_SIZE_DOWN))
      .jpegsave(target.c_str(), vips::VImage::option()->set("Q", 85)->set("strip", true));
}

/// Exempi reconciles EXIF and IPTC into XMP, libvips knows size and colours.
void readMetadata(const std::string& source) {
  XmpFilePtr file = xmp_files_open_new(source.c_str(), XMP_OPEN_READ);
  require(file != nullptr, source);
  XmpPtr xmp = xmp_files_get_new_xmp(file);
  if (xmp) xmp_free(xmp);
  xmp_files_close(file, XMP_CLOSE_NOOPTION);
  xmp_files_free(file);
  require(vips::VImage::new_from_file(source.c_str()).width() > 0, source);
}

}  // namespace

int main(int count, char** words) {
  require(count == 3 && vips_init(words[0]) == 0 && xmp_init(), "usage: bench_import_floor SOURCE EMPTY");
  vips_concurrency_set(1);
  vips_cache_set_max(0);
  std::vector<std::string> names;
  for (const auto& item : std::filesystem::directory_iterator(words[1]))
    names.push_back(item.path().filename().string());
  std::sort(names.begin(), names.end());

  auto start = std::chrono::steady_clock::now();
  for (const std::string& name : names) {
    std::string copy = std::string(words[2]) + "/" + name;
    copyFile(std::string(words[1]) + "/" + name, copy);
    readMetadata(copy);
    makeThumbnail(copy, copy + ".thumbnail.jpg");
  }
  std::printf("%.3f\n", std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
}
