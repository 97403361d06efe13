// Measures asset search and ingestion end to end, through HTTP on the loopback; run.sh puts it beside
// PostgreSQL. Every search is for a page of 100, the newest first, with the exact total.
//
//   bench_search documents N                 the documents, one a line
//   bench_search postgres N FOLDER           pgbench scripts of the queries
//   bench_search service N DOCUMENTS VORNEXD FOLDER
//   bench_search again N VORNEXD FOLDER [CLASS [ROUNDS]]
//                                            the searches alone, on what a run of `service` has left
//   bench_search scan N DOCUMENTS
//   bench_search append DOCUMENTS FILE       the limit: batches of 1,000 appended to a file, each synced

#include <fcntl.h>
#include <unistd.h>
#include <vornex/Value.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <thread>

#include "Queries.h"
#include "Scan.h"
#include "Service.h"
#include "Timing.h"
#include "foundation/Json.h"

using namespace vornex;
using namespace vornex::bench;

namespace {

constexpr const char* kAssets = "/vornex/libraries/bench/assets/";
constexpr std::size_t kBatch = 1'000;
constexpr int kClients = 16;
constexpr int kWriters = 2;
constexpr std::chrono::seconds kClientsTime{10};

void forEachBatch(const std::string& documents,
                  const std::function<void(const std::string&, std::size_t)>& work) {
  std::ifstream file(documents);
  std::string batch;
  std::size_t count = 0;
  for (std::string line; std::getline(file, line);) {
    batch += (batch.empty() ? "" : ",") + line;
    if (++count < kBatch) continue;
    work(batch, count);
    batch.clear();
    count = 0;
  }
  if (count > 0) work(batch, count);
}

std::string requestBody(const Query& query) {
  return writeJson(Dictionary{{"page", query.page},
                              {"limit", 100},
                              {"query", query.predicate},
                              {"sort", Dictionary{{"sortfield", "importdate"}, {"ascending", false}}}});
}

std::int64_t total(std::string_view reply) {
  std::size_t at = reply.rfind("\"total\":");
  return std::atoll(reply.data() + at + 8);
}

void load(const Service& service, const std::string& documents) {
  Connection connection = service.connect();
  std::vector<double> seconds;
  std::size_t loaded = 0;
  double sum = 0, part = 0;
  forEachBatch(documents, [&](const std::string& batch, std::size_t count) {
    std::string body = "{\"items\":[" + batch + "]}";
    double time = milliseconds(
        [&] { (void)connection.post(std::string(kAssets) + "create", service.authorization(), body); });
    seconds.push_back(time);
    sum += time;
    part += time;
    loaded += count;
    if (loaded % 100'000 != 0) return;
    fmt::print(stderr, "{} documents, the last 100,000 at {:.0f} a second\n", loaded, 1e8 / part);
    part = 0;
  });
  printRow("vornexd", "create 1,000", seconds,
           fmt::format("{:.0f} documents/s", static_cast<double>(loaded) / sum * 1'000));
}

// Several clients at once, each with a connection of its own. The time is that of all together, what they
// need to read and write bodies included.
void loadTogether(const Service& service, const std::string& documents) {
  std::mutex mutex;
  std::condition_variable taken;
  std::deque<std::string> bodies;
  bool done = false;
  auto take = [&]() -> std::optional<std::string> {
    std::unique_lock lock(mutex);
    taken.wait(lock, [&] { return done || !bodies.empty(); });
    if (bodies.empty()) return std::nullopt;
    std::string body = std::move(bodies.front());
    bodies.pop_front();
    taken.notify_all();
    return body;
  };
  std::size_t loaded = 0;
  double time = milliseconds([&] {
    std::vector<std::thread> clients;
    for (int i = 0; i < kWriters; ++i)
      clients.emplace_back([&] {
        Connection connection = service.connect();
        while (std::optional<std::string> body = take())
          (void)connection.post(std::string(kAssets) + "create", service.authorization(), *body);
      });
    forEachBatch(documents, [&](const std::string& batch, std::size_t count) {
      std::unique_lock lock(mutex);
      taken.wait(lock, [&] { return bodies.size() < kWriters; });
      bodies.push_back("{\"items\":[" + batch + "]}");
      loaded += count;
      taken.notify_all();
    });
    {
      std::lock_guard lock(mutex);
      done = true;
      taken.notify_all();
    }
    for (std::thread& client : clients) client.join();
  });
  printRow("vornexd", "create 1,000, two clients", {time},
           fmt::format("{:.0f} documents/s", static_cast<double>(loaded) / time * 1'000));
}

void measureQueries(const Service& service, const std::vector<Query>& queries, int rounds = 50) {
  Connection connection = service.connect();
  std::map<std::string, std::vector<double>> times;
  std::map<std::string, std::string> totals;
  std::vector<std::string> order;
  for (const Query& query : queries) {
    std::string body = requestBody(query);
    std::string_view reply = connection.post(std::string(kAssets) + "search", service.authorization(), body);
    if (!times.contains(query.name)) order.push_back(query.name);
    totals[query.name] += fmt::format("{} ", total(reply));
    for (int i = 0; i < rounds; ++i)
      times[query.name].push_back(milliseconds(
          [&] { (void)connection.post(std::string(kAssets) + "search", service.authorization(), body); }));
  }
  for (const std::string& name : order) printRow("vornexd", name, times[name], totals[name]);
}

void measureClients(const Service& service, const std::vector<Query>& queries) {
  std::vector<std::string> bodies;
  for (const Query& query : queries)
    if (query.name == queries.front().name) bodies.push_back(requestBody(query));
  std::vector<std::vector<double>> times(kClients);
  std::vector<std::thread> clients;
  auto end = std::chrono::steady_clock::now() + kClientsTime;
  for (int i = 0; i < kClients; ++i)
    clients.emplace_back([&, i] {
      Connection connection = service.connect();
      for (std::size_t n = static_cast<std::size_t>(i); std::chrono::steady_clock::now() < end; ++n)
        times[static_cast<std::size_t>(i)].push_back(milliseconds([&] {
          (void)connection.post(std::string(kAssets) + "search", service.authorization(),
                                bodies[n % bodies.size()]);
        }));
    });
  for (std::thread& client : clients) client.join();
  std::vector<double> all;
  for (const auto& one : times) all.insert(all.end(), one.begin(), one.end());
  printRow("vornexd", "16 clients", all,
           fmt::format("{:.0f} queries/s", static_cast<double>(all.size()) /
                                               std::chrono::duration<double>(kClientsTime).count()));
}

// From the start of the process to the first answer.
void measureOpening(const std::string& program, const std::string& folder, const Query& query) {
  auto start = std::chrono::steady_clock::now();
  Service service(program, folder);
  Connection connection = service.connect();
  (void)connection.post(std::string(kAssets) + "search", service.authorization(), requestBody(query));
  std::chrono::duration<double, std::milli> time = std::chrono::steady_clock::now() - start;
  auto [memory, mapped] = service.memory();
  printRow("vornexd", "opening", {time.count()},
           fmt::format("{:.0f} MB, of it {:.0f} MB mapped", memory, mapped));
}

void measureService(const Documents& documents, const std::string& file, const std::string& program,
                    const std::string& folder) {
  std::vector<Query> queries = queriesFor(documents);
  auto printMemory = [](const Service& service, const char* when) {
    auto [memory, mapped] = service.memory();
    printRow("vornexd", when, {0}, fmt::format("{:.0f} MB, of it {:.0f} MB mapped", memory, mapped));
  };
  {
    Service service(program, folder + ".two");
    loadTogether(service, file);
  }
  std::filesystem::remove_all(folder + ".two");
  {
    Service service(program, folder);
    load(service, file);
    printMemory(service, "memory after loading");
    // The merging of what was written comes to its end.
    std::this_thread::sleep_for(std::chrono::seconds(2 + documents.count() / 50'000));
    measureQueries(service, queries);
    measureClients(service, queries);
    printMemory(service, "memory after searching");
  }
  measureOpening(program, folder, queries.front());
}

void measureAgain(const Documents& documents, const std::string& program, const std::string& folder,
                  const std::string& name, int rounds) {
  Service service(program, folder);
  std::vector<Query> queries = queriesFor(documents);
  std::erase_if(queries, [&](const Query& query) { return !name.empty() && query.name != name; });
  measureQueries(service, queries, rounds);
}

void append(const std::string& documents, const std::string& path) {
  int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  std::vector<double> times;
  double sum = 0;
  std::size_t count = 0;
  forEachBatch(documents, [&](const std::string& batch, std::size_t size) {
    times.push_back(milliseconds([&] {
      if (::write(file, batch.data(), batch.size()) < 0 || ::fdatasync(file) != 0) std::exit(1);
    }));
    sum += times.back();
    count += size;
  });
  ::close(file);
  printRow("append and sync", "create 1,000", times,
           fmt::format("{:.0f} documents/s", static_cast<double>(count) / sum * 1'000));
}

void writeScripts(const std::vector<Query>& queries, const std::string& folder) {
  std::map<std::string, int> counts;
  for (const Query& query : queries) {
    int number = counts[query.name]++;
    std::ofstream script(fmt::format("{}/{}.{}.sql", folder, query.name, number));
    script << fmt::format(
        "SELECT doc::text FROM (SELECT doc FROM assets WHERE {0} ORDER BY importdate DESC LIMIT 100 OFFSET "
        "{1}) s;\n"
        "SELECT count(*) FROM assets WHERE {0};\n",
        query.sql, query.page * 100);
  }
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> words(argv + 1, argv + argc);
  if (words.size() == 3 && words[0] == "append") {
    append(words[1], words[2]);
    return 0;
  }
  if (words.size() < 2) return 2;
  Documents documents(std::strtoull(words[1].c_str(), nullptr, 10));
  if (words[0] == "documents") {
    for (std::size_t i = 0; i < documents.count(); ++i) fmt::print("{}\n", documents.json(i));
  } else if (words[0] == "postgres" && words.size() == 3) {
    writeScripts(queriesFor(documents), words[2]);
  } else if (words[0] == "service" && words.size() == 5) {
    measureService(documents, words[2], words[3], words[4]);
  } else if (words[0] == "again" && words.size() >= 4) {
    measureAgain(documents, words[2], words[3], words.size() > 4 ? words[4] : "",
                 words.size() > 5 ? std::atoi(words[5].c_str()) : 50);
  } else if (words[0] == "scan" && words.size() == 3) {
    measureScans(words[2], queriesFor(documents));
  } else {
    return 2;
  }
  return 0;
}
