#include <vornex/vornex.h>

#include <cstdio>
using namespace vornex;

int main() {
  VornexSDK::sharedInstance().initializeWAS();
  VornexSDK::sharedInstance().startWASServiceWithPort(0, [](bool, const TQErrorPtr&) {
    TQLibraryManager::sharedManager().loadAllLibraries([](const std::vector<LibraryPtr>& libraries) {
      auto page =
          TQSearchManager::sharedManager().searchAssetWithLibrary(libraries.at(0), PredicatePtr(), 0, 10, 0);
      for (const AssetPtr& asset : page.result) std::puts(asset->name()->c_str());
      MainQueue::shared().stop();
    });
  });
  MainQueue::shared().run();
}
