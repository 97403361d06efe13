#include "platform/Xmp.h"

#include <exempi/xmp.h>
#include <exempi/xmpconsts.h>
#include <sys/stat.h>

#include <array>
#include <cmath>
#include <cstdlib>

#include "foundation/Files.h"
#include "foundation/Text.h"
#include "platform/GpsText.h"
#include "platform/VipsSupport.h"

namespace vornex {

namespace {

constexpr int kMaxDepth = 16;
constexpr int kMaxNodes = 20'000;
constexpr std::size_t kSidecarLimit = std::size_t{16} << 20;
constexpr std::array kGpsNames = {"GPSLatitude", "GPSLongitude"};

struct XmpRelease {
  void operator()(_Xmp* xmp) const { xmp_free(xmp); }
};
struct FileRelease {
  void operator()(_XmpFile* file) const {
    xmp_files_close(file, XMP_CLOSE_NOOPTION);
    xmp_files_free(file);
  }
};
struct StringRelease {
  void operator()(_XmpString* string) const { xmp_string_free(string); }
};
struct IteratorRelease {
  void operator()(_XmpIterator* iterator) const { xmp_iterator_free(iterator); }
};
using XmpHandle = std::unique_ptr<_Xmp, XmpRelease>;
using StringHandle = std::unique_ptr<_XmpString, StringRelease>;

std::string text(const StringHandle& string) {
  return validUtf8({xmp_string_cstr(string.get()), xmp_string_len(string.get())});
}

/// "dc:title" without its prefix; array items ("dc:subject[2]") give "".
std::string leafName(const std::string& path) {
  std::string leaf = path.substr(path.rfind('/') + 1);
  if (leaf.ends_with(']')) return "";
  return leaf.substr(leaf.find(':') + 1);
}

/// Turns a tree of properties into dictionaries. A hostile packet is cut off at the limits.
class TreeReader {
 public:
  explicit TreeReader(XmpPtr xmp) : xmp_(xmp) {}

  /// All properties by namespace prefix.
  Dictionary read() {
    Dictionary tree;
    eachChild(nullptr, nullptr,
              [&](const std::string& schema, const std::string&, const StringHandle&, std::uint32_t) {
                StringHandle prefix(xmp_string_new());
                if (!xmp_namespace_prefix(schema.c_str(), prefix.get())) return;
                std::string name = text(prefix);
                if (name.ends_with(':')) name.pop_back();
                Dictionary properties = structure(schema, nullptr, 0);
                if (!properties.empty()) tree.set(name, std::move(properties));
              });
    return tree;
  }

 private:
  using Visit = std::function<void(const std::string& schema, const std::string& path,
                                   const StringHandle& value, std::uint32_t options)>;

  void eachChild(const char* schema, const char* path, const Visit& visit) {
    auto options = static_cast<XmpIterOptions>(XMP_ITER_JUSTCHILDREN | XMP_ITER_OMITQUALIFIERS);
    std::unique_ptr<_XmpIterator, IteratorRelease> iterator(xmp_iterator_new(xmp_, schema, path, options));
    StringHandle childSchema(xmp_string_new());
    StringHandle childPath(xmp_string_new());
    StringHandle value(xmp_string_new());
    std::uint32_t flags = 0;
    while (iterator && nodes_++ < kMaxNodes &&
           xmp_iterator_next(iterator.get(), childSchema.get(), childPath.get(), value.get(), &flags)) {
      visit(text(childSchema), text(childPath), value, flags);
    }
  }

  Value node(const std::string& schema, const std::string& path, const StringHandle& value,
             std::uint32_t flags, int depth) {
    if (XMP_IS_PROP_SIMPLE(flags)) return text(value);
    if (depth > kMaxDepth) return nullptr;
    if (XMP_IS_PROP_STRUCT(flags)) return structure(schema, path.c_str(), depth);
    if (XMP_IS_ARRAY_ALTTEXT(flags)) return languages(schema, path);
    return list(schema, path, depth);
  }

  Dictionary structure(const std::string& schema, const char* path, int depth) {
    Dictionary fields;
    eachChild(
        schema.c_str(), path,
        [&](const std::string&, const std::string& child, const StringHandle& value, std::uint32_t flags) {
          std::string name = leafName(child);
          if (!name.empty()) fields.set(name, node(schema, child, value, flags, depth + 1));
        });
    return fields;
  }

  Array list(const std::string& schema, const std::string& path, int depth) {
    Array items;
    eachChild(schema.c_str(), path.c_str(),
              [&](const std::string&, const std::string& child, const StringHandle& value,
                  std::uint32_t flags) { items.push_back(node(schema, child, value, flags, depth + 1)); });
    return items;
  }

  Dictionary languages(const std::string& schema, const std::string& path) {
    Dictionary byLanguage;
    eachChild(schema.c_str(), path.c_str(),
              [&](const std::string&, const std::string& child, const StringHandle& value, std::uint32_t) {
                StringHandle language(xmp_string_new());
                std::string qualifier = child + "/?xml:lang";
                bool known =
                    xmp_get_property(xmp_, schema.c_str(), qualifier.c_str(), language.get(), nullptr);
                byLanguage.set(known ? text(language) : "x-default", text(value));
              });
    return byLanguage;
  }

  XmpPtr xmp_;
  int nodes_ = 0;
};

/// Both by the library, which is not safe to use on several threads at a time.
std::mutex& libraryMutex() {
  static std::mutex mutex;
  return mutex;
}

bool startLibrary() {
  static const bool started = xmp_init();
  return started;
}

Dictionary embeddedProperties(const std::string& path) {
  std::lock_guard lock(libraryMutex());
  if (!startLibrary()) return {};
  std::unique_ptr<_XmpFile, FileRelease> file(xmp_files_open_new(path.c_str(), XMP_OPEN_READ));
  if (!file) return {};
  XmpHandle xmp(xmp_files_get_new_xmp(file.get()));
  return xmp ? TreeReader(xmp.get()).read() : Dictionary();
}

Dictionary packetProperties(const std::string& packet) {
  std::lock_guard lock(libraryMutex());
  if (!startLibrary()) return {};
  XmpHandle xmp(xmp_new(packet.data(), packet.size()));
  return xmp ? TreeReader(xmp.get()).read() : Dictionary();
}

void mergeByNamespace(Dictionary& tree, const Dictionary& other) {
  for (const auto& [prefix, properties] : other) {
    Value& mine = tree[prefix];
    if (!mine.ifDictionary()) mine = Dictionary();
    mine.ifDictionary()->merge(*properties.ifDictionary());
  }
}

void mergeSidecars(const std::string& path, Dictionary& tree) {
  std::string stem = deletingPathExtension(path);
  for (const std::string& candidate : {stem + ".xmp", stem + ".XMP", path + ".xmp"}) {
    struct stat status {};
    if (candidate == path || stat(candidate.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) continue;
    if (auto packet = readFile(candidate, kSidecarLimit)) mergeByNamespace(tree, packetProperties(*packet));
  }
}

/// The position that EXIF tells in files whose EXIF the metadata library does not reconcile.
Dictionary exifPosition(const std::string& path) {
  auto source = imageSource(path);
  if (!source) return {};
  auto position = catchingVips(path, [&] {
    vips::VImage image = openImage(*source);
    auto field = [&](const std::string& name) {
      std::string key = "exif-ifd3-" + name;
      return image.get_typeof(key.c_str()) != 0 ? std::string(image.get_string(key.c_str())) : std::string();
    };
    Dictionary found;
    for (const char* name : kGpsNames) {
      if (auto coordinate = gpsTextFromExif(field(name), field(std::string(name) + "Ref")))
        found.set(name, *coordinate);
    }
    return found;
  });
  return position.value_or(Dictionary());
}

/// Puts the coordinates into the one form; those that are none are dropped.
void normalisePosition(Dictionary& exif) {
  for (const char* name : kGpsNames) {
    const Value* value = exif.find(name);
    if (!value) continue;
    const std::string* stored = value->ifString();
    auto coordinate = stored ? normalisedGpsText(*stored) : std::nullopt;
    if (coordinate) {
      exif.set(name, *coordinate);
    } else {
      exif.erase(name);
    }
  }
}

}  // namespace

std::optional<Dictionary> xmpMetadata(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  Dictionary tree = embeddedProperties(path);
  mergeSidecars(path, tree);

  Value* stored = tree.find("exif");
  Dictionary exif = stored && stored->ifDictionary() ? *stored->ifDictionary() : Dictionary();
  normalisePosition(exif);
  bool complete =
      std::all_of(kGpsNames.begin(), kGpsNames.end(), [&](auto name) { return exif.contains(name); });
  if (!complete) exif.merge(exifPosition(path));
  if (!exif.empty()) tree.set("exif", std::move(exif));
  if (tree.empty()) return std::nullopt;
  return tree;
}

}  // namespace vornex
