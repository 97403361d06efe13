#include "server/index/AssetIndex.h"

#include <fmt/format.h>
#include <malloc.h>
#include <sys/resource.h>
#include <unistd.h>
#include <vornex/Log.h>

#include <algorithm>
#include <bit>

#include "foundation/Files.h"

namespace vornex::server {

namespace {

// So many segments of about the same size make one of the next size, which is as many times as large.
constexpr std::size_t kSegmentsOfALevel = 8;
constexpr int kBitsOfALevel = 3;
// Up to how many documents a writer merges itself, and how many when merging does not keep up.
constexpr std::size_t kSmallMerge = 2'048;
constexpr std::size_t kUrgentMerge = 65'536;
constexpr std::size_t kUrgentSegments = 64;
constexpr std::size_t kSmallMergeBytes = std::size_t{64} << 20;
constexpr std::size_t kUrgentMergeBytes = std::size_t{256} << 20;
// Offsets in a segment have 32 bits, and folded texts take up to three times their bytes.
constexpr std::size_t kMaximumMergeBytes = std::size_t{1280} << 20;
constexpr std::size_t kFileBytes = std::size_t{4} << 20;
constexpr std::int64_t kChangesBetweenCheckpoints = 50'000;
constexpr std::chrono::milliseconds kQuietTime{1'000};

std::size_t documentsIn(const std::vector<LiveSegment>& parts) {
  std::size_t sum = 0;
  for (const LiveSegment& part : parts) sum += part.segment->size();
  return sum;
}

std::size_t bytesIn(const std::vector<LiveSegment>& parts) {
  std::size_t sum = 0;
  for (const LiveSegment& part : parts) sum += part.segment->bytes();
  return sum;
}

int levelOf(const LiveSegment& part) {
  return (std::bit_width(part.segment->size()) - 1) / kBitsOfALevel;
}

// The segments of the lowest level that is full and of all levels below; none when no level is.
std::vector<LiveSegment> fullLevel(const std::vector<LiveSegment>& parts) {
  std::map<int, std::size_t> counts;
  for (const LiveSegment& part : parts) ++counts[levelOf(part)];
  auto full = std::find_if(counts.begin(), counts.end(),
                           [](const auto& level) { return level.second >= kSegmentsOfALevel; });
  std::vector<LiveSegment> found;
  if (full == counts.end()) return found;
  for (const LiveSegment& part : parts)
    if (levelOf(part) <= full->first) found.push_back(part);
  return found;
}

// Leaves the largest out until the others are small enough together; none when it would be one alone.
std::vector<LiveSegment> within(std::size_t bytes, std::vector<LiveSegment> parts) {
  std::sort(parts.begin(), parts.end(),
            [](const auto& a, const auto& b) { return a.segment->bytes() < b.segment->bytes(); });
  while (!parts.empty() && bytesIn(parts) > bytes) parts.pop_back();
  return parts.size() < 2 ? std::vector<LiveSegment>() : parts;
}

// Once nobody writes, the small segments are worth merging, and all when they are a tenth of the largest.
std::vector<LiveSegment> tidied(std::vector<LiveSegment> parts) {
  if (parts.size() < 2) return {};
  std::sort(parts.begin(), parts.end(),
            [](const auto& a, const auto& b) { return a.segment->size() > b.segment->size(); });
  std::vector<LiveSegment> others(parts.begin() + 1, parts.end());
  bool manyDocuments = documentsIn(others) * 10 >= parts.front().segment->size();
  if (manyDocuments && bytesIn(parts) <= kMaximumMergeBytes) return parts;
  return others.size() >= 4 && bytesIn(others) <= kMaximumMergeBytes ? others : std::vector<LiveSegment>();
}

// Documents that were made one after the other stay so in the parts, which spares the merging a sort.
std::vector<LiveSegment> inOrder(std::vector<LiveSegment> parts) {
  std::sort(parts.begin(), parts.end(), [](const LiveSegment& a, const LiveSegment& b) {
    return a.segment->identifiers()[0] < b.segment->identifiers()[0];
  });
  return parts;
}

std::vector<SegmentPart> partsOf(const std::vector<LiveSegment>& all) {
  std::vector<SegmentPart> parts;
  for (const LiveSegment& part : all) parts.push_back({part.segment, part.live.get()});
  return parts;
}

bool anyLive(const std::vector<LiveSegment>& parts) {
  return std::any_of(parts.begin(), parts.end(), [](const LiveSegment& part) { return !part.live->empty(); });
}

LiveSegment allLive(SegmentPtr segment) {
  auto live = std::make_shared<const DocumentSet>(segment->size(), true);
  return {std::move(segment), std::move(live)};
}

bool contains(const std::vector<LiveSegment>& parts, const Segment* segment) {
  return std::any_of(parts.begin(), parts.end(),
                     [&](const LiveSegment& part) { return part.segment.get() == segment; });
}

void removeDocument(std::vector<LiveSegment>& parts,
                    std::map<std::size_t, std::shared_ptr<DocumentSet>>& copies, const std::string& id) {
  for (std::size_t i = 0; i < parts.size(); ++i) {
    std::uint32_t document = parts[i].segment->identifiers().find(id);
    if (document == parts[i].segment->size() || !parts[i].live->contains(document)) continue;
    auto& copy = copies[i];
    if (!copy) copy = std::make_shared<DocumentSet>(*parts[i].live);
    copy->remove(document);
    parts[i].live = copy;
    return;
  }
}

void eraseDead(std::vector<LiveSegment>& parts) {
  std::erase_if(parts, [](const LiveSegment& part) { return part.live->empty(); });
}

}  // namespace

AssetIndex::AssetIndex(std::string folder) : folder_(std::move(folder)) {}

AssetIndex::~AssetIndex() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  wake_.notify_all();
  if (thread_.joinable()) thread_.join();
}

std::shared_ptr<const IndexSnapshot> AssetIndex::snapshot() const {
  std::lock_guard lock(mutex_);
  return current_;
}

void AssetIndex::restore(IndexSnapshot snapshot) {
  std::lock_guard changing(changing_);
  recordedVersion_ = snapshot.version;
  swap(std::make_shared<const IndexSnapshot>(std::move(snapshot)));
}

void AssetIndex::removeRows(const std::set<std::int64_t>& rows) {
  std::lock_guard changing(changing_);
  auto next = std::make_shared<IndexSnapshot>(*snapshot());
  for (LiveSegment& part : next->segments) {
    auto live = std::make_shared<DocumentSet>(*part.live);
    for (std::uint32_t document = 0; document < part.segment->size(); ++document)
      if (rows.contains(part.segment->row(document))) live->remove(document);
    part.live = std::move(live);
  }
  eraseDead(next->segments);
  swap(std::move(next));
}

void AssetIndex::swap(std::shared_ptr<const IndexSnapshot> next) {
  std::lock_guard lock(mutex_);
  current_ = std::move(next);
}

AssetIndex::Change AssetIndex::prepare(const std::vector<std::string>& removed, SegmentPtr added,
                                       std::int64_t version) {
  std::unique_lock changing(changing_);
  auto next = std::make_shared<IndexSnapshot>(*snapshot());
  next->version = version;
  changesSinceCheckpoint_ += static_cast<std::int64_t>(removed.size() + (added ? added->size() : 0));
  std::map<std::size_t, std::shared_ptr<DocumentSet>> copies;
  for (const std::string& id : removed) removeDocument(next->segments, copies, id);
  eraseDead(next->segments);
  if (added) {
    for (std::uint32_t i = 0; i < added->size(); ++i) next->lastRow = std::max(next->lastRow, added->row(i));
    next->segments.push_back(allLive(std::move(added)));
    mergeSmall(*next);
  }
  return Change(*this, std::move(changing), std::move(next));
}

void AssetIndex::Change::publish() {
  {
    std::lock_guard lock(index_->mutex_);
    index_->current_ = std::move(next_);
    index_->changed_ = true;
  }
  index_->wake_.notify_all();
}

void AssetIndex::mergeSmall(IndexSnapshot& next) const {
  bool urgent = next.segments.size() > kUrgentSegments;
  std::size_t most = urgent ? kUrgentMerge : kSmallMerge;
  std::size_t mostBytes = urgent ? kUrgentMergeBytes : kSmallMergeBytes;
  for (;;) {
    std::vector<LiveSegment> candidates = next.segments;
    std::erase_if(candidates, [&](const LiveSegment& part) { return merging_.contains(part.segment.get()); });
    std::vector<LiveSegment> parts = inOrder(fullLevel(candidates));
    if (parts.empty() || documentsIn(parts) > most || bytesIn(parts) > mostBytes) return;
    SectionWriter sections;
    mergeSegments(partsOf(parts), sections);
    std::erase_if(next.segments,
                  [&](const LiveSegment& part) { return contains(parts, part.segment.get()); });
    next.segments.push_back(allLive(inMemory(sections)));
  }
}

std::optional<AssetIndex::Job> AssetIndex::nextJob(bool quiet) {
  std::lock_guard changing(changing_);
  std::vector<LiveSegment> all = snapshot()->segments;
  std::vector<LiveSegment> mergeable = all;
  std::erase_if(mergeable, [](const LiveSegment& part) {
    return part.segment->bytes() > kMaximumMergeBytes / kSegmentsOfALevel;
  });
  Job job{within(kMaximumMergeBytes, fullLevel(mergeable)), false};
  if (job.parts.empty() && quiet) job.parts = tidied(all);
  for (const LiveSegment& part : all)
    if (job.parts.empty() && part.live->count() < part.segment->size() / 2) job.parts = {part};
  if (job.parts.empty() || !anyLive(job.parts)) return std::nullopt;
  job.parts = inOrder(std::move(job.parts));
  job.toFile = bytesIn(job.parts) > kFileBytes;
  for (const LiveSegment& part : job.parts) merging_.insert(part.segment.get());
  return job;
}

Result<void> AssetIndex::run(const Job& job) {
  std::string path = newSegmentPath(folder_);
  Result<SectionWriter> sections = job.toFile ? SectionWriter::toFile(path) : SectionWriter();
  Result<SegmentPtr> merged;
  DocumentMaps maps;
  if (sections) {
    maps = mergeSegments(partsOf(job.parts), *sections);
    if (!job.toFile)
      merged = inMemory(*sections);
    else if (Result<void> written = sections->finish(kIndexVersion); written)
      merged = openSegment(path);
    else
      merged = tl::unexpected(written.error());
  } else {
    merged = tl::unexpected(sections.error());
  }
  std::lock_guard changing(changing_);
  for (const LiveSegment& part : job.parts) {
    merging_.erase(part.segment.get());
    part.segment->forgetPages();
  }
  if (!merged) return tl::unexpected(merged.error());
  finish(job, maps, std::move(*merged));
  return {};
}

// What was removed from the parts while they were merged is removed from the result.
void AssetIndex::finish(const Job& job, const DocumentMaps& maps, SegmentPtr merged) {
  auto next = std::make_shared<IndexSnapshot>(*snapshot());
  auto live = std::make_shared<DocumentSet>(merged->size(), true);
  for (std::size_t i = 0; i < job.parts.size(); ++i) {
    DocumentSet gone = *job.parts[i].live;
    for (const LiveSegment& now : next->segments)
      if (now.segment == job.parts[i].segment) gone -= *now.live;
    gone.forEach([&](std::uint32_t document) { live->remove(maps[i][document]); });
  }
  std::erase_if(next->segments,
                [&](const LiveSegment& part) { return contains(job.parts, part.segment.get()); });
  next->segments.push_back({std::move(merged), std::move(live)});
  eraseDead(next->segments);
  swap(std::move(next));
}

Result<void> AssetIndex::mergeAll() {
  while (std::optional<Job> job = nextJob(false))
    if (Result<void> done = run(*job); !done) return done;
  return {};
}

// Writes the segments that are in memory only, and puts the files in their place.
Result<void> AssetIndex::checkpoint() {
  Result<void> made = createDirectories(folder_);
  if (!made) return made;
  IndexSnapshot recorded = *snapshot();
  std::map<const Segment*, SegmentPtr> stored;
  for (LiveSegment& part : recorded.segments) {
    if (!part.segment->fileName().empty()) continue;
    std::string path = newSegmentPath(folder_);
    std::span<const char> bytes = part.segment->raw();
    Result<void> written = writeFileAtomically(path, {bytes.data(), bytes.size()});
    if (!written) return written;
    Result<SegmentPtr> file = openSegment(path);
    if (!file) return tl::unexpected(file.error());
    stored[part.segment.get()] = *file;
    part.segment = *file;
  }
  Result<CheckpointRecord> record = writeCheckpoint(folder_, recorded);
  if (!record) return tl::unexpected(record.error());
  Result<void> noted = record_(*record);
  if (!noted) return noted;
  removeOtherFiles(folder_, record->stamp, recorded);
  std::lock_guard changing(changing_);
  recordedVersion_ = recorded.version;
  auto next = std::make_shared<IndexSnapshot>(*snapshot());
  for (LiveSegment& part : next->segments)
    if (auto file = stored.find(part.segment.get()); file != stored.end()) part.segment = file->second;
  swap(std::move(next));
  return {};
}

void AssetIndex::start(Record record) {
  record_ = std::move(record);
  thread_ = std::thread([this] { work(); });
}

void AssetIndex::stop() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  wake_.notify_all();
  if (thread_.joinable()) thread_.join();
  if (!record_ || snapshot()->version == recordedVersion_) return;
  Result<void> done = checkpoint();
  if (!done) logLine(LogLevel::warning, "The search index is not stored: " + done.error().message);
}

void AssetIndex::work() {
  // Searches come first.
  ::setpriority(PRIO_PROCESS, static_cast<id_t>(::gettid()), 10);
  bool tidy = false;
  for (;;) {
    bool quiet = false;
    {
      std::unique_lock lock(mutex_);
      auto awake = [&] { return stopping_ || changed_; };
      if (tidy)
        wake_.wait(lock, awake);
      else
        quiet = !wake_.wait_for(lock, kQuietTime, awake);
      if (stopping_) return;
      changed_ = false;
    }
    tidy = quiet;
    Result<void> done;
    bool fileMade = false;
    while (std::optional<Job> job = nextJob(quiet)) {
      done = run(*job);
      fileMade = fileMade || job->toFile;
      if (!done) break;
      std::lock_guard lock(mutex_);
      if (stopping_) return;
      quiet = quiet && !changed_;
    }
    // What merging took for a while goes back to the system.
    if (fileMade || quiet) ::malloc_trim(0);
    bool due = false;
    {
      std::lock_guard changing(changing_);
      due = fileMade || changesSinceCheckpoint_ >= kChangesBetweenCheckpoints;
      if (due) changesSinceCheckpoint_ = 0;
    }
    if (done && due) done = checkpoint();
    if (!done) logLine(LogLevel::warning, "The search index cannot be stored: " + done.error().message);
  }
}

}  // namespace vornex::server
