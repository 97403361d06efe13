#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "server/ServerFixture.h"
#include "server/http/ByteRange.h"

namespace vornex::server::testing {
namespace {

TEST(ByteRange, ReadsWhatAClientAsksFor) {
  using Kind = ByteRange::Kind;
  struct {
    const char* header;
    std::uint64_t size;
    Kind kind;
    std::uint64_t offset;
    std::uint64_t length;
  } cases[] = {
      {"bytes=0-0", 10, Kind::part, 0, 1},
      {"bytes=3-", 10, Kind::part, 3, 7},
      {"bytes=3-99", 10, Kind::part, 3, 7},
      {"bytes=-4", 10, Kind::part, 6, 4},
      {"bytes=-40", 10, Kind::part, 0, 10},
      {"bytes=10-", 10, Kind::unsatisfiable, 0, 0},
      {"bytes=-0", 10, Kind::unsatisfiable, 0, 0},
      {"bytes=0-", 0, Kind::unsatisfiable, 0, 0},
      {"bytes=18446744073709551615-", 10, Kind::unsatisfiable, 0, 0},
      {"", 10, Kind::whole, 0, 10},
      {"bytes=-", 10, Kind::whole, 0, 10},
      {"bytes=5-2", 10, Kind::whole, 0, 10},
      {"bytes=0-1,4-5", 10, Kind::whole, 0, 10},
      {"bytes=99999999999999999999-", 10, Kind::whole, 0, 10},
      {"bytes=+1-2", 10, Kind::whole, 0, 10},
      {"pages=1-2", 10, Kind::whole, 0, 10},
  };
  for (const auto& [header, size, kind, offset, length] : cases) {
    ByteRange range = parseByteRange(header, size);
    EXPECT_EQ(range.kind, kind) << header;
    EXPECT_EQ(range.offset, offset) << header;
    EXPECT_EQ(range.length, length) << header;
  }
}

class MediaTest : public RouterTest {
 protected:
  /// The body of the file that the path leads to; the status when it leads nowhere.
  std::string fetch(const std::string& path) {
    Response response = get(library("/" + path));
    if (!response.file) return std::to_string(response.status);
    std::string content(response.file->length, '\0');
    EXPECT_EQ(::pread(response.file->file.get(), content.data(), content.size(),
                      static_cast<off_t>(response.file->offset)),
              static_cast<ssize_t>(content.size()));
    return content;
  }

  static std::string header(const Response& response, const std::string& name) {
    for (const auto& [key, value] : response.headers) {
      if (key == name) return value;
    }
    return "";
  }
};

TEST_F(MediaTest, FindsFilesAsTheClientSpellsThem) {
  writePackageFile("Media/Master/2025/03/07/LF120000/Clip A.mov", "master");
  writePackageFile("Media/Thumbnail/lf/why?&x.jpg", "thumbnail");
  writePackageFile("Media/Preview/100%.mp4", "preview");
  EXPECT_EQ(fetch("master/2025/03/07/lf120000/Clip%20A.mov"), "master");
  EXPECT_EQ(fetch("master/2025/03/07/LF120000/Clip%20A.mov"), "master");
  EXPECT_EQ(fetch("master/2025/03/07/lf120000/clip%20a.mov"), "404") << "file names keep their case";
  EXPECT_EQ(fetch("thumbnail/lf/why%3F&x.jpg"), "thumbnail");
  EXPECT_EQ(fetch("thumbnail/lf/why?&x.jpg"), "thumbnail");
  EXPECT_EQ(fetch("preview/100%25.mp4"), "preview");
}

TEST_F(MediaTest, LetsNothingOutsideTheMediaFoldersPass) {
  writePackageFile("Media/Master/a.mov", "a");
  writePackageFile("library.plist", "secret");
  ASSERT_TRUE(writeFileAtomically(folder_ / "secret", "secret"));
  std::string masters = layout::masterFolder(packageFolder(kDbName));
  std::filesystem::create_directory_symlink(folder_.path(), masters + "/elsewhere");
  std::filesystem::create_symlink("../../library.plist", masters + "/link.mov");
  ASSERT_EQ(::mkfifo((masters + "/pipe").c_str(), 0600), 0);
  const char* paths[] = {
      "master/../../library.plist",
      "master/%2e%2e/%2e%2e/library.plist",
      "master/..%2f..%2flibrary.plist",
      "master/./a.mov",
      "master/elsewhere/secret",
      "master/link.mov",
      "master/ELSEWHERE/secret",
      "master/pipe",
      "master/.",
      "master/..",
      "master/a.mov/",
      "master/a.mov%00.jpg",
      "master//../a.mov",
      "thumbnail/../Master/a.mov",
      "master/a.mov/x",
  };
  for (const char* path : paths) {
    std::string content = fetch(path);
    if (std::string(path) == "master/a.mov/") {
      EXPECT_EQ(content, "a");
    } else {
      EXPECT_TRUE(content == "404" || content == "400") << path << ": " << content;
    }
  }
}

TEST_F(MediaTest, FollowsALinkOnlyForTheAssetThatReferencesIt) {
  ASSERT_TRUE(writeFileAtomically(folder_ / "source.mov", "referenced"));
  writePackageFile("Media/Master/1/other.mov", "");
  writePackageFile("Media/Thumbnail/1/other.jpg", "");
  std::string package = packageFolder(kDbName);
  std::filesystem::create_symlink(folder_ / "source.mov", layout::masterFolder(package) + "/1/link.mov");
  std::filesystem::create_symlink(folder_ / "source.mov", layout::thumbnailFolder(package) + "/1/link.mov");
  EXPECT_EQ(fetch("master/1/link.mov"), "404");
  (void)createAsset({{"masterpath", "/Media/Master/1/link.mov"}, {"importtype", 1}});
  EXPECT_EQ(fetch("master/1/link.mov"), "404");
  (void)createAsset({{"masterpath", "/Media/Master/1/link.mov"}, {"importtype", 0}});
  EXPECT_EQ(fetch("master/1/link.mov"), "referenced");
  EXPECT_EQ(fetch("thumbnail/1/link.mov"), "404");
}

TEST_F(MediaTest, OnlyTheOwnerSaysWhichLinksAreFollowed) {
  ASSERT_TRUE(writeFileAtomically(folder_ / "secret", "secret"));
  std::string folder = layout::masterFolder(packageFolder(kDbName)) + "/2025/card";
  writePackageFile("Media/Master/2025/card/a.mov", "a");
  std::filesystem::create_symlink(folder_ / "secret", folder + "/link.mov");
  std::string link = "/Media/Master/2025/card/link.mov";
  std::string card = createAsset({{"masterpath", "/Media/Master/2025/card"}, {"importtype", 0}});
  std::string plain = createAsset({{"masterpath", "/Media/Master/2025/card/a.mov"}, {"importtype", 1}});

  writeUsers({user("ann", "p", kDbName)});
  authorization_ = basic("ann", "p");
  auto codes = [&](const std::string& operation, const Array& items) {
    Response response = post(library(operation), writeJson(Dictionary{{"items", items}}));
    if (code(response) != 0) return std::vector<std::int64_t>{code(response)};
    std::vector<std::int64_t> result;
    Value body = json(response);
    for (const Value& item : coerce::array(body.find("items"))) {
      const Value* status = item.find("Status");
      result.push_back(status ? coerce::integer(status->find("code")) : 0);
    }
    return result;
  };
  using Codes = std::vector<std::int64_t>;
  for (const Value& reference : Array{0, "0", false, 0.0, Array{0}}) {
    EXPECT_EQ(
        codes("/assets/create", {Dictionary{{"name", "a"}, {"masterpath", link}, {"importtype", reference}},
                                 Dictionary{{"name", "b"}, {"masterpath", link}, {"importtype", 1}}}),
        (Codes{4, 0}));
  }
  EXPECT_EQ(codes("/assets/update", {Dictionary{{"_id", plain}, {"importtype", 0}, {"masterpath", link}}}),
            Codes{4});
  EXPECT_EQ(codes("/assets/update", {Dictionary{{"_id", card}, {"masterpath", link}}}), Codes{4});
  EXPECT_EQ(codes("/assets/update",
                  {Dictionary{{"_id", plain}, {"masterpath", link}},
                   Dictionary{{"_id", card}, {"importtype", 0}, {"masterpath", "/Media/Master/2025/card"}}}),
            (Codes{0, 0}))
      << "harmless";
  EXPECT_EQ(fetch("master/2025/card/link.mov"), "404");
  authorization_ = ownerCredentials();
  EXPECT_EQ(fetch("master/2025/card/link.mov"), "404") << "the folder above is the master";
}

TEST_F(MediaTest, TellsWhereTheFilesOfAssetsAreServed) {
  writePackageFile("Media/Master/2025/a b#.mov", "master");
  writePackageFile("Media/Preview/a.mp4", "preview");
  writePackageFile("library.plist", "secret");
  ASSERT_TRUE(writeFileAtomically(folder_ / "source.mov", "referenced"));
  std::filesystem::create_symlink(folder_ / "source.mov",
                                  layout::masterFolder(packageFolder(kDbName)) + "/link.mov");
  Array items;
  for (const Dictionary& asset :
       {Dictionary{{"masterpath", "/Media/Master/2025/a b#.mov"}, {"previewpath", "/Media/Preview/a.mp4"}},
        Dictionary{{"masterpath", "/Media/Master/link.mov"}, {"importtype", 0}},
        Dictionary{{"masterpath", "/Media/Master/gone.mov"}}, Dictionary{},
        Dictionary{{"masterpath", "/Media/Master/../../library.plist"}}})
    items.push_back(Dictionary{{"_id", createAsset(asset)}, {"masterpath", "/library.plist"}});

  writeUsers({user("ann", "p", kDbName), user("eve", "p", "another")});
  authorization_ = basic("ann", "p");
  auto ask = [&](const char* operation) {
    Value reply = json(post(library(operation), writeJson(Dictionary{{"items", items}})));
    std::vector<std::string> found;
    for (const Value& item : coerce::array(reply.find("items"))) {
      const std::string url = coerce::string(item.find("url")).value_or("");
      const std::string start = "127.0.0.1:38317/vornex/" + library("/");
      EXPECT_TRUE(url.empty() || url.starts_with(start)) << url;
      found.push_back(url.empty() ? "" : fetch(percentEncoded(url.substr(start.size()), "/")));
    }
    return found;
  };
  using Found = std::vector<std::string>;
  EXPECT_EQ(ask("/assets/download"), (Found{"master", "referenced", "", "", ""}));
  EXPECT_EQ(ask("/assets/preview"), (Found{"preview", "", "", "", ""}));
  items.erase(items.begin(), items.begin() + 2);
  EXPECT_TRUE(ask("/assets/download").empty()) << "none has a file";
  authorization_ = basic("eve", "p");
  EXPECT_EQ(post(library("/assets/download"), "{\"items\": []}").status, 403u);
}

TEST_F(MediaTest, OnlyTheOwnerLearnsWhichFilesTheServerReads) {
  ASSERT_TRUE(writeFileAtomically(folder_ / "here", ""));
  auto ask = [&](const std::vector<std::string>& paths) {
    Array items;
    for (const std::string& path : paths) items.push_back(Dictionary{{"path", path}});
    return post(library("/assets/access"), writeJson(Dictionary{{"items", items}}));
  };
  Value reply = json(ask({folder_ / "here", folder_ / "gone", "here"}));
  EXPECT_EQ(*reply.find("failures"),
            Value(Array{Dictionary{{"path", folder_ / "gone"}}, Dictionary{{"path", "here"}}}));
  EXPECT_EQ(*json(ask({folder_ / "here"})).find("failures"), Value(Array{}));
  EXPECT_EQ(code(ask({folder_ / "gone"})), 35);
  writeUsers({user("ann", "p", kDbName)});
  authorization_ = basic("ann", "p");
  EXPECT_EQ(code(ask({folder_ / "here"})), 4);
}

TEST_F(MediaTest, SendsPartsAndTellsWhatTheClientHas) {
  writePackageFile("Media/Master/a.mov", "0123456789");
  Request request;
  request.method = "GET";
  request.target = "/vornex/" + library("/master/a.mov");
  request.authorization = authorization_;
  Response whole = router_->answer(request);
  ASSERT_TRUE(whole.file);
  EXPECT_EQ(header(whole, "Content-Type"), "video/quicktime");
  std::string tag = header(whole, "ETag");

  request.range = "bytes=2-4";
  Response part = router_->answer(request);
  EXPECT_EQ(part.status, 206u);
  EXPECT_EQ(header(part, "Content-Range"), "bytes 2-4/10");
  EXPECT_EQ(part.file->offset, 2u);
  EXPECT_EQ(part.file->length, 3u);
  request.ifRange = tag;
  EXPECT_EQ(router_->answer(request).status, 206u);
  request.ifRange = "\"another\"";
  EXPECT_EQ(router_->answer(request).status, 200u) << "the file has changed since";

  request.ifRange.clear();
  request.range = "bytes=10-";
  Response nothing = router_->answer(request);
  EXPECT_EQ(nothing.status, 416u);
  EXPECT_EQ(header(nothing, "Content-Range"), "bytes */10");

  request.range.clear();
  request.ifNoneMatch = "\"x\", W/" + tag;
  EXPECT_EQ(router_->answer(request).status, 304u);
  writePackageFile("Media/Master/a.mov", "9876543210");
  EXPECT_EQ(router_->answer(request).status, 200u);
}

}  // namespace
}  // namespace vornex::server::testing
