#include <vornex/Log.h>
#include <vornex/TQBookmarkUtil.h>
#include <vornex/TQVornexUtil.h>

#include <chrono>

#include "core/Coercion.h"
#include "core/DateNumber.h"
#include "core/GpsCoordinate.h"
#include "core/TypeTables.h"
#include "foundation/Text.h"
#include "platform/Volumes.h"

namespace vornex {
namespace {

std::int64_t integerFromText(std::string text) {
  Value value(std::move(text));
  return coerce::integer(&value);
}

Date now() {
  return std::chrono::floor<std::chrono::microseconds>(std::chrono::system_clock::now());
}

std::int64_t dateNumberOrNow(const std::optional<Date>& date) {
  std::int64_t number = dateNumber(date.value_or(now()));
  if (number == 0) logLine(LogLevel::error, "dateNumberFromDate exception: the date lies before the year 1");
  return number;
}

std::string textOf(const Dictionary& dictionary, std::string_view key) {
  return coerce::string(dictionary.find(key)).value_or("");
}

}  // namespace

TQVornexUtil& TQVornexUtil::sharedInstance() {
  static TQVornexUtil instance;
  return instance;
}

const std::optional<Dictionary>& TQVornexUtil::assetExtensionDictory() const {
  return TypeTables::shared().extensions();
}
const std::optional<Dictionary>& TQVornexUtil::assetMetaDictory() const {
  return TypeTables::shared().metadata();
}

OptionalString TQVornexUtil::stringValueFromObject(const Value* object) {
  return coerce::string(object);
}
Array TQVornexUtil::arrayValueFromObject(const Value* object) {
  return coerce::array(object);
}
std::int64_t TQVornexUtil::integerValueFromObject(const Value* object) {
  return coerce::integer(object);
}
std::int64_t TQVornexUtil::longlongValueFromObject(const Value* object) {
  return coerce::integer(object);
}
double TQVornexUtil::doubleValueFromObject(const Value* object) {
  return coerce::real(object);
}
bool TQVornexUtil::boolValueFromObject(const Value* object) {
  return coerce::boolean(object);
}

std::int64_t TQVornexUtil::dateNumberFromDate(std::optional<Date> date) {
  return dateNumberOrNow(date);
}

std::int64_t TQVornexUtil::dateNumberFromDate(std::optional<Date> date, const std::string& ms) {
  std::int64_t number = dateNumberOrNow(date);
  return number == 0 ? 0 : integerFromText(std::to_string(number / 1000) + ms);
}

std::optional<Date> TQVornexUtil::dateFromNumber(std::optional<std::int64_t> number) {
  return number ? dateFromDateNumber(*number) : std::nullopt;
}

std::int64_t TQVornexUtil::assetTypeFromExtension(const std::string& extension) {
  return TypeTables::shared().assetType(extension);
}
std::string TQVornexUtil::descriptionFromExtension(const OptionalString& extension) {
  return TypeTables::shared().description(extension);
}
std::int64_t TQVornexUtil::metaTypeFromString(const std::string& key) {
  return TypeTables::shared().metadataType(key);
}

double TQVornexUtil::convertFromGPSString(const std::string& text) {
  std::optional<double> degrees = decimalDegrees(text);
  if (!degrees)
    logLine(LogLevel::error, "convertFromGPSString exception:fewer than three numbers in \"" + text + "\"");
  return degrees.value_or(0);
}

std::optional<Dictionary> TQVornexUtil::assetVolumeInfoFromVolumePath(const OptionalString& path) {
  if (!path) return std::nullopt;
  std::optional<Dictionary> volume = TQBookmarkUtil::sharedInstance().volumeInfoWithPath(path);
  if (!volume) return std::nullopt;
  return Dictionary{{"volumemodel", trimmedWhitespace(textOf(*volume, volumeKey::model))},
                    {"volumevendor", textOf(*volume, volumeKey::vendor)},
                    {"volumeprotocol", textOf(*volume, volumeKey::protocol)},
                    {"volumekind", textOf(*volume, volumeKey::kind)},
                    {"volumename", textOf(*volume, volumeKey::name)},
                    {"volumenetwork", coerce::boolean(volume->find(volumeKey::network))}};
}

OptionalString TQVornexUtil::assetVolumeDescFromVolumeInfo(const std::optional<Dictionary>& info) {
  if (!info) return std::nullopt;
  std::string name = textOf(*info, "volumename");
  if (coerce::boolean(info->find("volumenetwork"))) {
    OptionalString kind = coerce::string(info->find("volumekind"));
    return name + " (Network Volume)" + (kind ? " " + *kind : "");
  }
  std::string device;
  for (const char* key : {"volumeprotocol", "volumevendor", "volumemodel"}) {
    std::string part = textOf(*info, key);
    if (part.empty()) continue;
    if (!device.empty()) device += ' ';
    device += part;
  }
  return device.empty() ? name : name + " (" + device + ")";
}

}  // namespace vornex
