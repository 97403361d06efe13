#include "import/ImportJournal.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vornex/Log.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <filesystem>

#include "core/Coercion.h"
#include "foundation/Files.h"
#include "foundation/Json.h"
#include "foundation/Text.h"
#include "platform/OpenFolders.h"

namespace vornex {

static constexpr const char* kExtension = "journal";
// Kept as they are in the percent-encoded target path, whose bytes need not be UTF-8.
static constexpr const char* kPathCharacters = "/-._~ ";

static Dictionary entryDictionary(const ImportJournalEntry& entry) {
  return {{"masterpath", entry.masterPath},
          {"thumbnailpath", entry.thumbnailPath},
          {"previewpath", entry.previewPath},
          {"targetpath", percentEncoded(entry.targetPath, kPathCharacters)}};
}

/// Whether a path read from a journal names something in a media folder: files are removed by what it says.
static bool isMediaPath(const std::string& path) {
  std::vector<std::string> components = pathComponents(path);
  return components.size() > 2 && components.front() == "Media" &&
         std::all_of(components.begin(), components.end(), isPlainName);
}

static std::optional<ImportJournalEntry> entryFrom(const Value& value) {
  auto text = [&](const char* key) { return coerce::string(value.find(key)).value_or(""); };
  ImportJournalEntry entry{text("masterpath"), text("thumbnailpath"), text("previewpath"),
                           percentDecoded(text("targetpath"))};
  bool hasPreview = !entry.previewPath.empty();
  bool isSafe = isMediaPath(entry.masterPath) && isMediaPath(entry.thumbnailPath) &&
                (!hasPreview || isMediaPath(entry.previewPath));
  return isSafe ? std::make_optional(entry) : std::nullopt;
}

ImportJournal::ImportJournal(std::string folder) : folder_(std::move(folder)) {}

ImportJournal::~ImportJournal() {
  close();
}

void ImportJournal::close() {
  std::lock_guard lock(mutex_);
  if (file_ && pending_.empty()) ::unlink(path_.c_str());
  file_.close();
}

Result<void> ImportJournal::open() {
  if (file_) return {};
  Result<void> made = createDirectories(folder_);
  if (!made) return made;
  // A recovery may take a new file for one left behind and delete it before it is held: then make another.
  for (;;) {
    path_ = appendPathComponent(folder_, makeUUID() + "." + kExtension);
    FileDescriptor file(::open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_APPEND | O_CLOEXEC, 0644));
    if (!file) return posixFailure(errno, "create " + path_);
    struct stat info;
    bool held = ::flock(file.get(), LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK;
    if (::fstat(file.get(), &info) != 0) return posixFailure(errno, "stat " + path_);
    if (!held || info.st_nlink == 0) continue;
    Result<void> synced = syncDirectory(folder_);
    if (!synced) {
      ::unlink(path_.c_str());
      return synced;
    }
    file_ = std::move(file);
    return {};
  }
}

Result<void> ImportJournal::append(const Dictionary& line) {
  // The line break before it ends a line that an earlier full disk broke off.
  std::string bytes = "\n" + writeJson(line) + "\n";
  std::string_view rest = bytes;
  while (!rest.empty()) {
    ssize_t count = ::write(file_.get(), rest.data(), rest.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return posixFailure(errno, "write " + path_);
    rest.remove_prefix(static_cast<std::size_t>(count));
  }
  return {};
}

Result<void> ImportJournal::begin(const ImportJournalEntry& entry) {
  std::lock_guard lock(mutex_);
  Result<void> done = open();
  if (done) done = append({{"begin", entryDictionary(entry)}});
  if (done && ::fdatasync(file_.get()) != 0) done = posixFailure(errno, "sync " + path_);
  if (done) pending_[entry.masterPath] = entry;
  return done;
}

void ImportJournal::end(const std::string& masterPath) {
  std::lock_guard lock(mutex_);
  if (pending_.erase(masterPath) == 0) return;
  Result<void> written = append({{"end", masterPath}});
  if (!written) logLine(LogLevel::warning, "import journal: " + written.error().message);
}

void ImportJournal::note(const std::string& masterPath, const Dictionary& line) {
  std::lock_guard lock(mutex_);
  if (!pending_.contains(masterPath)) return;
  Result<void> written = append(line);
  if (!written) logLine(LogLevel::warning, "import journal: " + written.error().message);
}

void ImportJournal::markPlaced(const std::string& masterPath, const std::string& targetIdentity) {
  note(masterPath, {{"placed", masterPath}, {"identity", targetIdentity}});
}

void ImportJournal::markLost(const std::string& masterPath) {
  note(masterPath, {{"lost", masterPath}, {"time", static_cast<std::int64_t>(::time(nullptr))}});
}

bool ImportJournal::isPending(const std::string& masterPath) const {
  std::lock_guard lock(mutex_);
  return pending_.contains(masterPath);
}

bool ImportJournal::hasPending() const {
  std::lock_guard lock(mutex_);
  return !pending_.empty();
}

std::vector<ImportJournalEntry> pendingEntries(std::string_view journal) {
  std::map<std::string, ImportJournalEntry> pending;
  while (!journal.empty()) {
    std::size_t end = std::min(journal.find('\n'), journal.size());
    Result<Value> line = parseJson(journal.substr(0, end));
    journal.remove_prefix(std::min(end + 1, journal.size()));
    if (!line) continue;
    if (const Value* begun = line->find("begin")) {
      if (std::optional<ImportJournalEntry> entry = entryFrom(*begun)) pending[entry->masterPath] = *entry;
    } else if (auto placed = pending.find(coerce::string(line->find("placed")).value_or(""));
               placed != pending.end()) {
      placed->second.targetIdentity = coerce::string(line->find("identity")).value_or("");
    } else if (OptionalString ended = coerce::string(line->find("end"))) {
      pending.erase(*ended);
    }
  }
  std::vector<ImportJournalEntry> entries;
  for (auto& [path, entry] : pending) entries.push_back(std::move(entry));
  return entries;
}

/// When the last answer was lost, as the journal tells it.
static std::int64_t lastLoss(std::string_view journal) {
  std::int64_t last = 0;
  while (!journal.empty()) {
    std::size_t end = std::min(journal.find('\n'), journal.size());
    Result<Value> line = parseJson(journal.substr(0, end));
    journal.remove_prefix(std::min(end + 1, journal.size()));
    if (line && line->find("lost")) last = std::max(last, coerce::integer(line->find("time")));
  }
  return last;
}

/// For writing where that is possible: network file systems lock for writers only.
static FileDescriptor openJournal(const std::string& path) {
  constexpr int kPlainFile = O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
  FileDescriptor file(::open(path.c_str(), O_RDWR | kPlainFile));
  if (!file) file = FileDescriptor(::open(path.c_str(), O_RDONLY | kPlainFile));
  return file;
}

std::vector<FoundJournal> FoundJournal::inFolder(const std::string& folder) {
  std::vector<FoundJournal> journals;
  std::error_code error;
  for (std::filesystem::directory_iterator item(folder, error), end; !error && item != end;
       item.increment(error)) {
    FoundJournal journal;
    journal.path_ = item->path().string();
    if (pathExtension(journal.path_) != kExtension) continue;
    journal.file_ = openJournal(journal.path_);
    if (!journal.file_) continue;
    // Where locks are not supported nobody can tell: such a journal is left alone.
    journal.running_ = ::flock(journal.file_.get(), LOCK_EX | LOCK_NB) != 0;
    Result<std::string> text = readFile(journal.file_.get(), journal.path_);
    if (!text) {
      logLine(LogLevel::warning, "import journal: " + text.error().message);
      continue;
    }
    journal.pending_ = pendingEntries(*text);
    journal.lostAt_ = lastLoss(*text);
    journals.push_back(std::move(journal));
  }
  return journals;
}

bool FoundJournal::mayGetRecords() const {
  // Twice as long as a server works on a request, and then some.
  constexpr std::int64_t kSecondsUnderWay = 120;
  std::int64_t age = static_cast<std::int64_t>(::time(nullptr)) - lostAt_;
  return lostAt_ != 0 && age >= 0 && age < kSecondsUnderWay;
}

void FoundJournal::remove() {
  ::unlink(path_.c_str());
}

}  // namespace vornex
