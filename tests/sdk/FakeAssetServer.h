#pragma once

#include <vornex/Value.h>

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <string>

#include "core/Coercion.h"
#include "foundation/Json.h"
#include "support/FakeServer.h"

namespace vornex::testing {

/// The asset part of a library's server, in memory: create, search by master path, delete.
class FakeAssetServer {
 public:
  /// A create that takes too long is answered so, and makes its record later: add() it.
  enum class Creating { works, refuses, losesAnswer, takesTooLong };

  std::int64_t port() const { return server_.port(); }

  std::map<std::string, Dictionary> records() const {
    std::lock_guard lock(mutex_);
    return records_;
  }
  void add(const std::string& id, Dictionary record) {
    std::lock_guard lock(mutex_);
    record.set("_id", id);
    records_[id] = std::move(record);
  }

  std::atomic<Creating> creating = Creating::works;
  /// Called before a record is made; set it before the first request.
  std::function<void()> whenCreating;
  /// Every request is answered with an error.
  std::atomic<bool> isBroken = false;

 private:
  FakeReply answer(const FakeRequest& request) {
    if (isBroken) return failure();
    Value body = parseJson(request.body).value_or(Value());
    std::lock_guard lock(mutex_);
    if (request.target.ends_with("/assets/create")) {
      if (whenCreating) whenCreating();
      return create(body);
    }
    if (request.target.ends_with("/assets/search")) return search(body);
    if (request.target.find("/assets/delete?") != std::string::npos) return remove(body);
    return failure();
  }

  FakeReply create(const Value& body) {
    if (creating == Creating::refuses) return failure();
    if (creating == Creating::takesTooLong)
      return FakeReply::json(R"({"Status": {"code": 9, "msg": "timed out", "domain": "VORNEX SERVER"}})",
                             504);
    Array made;
    for (const Value& item : coerce::array(body.find("items"))) {
      std::string id = "asset" + std::to_string(++lastID_);
      Dictionary record = *item.ifDictionary();
      record.set("_id", id);
      records_[id] = std::move(record);
      made.push_back(Dictionary{{"_id", id}});
    }
    if (creating == Creating::losesAnswer) return {"", FakeReply::Then::close};
    return success(std::move(made));
  }

  FakeReply search(const Value& body) {
    std::string query = coerce::string(body.find("query")).value_or("");
    Array found;
    for (const auto& [id, record] : records_)
      if (query == "masterpath == " + quoted(*record.find("masterpath")->ifString())) found.push_back(record);
    return success(std::move(found));
  }

  FakeReply remove(const Value& body) {
    Array removed;
    for (const Value& item : coerce::array(body.find("items"))) {
      std::string id = *item.find("_id")->ifString();
      if (records_.erase(id) > 0) removed.push_back(Dictionary{{"_id", id}});
    }
    return removed.empty() ? failure() : success(std::move(removed));
  }

  static std::string quoted(const std::string& text) {
    std::string result;
    for (char c : text) result += c == '"' || c == '\\' ? std::string("\\") + c : std::string(1, c);
    return '"' + result + '"';
  }

  static FakeReply success(Array items) {
    return FakeReply::json(writeJson(Dictionary{{"items", std::move(items)}}));
  }
  static FakeReply failure() {
    return FakeReply::json(R"({"Status": {"code": 16, "msg": "disk full", "domain": "VORNEX SERVER"}})", 507);
  }

  mutable std::mutex mutex_;
  std::map<std::string, Dictionary> records_;
  int lastID_ = 0;
  // Last, so that its threads end before what they use.
  FakeServer server_{[this](const FakeRequest& request) { return answer(request); }};
};

}  // namespace vornex::testing
