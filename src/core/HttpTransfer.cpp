#include "core/HttpTransfer.h"

#include <new>

namespace vornex {
namespace {

constexpr std::size_t kMostIdle = 8;

struct FreeUrl {
  void operator()(CURLU* url) const { curl_url_cleanup(url); }
};
using Url = std::unique_ptr<CURLU, FreeUrl>;

bool isLoopback(const std::string& host) {
  return host == "localhost" || host == "[::1]" || host.starts_with("127.");
}

bool isMethod(const std::string& method) {
  return method == "GET" || method == "POST" || method == "PUT" || method == "PATCH" || method == "DELETE";
}

std::string urlPart(const Url& url, CURLUPart part, unsigned flags = 0) {
  char* text = nullptr;
  if (curl_url_get(url.get(), part, &text, flags) != CURLUE_OK) return "";
  std::string copy = text;
  curl_free(text);
  return copy;
}

}  // namespace

HandlePool::HandlePool() {
  curl_global_init(CURL_GLOBAL_DEFAULT);
}

EasyHandle HandlePool::take() {
  std::lock_guard lock(mutex_);
  if (idle_.empty()) return EasyHandle(curl_easy_init());
  EasyHandle handle = std::move(idle_.back());
  idle_.pop_back();
  return handle;
}

void HandlePool::giveBack(EasyHandle handle) {
  if (!handle) return;
  curl_easy_reset(handle.get());
  std::lock_guard lock(mutex_);
  if (idle_.size() < kMostIdle) idle_.push_back(std::move(handle));
}

std::optional<UrlParts> parseHttpUrl(const std::string& text) {
  Url url(curl_url());
  if (!url || curl_url_set(url.get(), CURLUPART_URL, text.c_str(), 0) != CURLUE_OK) return std::nullopt;
  std::string scheme = urlPart(url, CURLUPART_SCHEME);
  if (scheme != "http" && scheme != "https") return std::nullopt;
  std::string host = urlPart(url, CURLUPART_HOST);
  std::string server = scheme + " " + host + ":" + urlPart(url, CURLUPART_PORT, CURLU_DEFAULT_PORT);
  return UrlParts{std::move(server), std::move(host), urlPart(url, CURLUPART_PATH)};
}

Result<std::unique_ptr<HttpTransfer>> HttpTransfer::make(HttpExchange exchange, HandlePool& pool) {
  std::optional<UrlParts> url = parseHttpUrl(exchange.url);
  if (!url) return failure("curl", kUnusableRequest, "not a URL that can be requested: " + exchange.url);
  if (!isMethod(exchange.method)) {
    return failure("curl", kUnusableRequest, "not a method that can be requested: " + exchange.method);
  }
  std::unique_ptr<HttpTransfer> transfer(new HttpTransfer(std::move(exchange), pool));
  if (!transfer->handle_) return failure("curl", CURLE_FAILED_INIT, curl_easy_strerror(CURLE_FAILED_INIT));
  transfer->configure(*url);
  return transfer;
}

Result<HttpAnswer> HttpTransfer::finish(CURLcode code) {
  if (isTooLong_) return failure("curl", kAnswerTooLong, "the answer is too long");
  if (code != CURLE_OK) return failure("curl", code, curl_easy_strerror(code));
  HttpAnswer answer;
  curl_easy_getinfo(handle(), CURLINFO_RESPONSE_CODE, &answer.status);
  const char* contentType = nullptr;
  curl_easy_getinfo(handle(), CURLINFO_CONTENT_TYPE, &contentType);
  if (contentType) answer.contentType = contentType;
  answer.body = std::move(body_);
  return answer;
}

void HttpTransfer::configure(const UrlParts& url) {
  CURL* curl = handle();
  curl_easy_setopt(curl, CURLOPT_URL, exchange_.url.c_str());
  curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(curl, CURLOPT_FOLLOWLOCATION, 0L);
  if (isLoopback(url.host)) curl_easy_setopt(curl, CURLOPT_PROXY, "");
  curl_easy_setopt(curl, CURLOPT_HTTPAUTH, CURLAUTH_BASIC);
  curl_easy_setopt(curl, CURLOPT_USERNAME, exchange_.userName.c_str());
  curl_easy_setopt(curl, CURLOPT_PASSWORD, exchange_.password.c_str());
  for (const std::string& header : exchange_.headers) addHeader(header.c_str());
  curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers_.get());
  // A body is a POST to curl; the method's name is a matter of its own.
  if (exchange_.body || exchange_.method != "GET") {
    std::string_view body = exchange_.body ? std::string_view(*exchange_.body) : "";
    curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
    curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.data());
  }
  curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, exchange_.method.c_str());
  curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, static_cast<long>(exchange_.timeLimit.count()));
  curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(exchange_.timeLimit.count()));
  curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
  // A name that does not resolve in time is not waited for. Its thread ends when the resolver gives up; there
  // are no more of them than requests were under way in that time.
  curl_easy_setopt(curl, CURLOPT_QUICK_EXIT, 1L);
  curl_easy_setopt(curl, CURLOPT_TCP_KEEPALIVE, 1L);
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, takeBody);
  curl_easy_setopt(curl, CURLOPT_WRITEDATA, this);
}

void HttpTransfer::addHeader(const char* line) {
  curl_slist* longer = curl_slist_append(headers_.get(), line);
  if (!longer) throw std::bad_alloc();
  (void)headers_.release();
  headers_.reset(longer);
}

/// What arrives of the answer's body. (curl itself bounds the headers.)
std::size_t HttpTransfer::takeBody(char* bytes, std::size_t size, std::size_t count, void* transfer) {
  auto& self = *static_cast<HttpTransfer*>(transfer);
  std::size_t length = size * count;
  try {
    self.isTooLong_ = length > self.exchange_.answerLimit - self.body_.size();
    if (self.isTooLong_) return 0;
    self.body_.append(bytes, length);
    return length;
  } catch (const std::bad_alloc&) {
    self.isTooLong_ = true;
    return 0;
  }
}

}  // namespace vornex
