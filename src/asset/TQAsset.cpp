#include <vornex/Log.h>
#include <vornex/TQAsset.h>
#include <vornex/TQFCPXEvent.h>
#include <vornex/TQFCPXLibrary.h>
#include <vornex/TQFCPXMulticam.h>
#include <vornex/TQLibrary.h>
#include <vornex/TQLibraryManager.h>
#include <vornex/TQLiveFolder.h>
#include <vornex/TQProject.h>
#include <vornex/XMPKit.h>

#include "core/Coercion.h"
#include "core/DateNumber.h"
#include "platform/ContainedMedia.h"

namespace vornex {

namespace {

std::optional<Date> readDate(const Value* number) {
  if (!number || !(number->isNumber() || number->ifString())) return std::nullopt;
  return dateFromDateNumber(coerce::integer(number));
}

/// A size that is missing or negative is 0.
std::uint64_t readSize(const Value* number) {
  if (number && number->ifUnsigned()) return *number->ifUnsigned();
  return static_cast<std::uint64_t>(std::max<std::int64_t>(coerce::integer(number), 0));
}

std::vector<std::string> readStrings(const Value* array) {
  std::vector<std::string> strings;
  for (const Value& element : coerce::array(array))
    if (const std::string* string = element.ifString()) strings.push_back(*string);
  return strings;
}

Array writeStrings(const std::vector<std::string>& strings) {
  return Array(strings.begin(), strings.end());
}

/// A missing date is written as now; absent when the date is beyond what date numbers can say.
std::optional<std::int64_t> writeDate(const std::optional<Date>& date) {
  Date now = std::chrono::time_point_cast<Date::duration>(std::chrono::system_clock::now());
  std::int64_t number = dateNumber(date.value_or(now));
  return number == 0 ? std::nullopt : std::optional(number);
}

std::string identifier(const ProjectPtr& node) {
  return node ? node->id.value_or("") : "";
}

template <typename NodePtr>
std::string identifier(const NodePtr& node) {
  return node ? node->ID.value_or("") : "";
}

}  // namespace

AssetPtr TQAsset::assetWithName(OptionalString name) {
  if (!name) return nullptr;
  Ptr asset(new TQAsset);
  asset->name_ = std::move(name);
  return asset;
}

AssetPtr TQAsset::assetWithDictionary(const Dictionary& dictionary) {
  if (!coerce::string(dictionary.find("_id"))) return nullptr;
  Ptr asset = assetWithName(coerce::string(dictionary.find("name")));
  if (asset) asset->setAssetDictionary(dictionary);
  return asset;
}

bool TQAsset::setAssetDictionary(const Dictionary& dictionary) {
  OptionalString newID = coerce::string(dictionary.find("_id"));
  if (!newID || !coerce::string(dictionary.find("name"))) return false;
  id = std::move(newID);
  try {
    readRecord(dictionary);
  } catch (const std::exception& mistake) {
    logLine(LogLevel::error, std::string("setAssetDictionary : ") + mistake.what());
  }
  return true;
}

void TQAsset::readRecord(const Dictionary& dictionary) {
  auto value = [&](const char* key) { return dictionary.find(key); };
  originID = coerce::string(value("originid"));
  frameioID = coerce::string(value("frameio_id"));
  masterPath = coerce::string(value("masterpath"));
  thumbnailPath = coerce::string(value("thumbnailpath"));
  previewPath = coerce::string(value("previewpath"));
  catalogPath = coerce::string(value("catalogpath"));
  setIsDeleted(coerce::boolean(value("trash")));
  type = coerce::integer(value("type"));
  fileSize = readSize(value("filesize"));
  fileExtension = coerce::string(value("fileext"));
  setTags(readStrings(value("tags")));
  createDate = readDate(value("createdate"));
  modifyDate = readDate(value("modifydate"));
  importDate = readDate(value("importdate"));
  updateDate = readDate(value("updatedate"));
  setColorType(coerce::integer(value("colorlabel")));
  wantReview = coerce::boolean(value("wantreview"));
  setFlagged(coerce::boolean(value("flagged")));
  setRating(coerce::integer(value("rating")));
  calendarEventID = coerce::string(value("calendar"));
  hasPreview = coerce::boolean(value("haspreview"));
  hasCatalog = coerce::boolean(value("hascatalog"));
  hasLocation = coerce::boolean(value("haslocation"));
  latitude = coerce::real(value("latitude"));
  longitude = coerce::real(value("longitude"));
  if (const Value* status = value("importstatus")) setImportStatus(coerce::integer(status));
  importer = coerce::string(value("importer"));
  importerDesc = coerce::string(value("importerdesc"));
  importType = coerce::integer(value("importtype"));
  importDiskLabel = coerce::string(value("importdisklabel"));
  importVolume = coerce::string(value("importvolume"));
  importFromPath = coerce::string(value("importfrompath"));
  isDuplicated = coerce::boolean(value("duplicated"));
  std::int64_t thumbnailVersion = coerce::integer(value("versionthumbnail"));
  versionThumbnail = thumbnailVersion == -1 ? 0 : thumbnailVersion;
  // Whoever owns the asset sets these after reading it.
  isLiveFolder = false;
  isFCPXLibrary = false;
  metaDataDictionary = dictionary;
  if (!(latitude >= -90 && latitude <= 90 && longitude >= -180 && longitude <= 180)) hasLocation = false;
}

std::optional<Dictionary> TQAsset::assetDictionary() const {
  auto created = writeDate(createDate), modified = writeDate(modifyDate);
  auto imported = writeDate(importDate), updated = writeDate(updateDate);
  const char* mistake = !mediaInfo                                       ? "there is no media information"
                        : !tags_                                         ? "there are no tags"
                        : !created || !modified || !imported || !updated ? "a date has no date number"
                                                                         : nullptr;
  if (mistake) {
    logLine(LogLevel::error, std::string("assetDict exception: ") + mistake);
    return std::nullopt;
  }
  Dictionary result;
  result.reserve(48);
  auto setText = [&](const char* key, const OptionalString& text) { result.set(key, text.value_or("")); };
  setText("originid", originID);
  setText("frameio_id", frameioID);
  setText("name", name_);
  result.set("type", type);
  for (const char* key : {"project", "group"}) result.set(key, "");
  setText("masterpath", masterPath);
  setText("thumbnailpath", thumbnailPath);
  setText("previewpath", previewPath);
  setText("catalogpath", catalogPath);
  result.set("trash", isDeleted_);
  result.set("wantreview", wantReview);
  setText("fileext", fileExtension);
  result.set("filesize", fileSize);
  result.set("tags", writeStrings(*tags_));
  result.set("createdate", *created);
  result.set("modifydate", *modified);
  result.set("importdate", *imported);
  result.set("updatedate", *updated);
  result.set("colorlabel", colorType_);
  result.set("mediainfo", *mediaInfo);
  result.set("flagged", flagged_);
  result.set("rating", rating_);
  setText("calendar", calendarEventID);
  result.set("hascatalog", hasCatalog);
  result.set("haslocation", hasLocation);
  result.set("importstatus", importStatus_);
  setText("importer", importer);
  setText("importerdesc", importerDesc);
  result.set("importtype", importType);
  result.set("duplicated", static_cast<std::int64_t>(isDuplicated));
  result.set("islivefolder", isLiveFolder);
  for (const char* key : {"livefolder", "livesubfolder"}) result.set(key, "");
  result.set("isfcpxlibrary", isFCPXLibrary);
  for (const char* key : {"fcpx_library", "fcpx_event", "fcpx_multicam_uid"}) result.set(key, "");
  setOwnerKeys(result);
  if (id) result.set("_id", *id);
  result.merge(xmpMeta);
  result.merge(redInfo);
  if (hasLocation) {
    result.set("latitude", latitude);
    result.set("longitude", longitude);
  }
  return result;
}

// Assets of live folders and Final Cut Pro X name their owner instead of a project. For an owner that the
// library does not know stands the identifier that was read.
void TQAsset::setOwnerKeys(Dictionary& form) const {
  auto set = [&](const char* key, const auto& owner, bool isKnown) {
    form.set(key, isKnown ? identifier(owner) : notedText(key));
  };
  // The owner may be known, and what is below it not.
  auto setBelow = [&](const char* key, const auto& owner, const char* above) {
    const bool isSameAbove = *form.find(above) == Value(notedText(above));
    set(key, owner, owner || !isSameAbove);
  };
  auto isKnown = [&](const auto& owner) { return !standIn_ || owner != standIn_; };
  if (belongsToFCPXLibrary()) {
    set("fcpx_library", fcpxLibrary, isKnown(fcpxLibrary));
    setBelow("fcpx_event", fcpxEvent, "fcpx_library");
    setBelow("fcpx_multicam_uid", fcpxMulticam, "fcpx_event");
  } else if (belongsToLiveFolder()) {
    set("livefolder", liveFolder, isKnown(liveFolder));
    setBelow("livesubfolder", liveSubFolder, "livefolder");
  } else {
    set("project", project, isKnown(project));
    const bool leftItsGroup = !group && project && project->groupWithID(notedText("group"));
    if (!leftItsGroup) setBelow("group", group, "project");
  }
}

LibraryPtr TQAsset::library() const {
  auto libraryOf = [&](const auto& owner) -> LibraryPtr {
    if (!owner) return nullptr;
    return owner == standIn_ ? standInLibrary_.lock() : owner->library.lock();
  };
  if (belongsToFCPXLibrary()) return libraryOf(fcpxLibrary);
  return belongsToLiveFolder() ? libraryOf(liveFolder) : libraryOf(project);
}

void TQAsset::linkToUndefinedOwner(const LibraryPtr& library) {
  standInLibrary_ = library;
  if (belongsToFCPXLibrary())
    standIn_ = fcpxLibrary = TQFCPXLibrary::undefinedFCPXLibraryWithLibrary(library);
  else if (belongsToLiveFolder())
    standIn_ = liveFolder = TQLiveFolder::undefinedLiveFolderWithLibrary(library);
  else
    standIn_ = project = TQProject::undefinedProjectWithLibrary(library);
}

std::string TQAsset::nameWithID() const {
  return name_.value_or("(null)") + "_" + id.value_or("(null)");
}

void TQAsset::noteMetaData(const char* key, Value value) {
  if (metaDataDictionary) metaDataDictionary->set(key, std::move(value));
}

std::string TQAsset::notedText(const char* key) const {
  const Value* value = metaDataDictionary ? metaDataDictionary->find(key) : nullptr;
  return coerce::string(value).value_or("");
}

void TQAsset::setName(OptionalString newName) {
  name_ = std::move(newName);
  if (name_) noteMetaData("name", *name_);
}

void TQAsset::setImportStatus(std::int64_t status) {
  importStatus_ = status;
  noteMetaData("importstatus", status);
}

void TQAsset::setIsDeleted(bool deleted) {
  isDeleted_ = deleted;
  noteMetaData("trash", deleted);
}

void TQAsset::setRating(std::int64_t newRating) {
  rating_ = newRating;
  noteMetaData("rating", newRating);
}

void TQAsset::setFlagged(bool isFlagged) {
  flagged_ = isFlagged;
  noteMetaData("flagged", static_cast<std::int64_t>(isFlagged));
}

void TQAsset::setColorType(std::int64_t newColorType) {
  updateColorLabel(newColorType);
  colorType_ = newColorType;
  noteMetaData("colorlabel", newColorType);
}

void TQAsset::setTags(std::vector<std::string> newTags) {
  updateTags(newTags);
  tags_ = std::move(newTags);
  if (!tags_->empty()) noteMetaData("tags", writeStrings(*tags_));
}

void TQAsset::setTags(std::nullopt_t /*absent*/) {
  tags_ = std::nullopt;
}

const std::vector<std::string>& TQAsset::tags() const {
  static const std::vector<std::string> kNone;
  return tags_ ? *tags_ : kNone;
}

std::optional<Dictionary> TQAsset::xmpMetaWithPath(const std::string& path) const {
  return TQLibraryManager::sharedManager().xmpKit().metadataWithPath(path);
}

std::optional<Dictionary> TQAsset::mediaInfoWithPath(const std::string& path) const {
  switch (type) {
    case kAssetTypeVideo:
      return contained::videoInformation(path);
    case kAssetTypeAudio:
      return contained::audioInformation(path);
    case kAssetTypeImage:
      return contained::imageInformation(path);
    default:
      return std::nullopt;
  }
}

}  // namespace vornex
