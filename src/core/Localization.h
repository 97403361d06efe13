#pragma once

#include <vornex/Value.h>

#include <string>

namespace vornex {

/// The texts that people read, by key: the string table of one language over the English one
/// ("<language>.strings.plist" in the resource folder).
///
/// Thread-safety: immutable after loading.
class Localization {
 public:
  /// The table of the user's language, loaded on first use.
  static const Localization& shared();

  /// The language code of the locale that LC_ALL, LC_MESSAGES or LANG names, the first one that is set: "ko"
  /// for "ko_KR.UTF-8". "en" for the C locale and when none is set.
  static std::string userLanguage();

  /// A language without a table has the English texts.
  Localization(const std::string& folder, const std::string& language);

  /// Empty for an unknown key.
  std::string text(const std::string& key) const;

 private:
  Dictionary texts_;
};

}  // namespace vornex
