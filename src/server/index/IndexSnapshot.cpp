#include "server/index/IndexSnapshot.h"

#include <fmt/format.h>

#include <filesystem>
#include <set>

#include "foundation/Files.h"
#include "foundation/Text.h"
#include "server/ServerError.h"

namespace vornex::server {

std::vector<std::int64_t> rowsWithNumber(const IndexSnapshot& snapshot, std::size_t field, NumberKey number) {
  std::vector<std::int64_t> rows;
  for (const LiveSegment& part : snapshot.segments) {
    const ExactField& values = part.segment->exact(field);
    std::uint32_t code = values.lowerBound(number);
    if (code == values.numbers() || values.number(code) != number) continue;
    values.documents.forEach(code, [&](std::uint32_t document) {
      if (part.live->contains(document)) rows.push_back(part.segment->row(document));
    });
  }
  return rows;
}

static std::string checkpointName(std::int64_t stamp) {
  return fmt::format("checkpoint-{:016x}", static_cast<std::uint64_t>(stamp));
}

static std::int64_t newStamp() {
  return static_cast<std::int64_t>(std::stoull(randomHex(8), nullptr, 16) >> 1) | 1;
}

std::string newSegmentPath(const std::string& folder) {
  return appendPathComponent(folder, "segment-" + randomHex(8));
}

Result<SegmentPtr> openSegment(const std::string& path) {
  Result<SectionBytes> bytes = SectionBytes::map(path, kIndexVersion);
  if (!bytes) return tl::unexpected(bytes.error());
  return std::make_shared<const Segment>(std::move(*bytes), lastPathComponent(path));
}

Result<CheckpointRecord> writeCheckpoint(const std::string& folder, const IndexSnapshot& snapshot) {
  CheckpointRecord record{newStamp(), snapshot.version};
  Result<SectionWriter> sections =
      SectionWriter::toFile(appendPathComponent(folder, checkpointName(record.stamp)));
  if (!sections) return tl::unexpected(sections.error());
  sections->add(std::vector{snapshot.version, snapshot.lastRow});
  std::string names;
  for (const LiveSegment& part : snapshot.segments) names += part.segment->fileName() + "\n";
  sections->add(names);
  for (const LiveSegment& part : snapshot.segments)
    sections->addBytes(part.live->words().data(), part.live->words().size_bytes());
  Result<void> written = sections->finish(kIndexVersion);
  if (written) written = syncDirectory(folder);
  if (!written) return tl::unexpected(written.error());
  return record;
}

Result<IndexSnapshot> readCheckpoint(const std::string& folder, std::int64_t stamp) {
  Result<SectionBytes> bytes =
      SectionBytes::map(appendPathComponent(folder, checkpointName(stamp)), kIndexVersion);
  if (!bytes) return tl::unexpected(bytes.error());
  SectionReader sections(bytes->bytes());
  std::span<const std::int64_t> numbers = sections.next<std::int64_t>();
  if (numbers.size() != 2)
    return serverFailure(StatusCode::databaseFailed, "the index checkpoint is damaged");
  IndexSnapshot snapshot{{}, numbers[0], numbers[1]};
  std::span<const char> names = sections.nextBytes();
  for (std::string_view rest(names.data(), names.size()); !rest.empty();) {
    std::size_t end = std::min(rest.find('\n'), rest.size() - 1);
    Result<SegmentPtr> segment = openSegment(appendPathComponent(folder, rest.substr(0, end)));
    if (!segment) return tl::unexpected(segment.error());
    rest.remove_prefix(end + 1);
    auto live = std::make_shared<DocumentSet>((*segment)->size());
    std::span<const std::uint64_t> words = sections.next<std::uint64_t>();
    if (words.size() != live->words().size())
      return serverFailure(StatusCode::databaseFailed, "the index checkpoint does not fit its segments");
    std::copy(words.begin(), words.end(), live->words().begin());
    snapshot.segments.push_back({std::move(*segment), std::move(live)});
  }
  return snapshot;
}

void removeOtherFiles(const std::string& folder, std::int64_t stamp, const IndexSnapshot& snapshot) {
  std::set<std::string> kept{checkpointName(stamp)};
  for (const LiveSegment& part : snapshot.segments) kept.insert(part.segment->fileName());
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator(folder, ignored))
    if (!kept.contains(entry.path().filename().string())) std::filesystem::remove(entry.path(), ignored);
}

}  // namespace vornex::server
