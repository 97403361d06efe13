#include "core/Localization.h"

#include <vornex/Log.h>
#include <vornex/TQVornexUtil.h>

#include <cstdlib>

#include "core/Coercion.h"
#include "core/TypeTables.h"
#include "foundation/Files.h"
#include "foundation/PropertyList.h"
#include "foundation/Text.h"

namespace vornex {
namespace {

constexpr const char* kFallbackLanguage = "en";

Dictionary loadTexts(const std::string& path) {
  Result<Dictionary> table = readDictionaryFile(path);
  if (table) return std::move(*table);
  logLine(LogLevel::error, "Can't load " + path + ": " + table.error().message);
  return {};
}

std::string tablePath(const std::string& folder, const std::string& language) {
  return appendPathComponent(folder, language + ".strings.plist");
}

}  // namespace

const Localization& Localization::shared() {
  // Never destroyed: workers may ask while the process ends.
  static const auto* localization = new Localization(TypeTables::resourceFolder(), userLanguage());
  return *localization;
}

std::string Localization::userLanguage() {
  for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* value = std::getenv(name);
    if (!value || !*value) continue;
    std::string locale = value;
    std::string language = locale.substr(0, locale.find_first_of("_.@"));
    return language == "C" || language == "POSIX" ? kFallbackLanguage : language;
  }
  return kFallbackLanguage;
}

Localization::Localization(const std::string& folder, const std::string& language)
    : texts_(loadTexts(tablePath(folder, kFallbackLanguage))) {
  bool isName = !language.empty() && language.find('/') == std::string::npos;
  if (!isName || language == kFallbackLanguage) return;
  std::string path = tablePath(folder, language);
  if (fileExists(path)) texts_.merge(loadTexts(path));
}

std::string Localization::text(const std::string& key) const {
  return coerce::string(texts_.find(key)).value_or("");
}

std::string LocalizedString(const std::string& key) {
  return Localization::shared().text(key);
}

std::string MD5String(const std::string& text) {
  return md5Hex(text);
}

}  // namespace vornex
