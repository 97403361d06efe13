#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vornex/KeyedArchive.h>
#include <vornex/Log.h>

#include "foundation/Files.h"
#include "foundation/PropertyList.h"

using namespace vornex;
using ::testing::ElementsAre;

namespace {

struct Folder : Archivable {
  std::string archivedClassName() const override { return "TestFolder"; }

  void encodeWithCoder(KeyedArchiver& coder) const override {
    coder.encodeValue("name", name);
    coder.encodeObjects("children", children);
    coder.encodeObject("parent", parent.lock());
    coder.encodeInteger("count", count);
    coder.encodeBool("isOpen", isOpen);
    coder.encodeDouble("ratio", ratio);
    coder.encodeMutableValue("info", info);
  }

  void initWithCoder(KeyedUnarchiver& coder) override {
    name = coder.decodeString("name");
    children = coder.decodeObjects<Folder>("children");
    parent = coder.decodeReference<Folder>("parent");
    count = coder.decodeInteger("count");
    isOpen = coder.decodeBool("isOpen");
    ratio = coder.decodeDouble("ratio");
    info = coder.decodeDictionary("info");
    colour = coder.decodeObject<Archivable>("colour");
  }

  OptionalString name;
  std::vector<std::shared_ptr<Folder>> children;
  std::weak_ptr<Folder> parent;
  std::int64_t count = 0;
  bool isOpen = false;
  double ratio = 0;
  Dictionary info;
  std::shared_ptr<Archivable> colour;
};

const ArchivedClass folderClass("TestFolder", [] { return std::make_shared<Folder>(); });

using FolderPtr = std::shared_ptr<Folder>;

FolderPtr makeFolder(const std::string& name, std::vector<FolderPtr> children = {}) {
  auto folder = std::make_shared<Folder>();
  folder->name = name;
  for (const FolderPtr& child : children) child->parent = folder;
  folder->children = std::move(children);
  return folder;
}

FolderPtr throughArchive(const FolderPtr& folder) {
  std::optional<Data> bytes = KeyedArchiver::archivedData(folder);
  return bytes ? KeyedUnarchiver::unarchivedObject<Folder>(*bytes) : nullptr;
}

FolderPtr read(const Value& archive) {
  std::string bytes = writePropertyList(archive, PropertyListFormat::binary).value();
  return KeyedUnarchiver::unarchivedObject<Folder>(Data(bytes.begin(), bytes.end()));
}

Value uid(std::int64_t slot) {
  return Dictionary{{"CF$UID", slot}};
}

Value archiveOf(Array objects, Value root = uid(3)) {
  objects.insert(objects.begin(),
                 {"$null", Dictionary{{"$classname", "TestFolder"}}, Dictionary{{"$classname", "NSArray"}}});
  return Dictionary{{"$archiver", "NSKeyedArchiver"},
                    {"$version", 100000},
                    {"$top", Dictionary{{"root", root}}},
                    {"$objects", objects}};
}

Value folderOf(Value children) {
  return Dictionary{{"$class", uid(1)}, {"name", uid(0)}, {"children", children}};
}

Value listOf(Array elements) {
  return Dictionary{{"$class", uid(2)}, {"NS.objects", elements}};
}

}  // namespace

TEST(KeyedArchive, ReadsWhatAnotherArchiverWrote) {
  std::string bytes = readFile(VORNEX_GOLDEN "/folder.archive").value();
  FolderPtr folder = KeyedUnarchiver::unarchivedObject<Folder>(Data(bytes.begin(), bytes.end()));
  ASSERT_TRUE(folder);
  EXPECT_EQ(folder->name, "\u4e2d folder");
  EXPECT_EQ(folder->count, 20240305140709250);
  EXPECT_TRUE(folder->isOpen);
  EXPECT_EQ(folder->ratio, 0.5);
  EXPECT_EQ(folder->colour, nullptr);
  Date when = std::chrono::sys_days(std::chrono::year(2024) / 3 / 5) + std::chrono::hours(14) +
              std::chrono::minutes(7) + std::chrono::milliseconds(9250);
  EXPECT_EQ(folder->info, (Dictionary{{"when", when},
                                      {"numbers", Array{7, false, 2.5, folder->name}},
                                      {"nothing", nullptr},
                                      {"bytes", Data{0, 255}},
                                      {"mutable", "text"}}));
  // A shared child, of a subclass; the unknown object and nil are left out.
  ASSERT_EQ(folder->children.size(), 2u);
  FolderPtr child = folder->children[0];
  EXPECT_EQ(folder->children[1], child);
  EXPECT_EQ(child->parent.lock(), folder);
  EXPECT_EQ(child->count, -7);
  EXPECT_TRUE(child->isOpen);
}

TEST(KeyedArchive, WritesEachObjectAndClassOnceAndNilUnderItsKey) {
  FolderPtr root = makeFolder("root", {makeFolder("root"), makeFolder("b")});
  root->isOpen = true;
  root->count = 1;
  Data bytes = KeyedArchiver::archivedData(root).value();
  Value archive =
      parsePropertyList(std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size())).value();
  EXPECT_EQ(*archive.find("$version"), Value(100000));
  EXPECT_EQ(*archive.find("$archiver"), Value("NSKeyedArchiver"));
  EXPECT_EQ(*archive.find("$top"), Value(Dictionary{{"root", uid(1)}}));
  const Array& objects = *archive.find("$objects")->ifArray();
  EXPECT_EQ(objects[0], Value("$null"));
  std::vector<std::string> classes;
  for (const Value& object : objects)
    if (const Value* name = object.find("$classname")) classes.push_back(*name->ifString());
  EXPECT_THAT(classes,
              ::testing::UnorderedElementsAre("TestFolder", "NSMutableArray", "NSMutableDictionary"));
  EXPECT_EQ(std::count(objects.begin(), objects.end(), Value("root")), 1);
  EXPECT_EQ(*objects[1].find("parent"), uid(0));
  EXPECT_EQ(*objects[1].find("isOpen"), Value(true));
  EXPECT_EQ(*objects[1].find("count"), Value(1));
}

TEST(KeyedArchive, KeepsTheShapeOfLargeTrees) {
  // A group's archive holds the whole tree, by way of its parent.
  FolderPtr root = makeFolder("root");
  FolderPtr leaf;
  for (int branch = 0; branch < 40; ++branch) {
    leaf = makeFolder(std::to_string(branch));
    FolderPtr top = leaf;
    for (int depth = 0; depth < 50; ++depth) top = makeFolder("\uac00", {top});
    top->parent = root;
    root->children.push_back(top);
  }
  leaf->info = Dictionary{{"nested", Array{Dictionary{{"null", nullptr}}}}, {"date", Date{}}};
  FolderPtr copy = throughArchive(root);
  ASSERT_TRUE(copy);
  ASSERT_EQ(copy->children.size(), 40u);
  FolderPtr last = copy->children.back();
  while (!last->children.empty()) last = last->children[0];
  EXPECT_EQ(last->name, "39");
  EXPECT_EQ(last->info, leaf->info);

  FolderPtr leafCopy = throughArchive(leaf);
  ASSERT_TRUE(leafCopy);
  EXPECT_EQ(leafCopy->name, "39");
  EXPECT_TRUE(leafCopy->parent.expired());
}

TEST(KeyedArchive, RefusesWhatWouldHarmItsReader) {
  std::string lastLine;
  setLogSink([&](LogLevel, const std::string& line) { lastLine = line; });
  EXPECT_TRUE(read(archiveOf({folderOf(uid(4)), listOf({})})));
  for (auto [key, value] : {std::pair("$version", Value(100001)), std::pair("$archiver", Value("another"))}) {
    Value archive = archiveOf({folderOf(uid(0))});
    archive.ifDictionary()->set(key, value);
    EXPECT_FALSE(read(archive)) << key;
    EXPECT_EQ(std::exchange(lastLine, ""), "not a keyed archive");
  }
  EXPECT_FALSE(read(archiveOf({Dictionary{{"$class", uid(4)}}, Dictionary{{"$classname", "Stranger"}}})));
  EXPECT_THAT(std::exchange(lastLine, ""), ::testing::HasSubstr("no known class"));
  struct Other : Folder {};
  Data folder = KeyedArchiver::archivedData(makeFolder("a")).value();
  EXPECT_FALSE(KeyedUnarchiver::unarchivedObject<Other>(folder));
  EXPECT_THAT(std::exchange(lastLine, ""), ::testing::HasSubstr("its root is a TestFolder"));
  EXPECT_TRUE(read(archiveOf({folderOf(uid(4)), listOf({uid(99), uid(-1), 5, "x"})})));
  EXPECT_FALSE(read(archiveOf({folderOf(uid(4))}, uid(0))));
  EXPECT_FALSE(read(archiveOf({"a text"})));
  EXPECT_FALSE(read(Dictionary{{"$objects", Array{}}, {"$top", "root"}}));
  for (std::string_view bytes : {"", "bplist00", "<plist/>"})
    EXPECT_FALSE(KeyedUnarchiver::unarchivedObject<Folder>(Data(bytes.begin(), bytes.end())));

  // A folder that owns itself, and one whose information holds itself.
  EXPECT_FALSE(read(archiveOf({folderOf(uid(4)), listOf({uid(3)})})));
  EXPECT_FALSE(read(archiveOf(
      {Dictionary{{"$class", uid(1)}, {"info", uid(4)}},
       Dictionary{
           {"$class", Dictionary{{"CF$UID", 6}}}, {"NS.keys", Array{uid(5)}}, {"NS.objects", Array{uid(4)}}},
       "key", Dictionary{{"$classname", "NSDictionary"}}})));

  // A chain of owners, each the next one's parent too; and lists that each hold the next one ten times.
  Array chain;
  for (std::int64_t i = 0; i < 15'000; ++i) {
    chain.push_back(folderOf(uid(4 + 2 * i)));
    chain.push_back(listOf({uid(5 + 2 * i)}));
  }
  EXPECT_FALSE(read(archiveOf(chain)));
  chain.resize(1000);
  EXPECT_TRUE(read(archiveOf(chain)));
  Array bomb{Dictionary{{"$class", uid(1)}, {"info", uid(4)}},
             Dictionary{{"$class", uid(5)}, {"NS.keys", Array{uid(6)}}, {"NS.objects", Array{uid(7)}}},
             Dictionary{{"$classname", "NSDictionary"}}, "key"};
  for (std::int64_t i = 8; i < 28; ++i) bomb.push_back(listOf(Array(10, uid(i))));
  EXPECT_FALSE(read(archiveOf(bomb)));
  setLogSink({});
}
