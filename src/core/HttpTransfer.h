#pragma once

#include <curl/curl.h>

#include <memory>
#include <mutex>
#include <vector>

#include "core/HttpExchange.h"

namespace vornex {

struct FreeEasy {
  void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};
using EasyHandle = std::unique_ptr<CURL, FreeEasy>;

/// Idle curl handles; the one used last goes out first, with the connections that it keeps.
///
/// Thread-safety: safe on any thread.
class HandlePool {
 public:
  HandlePool();

  EasyHandle take();
  void giveBack(EasyHandle handle);

 private:
  std::mutex mutex_;
  std::vector<EasyHandle> idle_;
};

/// One request on a curl handle: what the handle points to lives here until the answer is taken.
///
/// Thread-safety: none; one owner.
class HttpTransfer {
 public:
  /// The pool must outlive the transfer, which gives the handle back.
  [[nodiscard]] static Result<std::unique_ptr<HttpTransfer>> make(HttpExchange exchange, HandlePool& pool);
  ~HttpTransfer() { pool_.giveBack(std::move(handle_)); }
  HttpTransfer(const HttpTransfer&) = delete;
  HttpTransfer& operator=(const HttpTransfer&) = delete;

  CURL* handle() const { return handle_.get(); }

  /// What came of it, once curl has ended with this code.
  [[nodiscard]] Result<HttpAnswer> finish(CURLcode code);

 private:
  struct FreeList {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
  };

  HttpTransfer(HttpExchange exchange, HandlePool& pool)
      : exchange_(std::move(exchange)), pool_(pool), handle_(pool.take()) {}

  void configure(const UrlParts& url);
  void addHeader(const char* line);
  static std::size_t takeBody(char* bytes, std::size_t size, std::size_t count, void* transfer);

  const HttpExchange exchange_;
  HandlePool& pool_;
  EasyHandle handle_;
  std::unique_ptr<curl_slist, FreeList> headers_;
  std::string body_;
  bool isTooLong_ = false;
};

}  // namespace vornex
