#include <vornex/KeyedArchive.h>
#include <vornex/Log.h>

#include <cstdint>

using namespace vornex;

namespace {

struct Folder : Archivable {
  std::string archivedClassName() const override { return "TestFolder"; }

  void encodeWithCoder(KeyedArchiver& coder) const override {
    coder.encodeValue("name", name);
    coder.encodeObjects("children", children);
    coder.encodeObject("parent", parent.lock());
    coder.encodeObject("colour", colour);
    coder.encodeInteger("count", count);
    coder.encodeDouble("ratio", ratio);
    coder.encodeMutableValue("info", info);
  }

  void initWithCoder(KeyedUnarchiver& coder) override {
    name = coder.decodeString("name");
    children = coder.decodeObjects<Folder>("children");
    parent = coder.decodeReference<Folder>("parent");
    colour = coder.decodeObject<Archivable>("colour");
    count = coder.decodeInteger("count");
    ratio = coder.decodeDouble("ratio");
    info = coder.decodeValue("info");
  }

  OptionalString name;
  std::vector<std::shared_ptr<Folder>> children;
  std::weak_ptr<Folder> parent;
  std::shared_ptr<Archivable> colour;
  std::int64_t count = 0;
  double ratio = 0;
  Value info;
};

const ArchivedClass folderClass("TestFolder", [] { return std::make_shared<Folder>(); });

}  // namespace

// Whatever can be read can be written and read again.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool isQuiet = (setLogSink([](LogLevel, const std::string&) {}), true);
  (void)isQuiet;
  auto root = KeyedUnarchiver::unarchivedObject<Folder>(Data(data, data + size));
  if (!root) return 0;
  std::optional<Data> bytes = KeyedArchiver::archivedData(root);
  if (!bytes || !KeyedUnarchiver::unarchivedObject<Folder>(*bytes)) __builtin_trap();
  return 0;
}
