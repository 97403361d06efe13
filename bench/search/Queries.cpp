#include "Queries.h"

#include <fmt/format.h>

namespace vornex::bench {

namespace {

std::string quoted(const std::string& text) {
  std::string result = "\"";
  for (char c : text) {
    if (c == '\\' || c == '"') result += '\\';
    result += c;
  }
  return result + '"';
}

std::string like(const std::string& text) {
  std::string result;
  for (char c : text) {
    if (c == '%' || c == '_') result += '\\';
    result += c;
  }
  return "LIKE '%" + result + "%'";
}

// A term as the search field sends it.
std::string term(const std::string& expression) {
  std::string text = quoted(expression);
  return fmt::format("(name CONTAINS {0} OR tags CONTAINS {0} OR fileext CONTAINS {0})", text);
}

Query terms(const std::string& name, const std::vector<std::string>& all, const char* join) {
  Query query{name, "", 0, "", all};
  for (const std::string& one : all) {
    query.predicate += (query.predicate.empty() ? "" : std::string(" ") + join + " ") + term(one);
    query.sql += (query.sql.empty() ? "" : std::string(" ") + join + " ") + "searchtext " + like(one);
  }
  query.predicate = "(" + query.predicate + ") AND trash == 0";
  query.sql = "(" + query.sql + ") AND NOT trash";
  return query;
}

Query expression(const std::string& name, const std::string& text) {
  return {name, term(text) + " AND trash == 0", 0, "searchtext ~ '" + text + "' AND NOT trash", {text}};
}

}  // namespace

std::vector<Query> queriesFor(const Documents& documents) {
  std::vector<Query> all;
  for (const char* word : {"camera", "wedding", "music", "street", "portrait"})
    all.push_back(terms("one common term", {word}, "OR"));
  // Some thirty documents have a word of this rank in their names, whatever their number.
  std::size_t rare = std::max<std::size_t>(documents.count() / 90, 60);
  for (std::size_t rank = rare; all.size() < 10 && rank < 20'000; ++rank)
    if (documents.nameWord(rank).size() > 8 && documents.nameWord(rank).back() > 0)
      all.push_back(terms("one rare term", {documents.nameWord(rank)}, "OR"));
  for (auto [a, b] :
       {std::pair("interview", "drone"), {"final", "camera"}, {"sunset", "beach"}, {"city", "night"}})
    all.push_back(terms("two terms, all", {a, b}, "AND"));
  all.push_back(terms("three terms, any", {"river", "forest", "aerial"}, "OR"));
  all.push_back(terms("three terms, any", {"office", "kitchen", "train"}, "OR"));
  all.push_back(terms("three terms, any", {"garden", "rooftop", "harbor"}, "OR"));
  all.push_back({"type, not in trash", "type == 2 AND trash == 0", 0, "type = 2 AND NOT trash", {}});
  for (int page : {250, 500}) {
    // A hundred thousand documents give 333 pages.
    if (page == 500 && documents.count() < 200'000) continue;
    all.push_back({fmt::format("the same, page {}", page),
                   "type == 2 AND trash == 0",
                   page - 1,
                   "type = 2 AND NOT trash",
                   {}});
  }
  for (std::size_t rank : {3, 15, 50, 100})
    all.push_back(
        {"project without group",
         fmt::format("project == {} AND group == \"\" AND trash == 0", quoted(documents.project(rank))),
         0,
         fmt::format("project = '{}' AND grp IS NULL AND NOT trash", documents.project(rank)),
         {}});
  for (double part : {0.5, 0.8, 0.95, 0.99}) {
    std::int64_t date =
        documents.importDate(static_cast<std::size_t>(static_cast<double>(documents.count()) * part));
    all.push_back({"imported since",
                   fmt::format("importdate >= {} AND trash == 0", date),
                   0,
                   fmt::format("importdate >= {} AND NOT trash", date),
                   {}});
  }
  // Common enough for a page of 100 at a hundred thousand documents too.
  for (std::size_t rank : {5, 10, 20, 30}) {
    std::string folder = "/" + documents.folderWord(rank) + "/";
    all.push_back({"folder path contained",
                   fmt::format("importfrompath CONTAINS {} AND islivefolder == 1", quoted(folder)),
                   0,
                   fmt::format("importfrompath {} AND islivefolder", like(folder)),
                   {}});
  }
  all.push_back({"flagged", "flagged == 1 AND trash == 0", 0, "flagged AND NOT trash", {}});
  for (const char* text : {"v2\\.1", "\\(1\\)", "c\\+\\+", "take\\*"})
    all.push_back(expression("escaped term", text));
  for (const char* text : {"a", "e", "x"}) all.push_back(terms("one letter", {text}, "OR"));
  for (const char* text : {"ma", "ko", "42"}) all.push_back(terms("two letters", {text}, "OR"));
  for (const char* text : {"camera 00", "drone city", "e 1"})
    all.push_back(terms("phrase with a blank", {text}, "OR"));
  for (const char* text : {"cam.ra", "s.e", "v2.1"}) all.push_back(expression("dot", text));
  for (const char* text : {"cameras?", "beache?", "ci?ty"}) all.push_back(expression("question mark", text));
  return all;
}

}  // namespace vornex::bench
