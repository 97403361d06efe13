#include <vornex/vornex.h>

#include <cstdio>

using namespace vornex;

int main() {
  VornexSDK::sharedInstance().initializeWAS();
  VornexSDK::sharedInstance().startWASServiceWithPort(0, [](bool, TQErrorPtr) {
    TQLibraryManager::sharedManager().loadAllLibraries([](std::vector<LibraryPtr> libraries) {
      for (const LibraryPtr& library : libraries)
        for (const AssetPtr& asset : TQSearchManager::sharedManager().searchAssetWithLibrary(library, nullptr, 0, 100, 0).result)
          std::printf("%s: %s\n", library->name->c_str(), asset->name()->c_str());
      MainQueue::shared().stop();
    });
  });
  MainQueue::shared().run();
}
