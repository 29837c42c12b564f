#include "platform/http/http_exchange.h"

#include <cstring>
#include <curl/curl.h>
#include <fmt/format.h>

#include "platform/http/dynamic_library.h"
#include "platform/queues/timer_table.h"
#include "platform/text/text.h"
#include "platform/values/url.h"

namespace vantrell {

namespace {

/// Of all header lines of one answer; far above what servers send.
constexpr std::size_t longestHead = std::size_t{256} << 10;
constexpr long mostRedirects = 10;

/// The functions of one request; http_client.cpp has the rest of libcurl.
struct Library : DynamicLibrary {
  Library() : DynamicLibrary("libcurl.so.4") {}
  // clang-format off
  VANTRELL_FUNCTION(curl_easy_cleanup) VANTRELL_FUNCTION(curl_easy_getinfo)
  VANTRELL_FUNCTION(curl_easy_init)
  VANTRELL_FUNCTION(curl_easy_setopt) VANTRELL_FUNCTION(curl_easy_strerror)
  VANTRELL_FUNCTION(curl_slist_append) VANTRELL_FUNCTION(curl_slist_free_all)
  // clang-format on
};

const Library& library() {
  static const Library loaded;
  return loaded;
}

static_assert(sizeof(curl_off_t) == sizeof(std::int64_t));

HttpError::Kind kindOf(CURLcode code) {
  using enum HttpError::Kind;
  switch (code) {
    case CURLE_URL_MALFORMAT: return invalidRequest;
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY: return cannotFindHost;
    case CURLE_COULDNT_CONNECT: return cannotConnect;
    case CURLE_OPERATION_TIMEDOUT: return timedOut;
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CIPHER:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_INVALIDCERTSTATUS:
    case CURLE_SSL_ISSUER_ERROR: return notSecure;
    case CURLE_UNSUPPORTED_PROTOCOL:  // also: an answer without a head
    case CURLE_TOO_MANY_REDIRECTS:
    case CURLE_WEIRD_SERVER_REPLY:
    case CURLE_BAD_CONTENT_ENCODING: return badAnswer;
    default: return connectionLost;
  }
}

}  // namespace

struct HttpExchange::HeaderList {
  curl_slist* first = nullptr;
  void add(const std::string& line) { first = library().curl_slist_append(first, line.c_str()); }
  ~HeaderList() { library().curl_slist_free_all(first); }
};

const std::string& HttpExchange::libraryProblem() {
  return library().problem();
}

HttpExchange::HttpExchange(HttpRequest request, HttpAnswer answer, const HttpSettings& settings)
    : request_(std::move(request)),
      answer_(std::move(answer)),
      easy_(library().curl_easy_init()),
      headers_(std::make_unique<HeaderList>()),
      start_(steadyUptime()),
      lastActivity_(start_) {
  static_assert(std::tuple_size_v<decltype(words_)> >= CURL_ERROR_SIZE);
  configure(settings);
}

HttpExchange::~HttpExchange() {
  library().curl_easy_cleanup(easy_);
}

void HttpExchange::configure(const HttpSettings& settings) {
  const auto set = [this](CURLoption option, auto value) {
    library().curl_easy_setopt(easy_, option, value);
  };
  set(CURLOPT_PRIVATE, static_cast<void*>(this));
  set(CURLOPT_ERRORBUFFER, words_.data());
  set(CURLOPT_NOSIGNAL, 1L);
  // A name that is still being looked up does not hold up the other requests when this one ends.
  set(CURLOPT_QUICK_EXIT, 1L);
  set(CURLOPT_URL, request_.url.c_str());
  set(CURLOPT_PROTOCOLS_STR, "http,https");
  const bool isSecure = Url::parse(request_.url)->scheme() == "https";
  set(CURLOPT_REDIR_PROTOCOLS_STR, isSecure ? "https" : "http,https");
  set(CURLOPT_FOLLOWLOCATION, request_.redirects == HttpRequest::Redirects::follow ? 1L : 0L);
  set(CURLOPT_MAXREDIRS, mostRedirects);
  set(CURLOPT_NOPROXY, settings.noProxy.c_str());
  set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
  set(CURLOPT_SSL_VERIFYPEER, 1L);
  set(CURLOPT_SSL_VERIFYHOST, 2L);
  if (!settings.extraAuthorities.empty()) {
    // In place of the system's file of authorities; its folder, with the same, stays in use.
    const auto& pem = settings.extraAuthorities;
    curl_blob blob{const_cast<char*>(pem.data()), pem.size(), CURL_BLOB_COPY};
    set(CURLOPT_CAINFO_BLOB, &blob);
  }
  set(CURLOPT_HEADERFUNCTION, &HttpExchange::onHeaderLine);
  set(CURLOPT_HEADERDATA, this);
  set(CURLOPT_WRITEFUNCTION, &HttpExchange::onBodyBytes);
  set(CURLOPT_WRITEDATA, this);
  set(CURLOPT_NOPROGRESS, 0L);
  set(CURLOPT_XFERINFOFUNCTION, &HttpExchange::onProgress);
  set(CURLOPT_XFERINFODATA, this);
  configureMethod();
}

void HttpExchange::configureMethod() {
  const auto& method = request_.method;
  const bool hasBody = !request_.body.empty() || method == "POST";
  if (hasBody) {
    library().curl_easy_setopt(easy_, CURLOPT_POST, 1L);
    library().curl_easy_setopt(easy_, CURLOPT_POSTFIELDS, request_.body.data());
    library().curl_easy_setopt(easy_, CURLOPT_POSTFIELDSIZE_LARGE,
                               static_cast<curl_off_t>(request_.body.size()));
  }
  if (method != (hasBody ? "POST" : "GET")) {
    library().curl_easy_setopt(easy_, CURLOPT_CUSTOMREQUEST, method.c_str());
  }
  bool hasType = false;
  for (const auto& [name, value] : request_.headers) {
    hasType = hasType || text::lowercased(name) == "content-type";
    // libcurl's notation for a header without a value.
    headers_->add(value.empty() ? name + ";" : name + ": " + value);
  }
  // What libcurl would add of its own: the type of a form, and a second of waiting before a body.
  if (hasBody && !hasType) headers_->add("Content-Type:");
  headers_->add("Expect:");
  library().curl_easy_setopt(easy_, CURLOPT_HTTPHEADER, headers_->first);
}

std::size_t HttpExchange::onHeaderLine(char* bytes, std::size_t size, std::size_t count,
                                       void* self) {
  return static_cast<HttpExchange*>(self)->takeHeaderLine({bytes, size * count});
}

std::size_t HttpExchange::onBodyBytes(char* bytes, std::size_t size, std::size_t count,
                                      void* self) {
  return static_cast<HttpExchange*>(self)->takeBody({bytes, size * count});
}

int HttpExchange::onProgress(void* self, std::int64_t, std::int64_t down, std::int64_t,
                             std::int64_t up) {
  auto& exchange = *static_cast<HttpExchange*>(self);
  if (down + up != exchange.bytesMoved_) {
    exchange.bytesMoved_ = down + up;
    exchange.lastActivity_ = steadyUptime();
  }
  return 0;
}

std::size_t HttpExchange::takeHeaderLine(std::string_view line) {
  lastActivity_ = steadyUptime();
  if (line.starts_with("HTTP/")) {  // another answer: after a redirect or an interim one
    response_.headers.clear();
    isHeadComplete_ = false;
    headBytes_ = 0;
  }
  headBytes_ += line.size();
  if (headBytes_ > longestHead) {
    failure_ = {HttpError::Kind::badAnswer, fmt::format("{} sent too long a head.", server())};
    return 0;
  }
  if (isHeadComplete_) return line.size();  // fields after a chunked body
  const std::string_view content = text::trimmed(line);
  if (content.empty()) {
    headIsComplete();
  } else if (const auto colon = content.find(':'); colon != std::string_view::npos) {
    response_.headers.push_back({std::string(content.substr(0, colon)),
                                 std::string(text::trimmed(content.substr(colon + 1)))});
  }
  return line.size();
}

void HttpExchange::headIsComplete() {
  long status = 0;
  library().curl_easy_getinfo(easy_, CURLINFO_RESPONSE_CODE, &status);
  response_.status = static_cast<int>(status);
  isHeadComplete_ = status >= 200;  // below: an interim answer
}

std::size_t HttpExchange::takeBody(std::string_view bytes) {
  lastActivity_ = steadyUptime();
  if (request_.takeBody) return request_.takeBody(response_, bytes) ? bytes.size() : 0;
  const std::size_t room = request_.longestBody - response_.body.size();
  if (bytes.size() > room && request_.excess == HttpRequest::Excess::fail) {
    failure_ = {HttpError::Kind::tooLarge, fmt::format("{} sent more than the {} bytes allowed.",
                                                       server(), request_.longestBody)};
    return 0;
  }
  response_.body += bytes.substr(0, room);
  return bytes.size();
}

std::string HttpExchange::server() const {
  const char* last = nullptr;
  library().curl_easy_getinfo(easy_, CURLINFO_EFFECTIVE_URL, &last);
  auto url = Url::parse(last ? last : "");
  if (!url) url = Url::parse(request_.url);
  return url->hostAndPort();
}

HttpError HttpExchange::errorOf(int number) const {
  if (failure_) return *failure_;
  const auto code = static_cast<CURLcode>(number);
  const auto kind = kindOf(code);
  const std::string words = words_[0] != '\0' ? words_.data() : library().curl_easy_strerror(code);
  const auto sentence = [&]() -> std::string {
    switch (kind) {
      using enum HttpError::Kind;
      case cannotFindHost: return fmt::format("No server named {} was found.", server());
      case cannotConnect: {
        long systemError = 0;
        library().curl_easy_getinfo(easy_, CURLINFO_OS_ERRNO, &systemError);
        return fmt::format("Could not connect to {}: {}.", server(),
                           systemError == 0 ? words : std::strerror(static_cast<int>(systemError)));
      }
      case timedOut: return fmt::format("{} did not answer in time.", server());
      case notSecure: return fmt::format("No secure connection to {}: {}.", server(), words);
      case connectionLost: return fmt::format("The connection to {} was lost.", server());
      case badAnswer:
        if (code == CURLE_TOO_MANY_REDIRECTS) {
          return fmt::format("{} redirects without end.", server());
        }
        return fmt::format("{} gave an answer that is not valid HTTP.", server());
      default: return fmt::format("The request to {} failed: {}.", server(), words);
    }
  };
  return {kind, sentence()};
}

void HttpExchange::finish(int code) {
  if (code == CURLE_OK && !failure_) {
    answer_.give(std::move(response_));
  } else {
    answer_.give(std::unexpected(errorOf(code)));
  }
}

void HttpExchange::fail(HttpError::Kind kind, std::string description) {
  answer_.give(std::unexpected(HttpError{kind, std::move(description)}));
}

void HttpExchange::finishCancelled() {
  fail(HttpError::Kind::cancelled, fmt::format("The request to {} was cancelled.", server()));
}

Duration HttpExchange::deadline() const {
  return std::min(lastActivity_ + request_.requestTimeout, start_ + request_.resourceTimeout);
}

void HttpExchange::finishLate() {
  const bool isIdle = steadyUptime() < start_ + request_.resourceTimeout;
  const auto limit = isIdle ? request_.requestTimeout : request_.resourceTimeout;
  fail(HttpError::Kind::timedOut,
       fmt::format("{} did not {} within {:g} seconds.", server(), isIdle ? "answer" : "finish",
                   std::chrono::duration<double>(limit).count()));
}

}  // namespace vantrell
