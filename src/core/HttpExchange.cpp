#include "core/HttpExchange.h"

#include <curl/curl.h>

#include <memory>
#include <mutex>
#include <new>

namespace vornex {
namespace {

struct FreeEasy {
  void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};
struct FreeList {
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
struct FreeUrl {
  void operator()(CURLU* url) const { curl_url_cleanup(url); }
};
using Easy = std::unique_ptr<CURL, FreeEasy>;
using HeaderList = std::unique_ptr<curl_slist, FreeList>;
using Url = std::unique_ptr<CURLU, FreeUrl>;

/// Idle handles, each with its open connections; the one used last goes out first.
///
/// Thread-safety: safe on any thread.
class HandlePool {
 public:
  static HandlePool& shared() {
    // Never destroyed: workers may send while the process ends.
    static HandlePool* pool = new HandlePool;
    return *pool;
  }

  Easy take() {
    std::lock_guard lock(mutex_);
    if (idle_.empty()) return Easy(curl_easy_init());
    Easy handle = std::move(idle_.back());
    idle_.pop_back();
    return handle;
  }

  void giveBack(Easy handle) {
    curl_easy_reset(handle.get());
    std::lock_guard lock(mutex_);
    if (idle_.size() < kMostIdle) idle_.push_back(std::move(handle));
  }

 private:
  static constexpr std::size_t kMostIdle = 8;

  HandlePool() { curl_global_init(CURL_GLOBAL_DEFAULT); }

  std::mutex mutex_;
  std::vector<Easy> idle_;
};

/// What arrives of one answer's body. (curl itself bounds the headers.)
struct Arrival {
  std::string body;
  std::size_t limit = 0;
  bool isTooLong = false;
};

std::size_t takeBody(char* bytes, std::size_t size, std::size_t count, void* target) {
  auto& arrival = *static_cast<Arrival*>(target);
  std::size_t length = size * count;
  try {
    arrival.isTooLong = length > arrival.limit - arrival.body.size();
    if (arrival.isTooLong) return 0;
    arrival.body.append(bytes, length);
    return length;
  } catch (const std::bad_alloc&) {
    arrival.isTooLong = true;
    return 0;
  }
}

bool isLoopback(const std::string& host) {
  return host == "localhost" || host == "[::1]" || host.starts_with("127.");
}

bool isMethod(const std::string& method) {
  return method == "GET" || method == "POST" || method == "PUT" || method == "PATCH" || method == "DELETE";
}

std::string urlPart(const Url& url, CURLUPart part) {
  char* text = nullptr;
  if (curl_url_get(url.get(), part, &text, 0) != CURLUE_OK) return "";
  std::string copy = text;
  curl_free(text);
  return copy;
}

HeaderList headerList(const std::vector<std::string>& headers) {
  HeaderList list;
  for (const std::string& header : headers) {
    curl_slist* longer = curl_slist_append(list.get(), header.c_str());
    if (!longer) throw std::bad_alloc();
    list.release();
    list.reset(longer);
  }
  return list;
}

void configure(CURL* handle, const HttpExchange& exchange, const UrlParts& url, const curl_slist* headers,
               Arrival& arrival) {
  curl_easy_setopt(handle, CURLOPT_URL, exchange.url.c_str());
  curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(handle, CURLOPT_FOLLOWLOCATION, 0L);
  if (isLoopback(url.host)) curl_easy_setopt(handle, CURLOPT_PROXY, "");
  curl_easy_setopt(handle, CURLOPT_HTTPAUTH, CURLAUTH_BASIC);
  curl_easy_setopt(handle, CURLOPT_USERNAME, exchange.userName.c_str());
  curl_easy_setopt(handle, CURLOPT_PASSWORD, exchange.password.c_str());
  curl_easy_setopt(handle, CURLOPT_HTTPHEADER, headers);
  // A body is a POST to curl; the method's name is a matter of its own.
  bool hasBody = exchange.body || exchange.method != "GET";
  if (hasBody) {
    std::string_view body = exchange.body ? std::string_view(*exchange.body) : "";
    curl_easy_setopt(handle, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
    curl_easy_setopt(handle, CURLOPT_POSTFIELDS, body.data());
  }
  curl_easy_setopt(handle, CURLOPT_CUSTOMREQUEST, exchange.method.c_str());
  curl_easy_setopt(handle, CURLOPT_TIMEOUT_MS, static_cast<long>(exchange.timeLimit.count()));
  curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(exchange.timeLimit.count()));
  curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(handle, CURLOPT_TCP_KEEPALIVE, 1L);
  curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, takeBody);
  curl_easy_setopt(handle, CURLOPT_WRITEDATA, &arrival);
}

Result<HttpAnswer> perform(CURL* handle, Arrival& arrival) {
  CURLcode code = curl_easy_perform(handle);
  if (arrival.isTooLong) return failure("curl", kAnswerTooLong, "the answer is too long");
  if (code != CURLE_OK) return failure("curl", code, curl_easy_strerror(code));
  HttpAnswer answer;
  curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &answer.status);
  const char* contentType = nullptr;
  curl_easy_getinfo(handle, CURLINFO_CONTENT_TYPE, &contentType);
  if (contentType) answer.contentType = contentType;
  answer.body = std::move(arrival.body);
  return answer;
}

}  // namespace

std::optional<UrlParts> parseHttpUrl(const std::string& text) {
  Url url(curl_url());
  if (!url || curl_url_set(url.get(), CURLUPART_URL, text.c_str(), 0) != CURLUE_OK) return std::nullopt;
  std::string scheme = urlPart(url, CURLUPART_SCHEME);
  if (scheme != "http" && scheme != "https") return std::nullopt;
  return UrlParts{urlPart(url, CURLUPART_HOST), urlPart(url, CURLUPART_PATH)};
}

Result<HttpAnswer> exchangeHttp(const HttpExchange& exchange) {
  std::optional<UrlParts> url = parseHttpUrl(exchange.url);
  if (!url) return failure("curl", kUnusableRequest, "not a URL that can be requested: " + exchange.url);
  if (!isMethod(exchange.method)) {
    return failure("curl", kUnusableRequest, "not a method that can be requested: " + exchange.method);
  }
  Easy handle = HandlePool::shared().take();
  if (!handle) return failure("curl", CURLE_FAILED_INIT, curl_easy_strerror(CURLE_FAILED_INIT));
  HeaderList headers = headerList(exchange.headers);
  Arrival arrival;
  arrival.limit = exchange.answerLimit;
  configure(handle.get(), exchange, *url, headers.get(), arrival);
  Result<HttpAnswer> answer = perform(handle.get(), arrival);
  HandlePool::shared().giveBack(std::move(handle));
  return answer;
}

}  // namespace vornex
