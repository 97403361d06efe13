#pragma once

#include <gtest/gtest.h>
#include <vornex/Queue.h>
#include <vornex/TQAsset.h>
#include <vornex/TQConnection.h>
#include <vornex/TQImportAsset.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQProject.h>
#include <vornex/TQUser.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "foundation/Files.h"
#include "platform/Images.h"
#include "sdk/FakeAssetServer.h"
#include "support/TemporaryFolder.h"

namespace vornex::testing {

inline void writeText(const std::string& path, const std::string& text) {
  std::ofstream(path) << text;
}

/// A picture with a gradient, as a JPEG.
inline void writePicture(const std::string& path, int width, int height) {
  Data pixels(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 3);
  for (std::size_t i = 0; i < pixels.size(); ++i) pixels[i] = static_cast<std::uint8_t>(i / 977);
  ASSERT_TRUE(Image::fromRgb(width, height, pixels)->saveJpeg(path));
}

/// A clip of one second.
inline void writeClip(const std::string& path, const std::string& size) {
  std::string command = "ffmpeg -loglevel error -y -f lavfi -i testsrc=duration=1:rate=10:size=" + size +
                        " -pix_fmt yuv420p '" + path + "'";
  ASSERT_EQ(std::system(command.c_str()), 0);
}

/// A local library on a fake server, and a folder of files to import.
class ImportFixture : public ::testing::Test {
 protected:
  /// What the progress handler was told.
  struct Step {
    std::string file;
    double progress;
    std::int64_t finishedCount;
    std::int64_t bytes;
    TQErrorPtr error;
  };

  void SetUp() override {
    // The library manager keeps to one root folder as long as the process lives.
    static const TemporaryFolder root;
    ::setenv("VORNEX_ROOT", root.path().c_str(), 1);
    std::filesystem::create_directory(root / "Preference");
    for (const char* name : {"package", "source", "target"})
      std::filesystem::create_directory(folder_ / name);
    UserPtr user = TQUser::userWithID("user", "User", kUserTypeLocalOwner, "digest");
    library_ =
        TQLibrary::libraryWithName("Library", "", kLibraryTypeLocal, false, true, true, package(), package(),
                                   TQConnection::connectionWithAddress("127.0.0.1", server_.port(), user));
    project_ = TQProject::projectWithName("Project", library_->dbName, kProjectTypeProject);
    project_->library = library_;
    library_->projects = {project_};
  }

  std::string package() const { return folder_ / "package"; }
  std::string source(const std::string& name) const { return folder_ / ("source/" + name); }
  std::string inPackage(const OptionalString& path) const { return package() + path.value_or("/none"); }

  /// Hears each step; true stops the batch.
  using Watch = std::function<bool(const Step& step)>;

  /// Runs a batch to its end; the steps are those of the handler, in order.
  std::vector<Step> import(const std::vector<ImportAssetPtr>& items, ImportType type = ImportType::copy,
                           bool shouldIndexing = false, const Watch& watch = {}) {
    std::vector<Step> steps;
    int completions = 0;
    project_->createAssetsWithImportAssets(
        items, type, folder_ / "target", shouldIndexing,
        [&](const ImportAssetPtr& item, const AssetPtr& asset, double progress, std::int64_t finishedCount,
            std::int64_t bytes, bool* stop, const TQErrorPtr& error) {
          steps.push_back({item->path->substr(source("").size()), progress, finishedCount, bytes, error});
          assets_[*item->path] = asset;
          if (watch && watch(steps.back())) *stop = true;
        },
        [&](bool ok, const TQErrorPtr& error) {
          ++completions;
          EXPECT_TRUE(ok);
          EXPECT_FALSE(error);
          MainQueue::shared().stop();
        });
    MainQueue::shared().run();
    EXPECT_EQ(completions, 1);
    return steps;
  }

  std::vector<ImportAssetPtr> items(const std::vector<std::string>& names) const {
    std::vector<ImportAssetPtr> list;
    for (const std::string& name : names) list.push_back(TQImportAsset::importAssetWithPath(source(name)));
    return list;
  }

  /// The files in the media folders of the package, relative to it, and the journals.
  std::vector<std::string> packageFiles() const {
    std::vector<std::string> files;
    for (const auto& item : std::filesystem::recursive_directory_iterator(package()))
      if (item.is_symlink() || !item.is_directory())
        files.push_back(item.path().string().substr(package().size()));
    std::sort(files.begin(), files.end());
    return files;
  }

  TemporaryFolder folder_;
  FakeAssetServer server_;
  LibraryPtr library_;
  ProjectPtr project_;
  std::map<std::string, AssetPtr> assets_;
};

}  // namespace vornex::testing
