#include "server/store/AssetSearch.h"

#include <fmt/format.h>

#include <limits>
#include <thread>

#include "foundation/Text.h"
#include "server/ServerError.h"
#include "server/index/HitOrder.h"
#include "server/index/SegmentSearch.h"
#include "server/query/OperandValue.h"
#include "server/query/PredicateEvaluator.h"
#include "server/query/PredicateParser.h"
#include "server/store/DocumentReader.h"

namespace vornex::server {

namespace {

using Deadline = TimeLimit::Clock::time_point;

// What a search may hold in memory of its documents' texts, one reading at a time.
class ByteBudget {
 public:
  [[nodiscard]] Result<void> take(std::size_t bytes) {
    taken_ += bytes;
    if (taken_ <= kMaximumPageBytes) return {};
    return serverFailure(
        StatusCode::limitExceeded,
        fmt::format("the page takes more than {} bytes; ask for fewer assets", kMaximumPageBytes));
  }

 private:
  std::size_t taken_ = 0;
};

std::vector<std::string> splitPath(std::string_view key) {
  std::vector<std::string> path;
  for (std::size_t begin = 0; begin <= key.size();) {
    std::size_t end = std::min(key.find('.', begin), key.size());
    path.emplace_back(key.substr(begin, end - begin));
    begin = end + 1;
  }
  return path;
}

// What a document's value under a key counts as in an order: nothing, a number, or a case-folded text.
struct SortValue {
  enum class Sort { none, number, text };
  Sort sort = Sort::none;
  NumberKey number;
  std::string text;

  explicit SortValue(const Value* value) {
    if (!value) return;
    if (const std::string* string = value->ifString()) {
      sort = Sort::text;
      text = foldedText(*string);
    } else if (std::optional<NumberKey> key = numberKey(*value)) {
      sort = Sort::number;
      number = *key;
    }
  }

  auto operator<=>(const SortValue&) const = default;
};

// A reading transaction and the state of the index that belongs to it.
struct Moment {
  Transaction transaction;
  std::shared_ptr<const IndexSnapshot> index;
};

// Between a write's commit and its appearance in the index lies a short while.
Result<Moment> currentMoment(Database& database, const AssetIndex& index, Deadline deadline) {
  for (;;) {
    Result<Transaction> transaction = Transaction::begin(database, Transaction::Kind::read);
    if (!transaction) return tl::unexpected(transaction.error());
    Result<std::int64_t> version = database.integer("SELECT version FROM state");
    if (!version) return tl::unexpected(version.error());
    std::shared_ptr<const IndexSnapshot> snapshot = index.snapshot();
    if (snapshot->version == *version) return Moment{std::move(*transaction), std::move(snapshot)};
    if (std::chrono::steady_clock::now() > deadline)
      return serverFailure(StatusCode::timedOut, "the search index is behind");
    if (snapshot->version < *version) std::this_thread::sleep_for(std::chrono::microseconds(50));
  }
}

// One search, from its request to its page.
class Search {
 public:
  Search(Database& database, const IndexSnapshot& index, const SearchRequest& request,
         const Predicate& predicate, Deadline deadline)
      : database_(database),
        index_(index),
        request_(request),
        predicate_(predicate),
        deadline_(deadline),
        limit_(deadline) {}

  Result<SearchPage> run() {
    Result<void> found = findHits();
    if (!found) return tl::unexpected(found.error());
    SearchPage page;
    for (const SegmentHits& segment : segments_) page.total += segment.hits.count();
    Result<std::vector<Hit>> hits = hitsOfPage(page.total);
    if (!hits) return tl::unexpected(hits.error());
    ByteBudget budget;
    for (const Hit& hit : *hits) {
      Result<std::string> document = read(hit);
      if (!document) return tl::unexpected(document.error());
      if (Result<void> fits = budget.take(document->size()); !fits) return tl::unexpected(fits.error());
      page.documents.push_back(withValidText(std::move(*document)));
    }
    return page;
  }

 private:
  Result<void> findHits() {
    keys_ = topLevelKeys(predicate_);
    for (const LiveSegment& part : index_.segments) {
      SegmentAnswer answer = searchSegment(*part.segment, *part.live, predicate_, limit_);
      segments_.push_back({part.segment, std::move(answer.yes)});
      Result<void> settled = settle(segments_.size() - 1, answer.open);
      if (!settled) return settled;
    }
    return {};
  }

  // Asks the documents themselves where the index does not know.
  Result<void> settle(std::size_t segment, const DocumentSet& open) {
    Result<void> outcome;
    DocumentReader reader(keys_);
    open.forEach([&](std::uint32_t document) {
      if (!outcome) return;
      Result<bool> fulfils = entries({segment, document}, reader).map([&](const Dictionary& all) {
        return holds(predicate_, all, limit_);
      });
      if (!fulfils)
        outcome = tl::unexpected(fulfils.error());
      else if (*fulfils)
        segments_[segment].hits.add(document);
    });
    return outcome;
  }

  Result<std::vector<Hit>> hitsOfPage(std::int64_t total) {
    constexpr std::int64_t kBeyond = std::numeric_limits<std::int64_t>::max();
    bool overflows = request_.limit > 0 && request_.page > kBeyond / request_.limit;
    HitRange range{overflows ? kBeyond : request_.page * request_.limit, request_.limit, request_.ascending};
    if (range.offset >= total) return std::vector<Hit>();
    range.count = std::min(range.count, total - range.offset);
    std::string key = request_.sortField.empty() ? "importdate" : request_.sortField;
    if (isIndexOrder(key, segments_)) return hitsInOrder(segments_, total, key, range);
    return hitsByDocuments(key, range);
  }

  // For keys the index has no order of.
  Result<std::vector<Hit>> hitsByDocuments(const std::string& key, HitRange range) {
    struct Item {
      SortValue value;
      std::string_view identifier;
      Hit hit;
    };
    std::vector<std::string> path = splitPath(key);
    std::vector<std::string> wanted{path.front()};
    DocumentReader reader(wanted);
    std::vector<Item> items;
    ByteBudget budget;
    Result<void> outcome;
    for (std::size_t i = 0; i < segments_.size(); ++i) {
      segments_[i].hits.forEach([&](std::uint32_t document) {
        if (!outcome) return;
        Result<Dictionary> all = entries({i, document}, reader);
        if (!all) {
          outcome = tl::unexpected(all.error());
          return;
        }
        SortValue value(valueAt(*all, path));
        outcome = budget.take(value.text.size());
        items.push_back({std::move(value), segments_[i].segment->identifiers()[document], {i, document}});
      });
    }
    if (!outcome) return tl::unexpected(outcome.error());
    std::sort(items.begin(), items.end(), [&](const Item& a, const Item& b) {
      auto order = a.value <=> b.value;
      if (order == 0) order = a.identifier <=> b.identifier;
      return range.ascending ? order < 0 : order > 0;
    });
    std::vector<Hit> hits;
    for (std::int64_t at = range.offset; at < range.offset + range.count; ++at)
      hits.push_back(items[static_cast<std::size_t>(at)].hit);
    return hits;
  }

  Result<Dictionary> entries(Hit hit, DocumentReader& reader) {
    Result<std::string> document = read(hit);
    if (!document) return tl::unexpected(document.error());
    return reader.entries(*document).map_error([](Error error) {
      return Error{kServerErrorDomain, static_cast<std::int64_t>(StatusCode::databaseFailed), error.message};
    });
  }

  Result<std::string> read(Hit hit) {
    if (TimeLimit::Clock::now() > deadline_) throw TimeIsOver();
    if (!reading_) {
      Result<Statement> prepared = database_.prepare("SELECT document FROM assets WHERE n = ?");
      if (!prepared) return tl::unexpected(prepared.error());
      reading_.emplace(std::move(*prepared));
    }
    std::int64_t row = segments_[hit.segment].segment->row(hit.document);
    reading_->reset();
    reading_->bind(row);
    Result<bool> found = reading_->step();
    if (!found) return tl::unexpected(found.error());
    if (*found) return reading_->text(0);
    return serverFailure(StatusCode::databaseFailed, fmt::format("the asset in row {} is missing", row));
  }

  Database& database_;
  const IndexSnapshot& index_;
  const SearchRequest& request_;
  const Predicate& predicate_;
  Deadline deadline_;
  TimeLimit limit_;
  std::vector<std::string> keys_;
  std::vector<SegmentHits> segments_;
  std::optional<Statement> reading_;
};

}  // namespace

Result<SearchPage> searchAssets(Database& database, const AssetIndex& index, const SearchRequest& request,
                                Deadline deadline) {
  if (request.page < 0 || request.limit < 0)
    return serverFailure(StatusCode::invalidRequest, "neither page nor limit may be negative");
  bool everything = trimmedWhitespace(request.query).empty();
  try {
    Result<Predicate> predicate =
        everything ? Predicate{true} : parsePredicate(request.query, TimeLimit(deadline));
    if (!predicate) return tl::unexpected(predicate.error());
    arrangeByCost(*predicate);
    Result<Moment> moment = currentMoment(database, index, deadline);
    if (!moment) return tl::unexpected(moment.error());
    return Search(database, *moment->index, request, *predicate, deadline).run();
  } catch (const TimeIsOver&) {
    return serverFailure(StatusCode::timedOut, "the search takes too long");
  }
}

}  // namespace vornex::server
