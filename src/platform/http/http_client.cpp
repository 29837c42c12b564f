#include "platform/http/http_client.h"

#include <condition_variable>
#include <curl/curl.h>
#include <fmt/format.h>
#include <map>
#include <mutex>
#include <signal.h>
#include <stdlib.h>
#include <thread>

#include "platform/files/files.h"
#include "platform/http/dynamic_library.h"
#include "platform/http/http_exchange.h"
#include "platform/queues/timer_table.h"
#include "platform/text/ascii.h"
#include "platform/text/text.h"
#include "platform/values/url.h"

namespace vantrell {

namespace {

/// What is called here; http_exchange.cpp has the functions of one request.
struct Library : DynamicLibrary {
  using DynamicLibrary::DynamicLibrary;
  // clang-format off
  VANTRELL_FUNCTION(curl_global_init) VANTRELL_FUNCTION(curl_multi_add_handle)
  VANTRELL_FUNCTION(curl_multi_cleanup) VANTRELL_FUNCTION(curl_multi_info_read)
  VANTRELL_FUNCTION(curl_multi_init) VANTRELL_FUNCTION(curl_multi_perform)
  VANTRELL_FUNCTION(curl_multi_poll) VANTRELL_FUNCTION(curl_multi_remove_handle)
  VANTRELL_FUNCTION(curl_multi_wakeup)
  // clang-format on
};

void initialize(const Library& library) {
  // Never undone: it is allowed once, while no other thread uses the library.
  static const CURLcode once = library.curl_global_init(CURL_GLOBAL_DEFAULT);
  (void)once;
}

/// The hosts that are reached without a proxy: what the environment says, and this machine.
std::string hostsWithoutProxy() {
  for (const char* name : {"no_proxy", "NO_PROXY"}) {
    const char* value = ::getenv(name);
    if (!value || *value == '\0') continue;
    const auto given = text::trimmed(value);
    if (given == "*") return "*";
    return std::string(given) + ",localhost,127.0.0.0/8,::1";
  }
  return "localhost,127.0.0.0/8,::1";
}

/// Certificates of a network's own authority, as other programs take them too.
std::string authoritiesOfTheEnvironment() {
  const char* path = ::getenv("SSL_CERT_FILE");
  if (!path || *path == '\0') return {};
  return files::read(path).value_or("");
}

/// What libcurl would send as it stands must not be able to add a line to the head.
bool isOneLine(std::string_view text) {
  return text.find_first_of(std::string_view("\r\n\0", 3)) == std::string_view::npos;
}

bool isToken(std::string_view text) {
  const auto isAllowed = [](char c) {
    return ascii::isAlphanumeric(c) || std::string_view("!#$%&'*+-.^_`|~").contains(c);
  };
  return !text.empty() && std::ranges::all_of(text, isAllowed);
}

std::optional<std::string> problemOf(const HttpRequest& request) {
  const auto url = Url::parse(request.url);
  if (!url || (url->scheme() != "http" && url->scheme() != "https")) {
    return "The address is not a valid HTTP URL.";
  }
  if (!isToken(request.method)) return "The method is not valid.";
  for (const auto& [name, value] : request.headers) {
    if (!isToken(name) || !isOneLine(value)) return "A header of the request is not valid.";
  }
  return std::nullopt;
}

}  // namespace

const std::string* HttpResponse::header(std::string_view name) const {
  const auto wanted = text::lowercased(name);
  const auto found = std::ranges::find_if(
      headers, [&](const HttpHeader& header) { return text::lowercased(header.name) == wanted; });
  return found == headers.end() ? nullptr : &found->value;
}

struct HttpClient::Impl : std::enable_shared_from_this<Impl> {
  explicit Impl(Options options)
      : settings{options.extraAuthorities.empty() ? authoritiesOfTheEnvironment()
                                                  : std::move(options.extraAuthorities),
                 hostsWithoutProxy()},
        libraryName(std::move(options.library)) {}
  ~Impl() {
    if (multi) curl->curl_multi_cleanup(multi);
  }

  void startThread() {
    // Signals are the main thread's, and a write to a closed connection is then only an error.
    sigset_t all;
    sigset_t before;
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before);
    thread = std::thread([this] { run(); });
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
  }

  /// Any thread.
  void post(Work work) {
    CURLM* waiting = nullptr;
    {
      const std::lock_guard lock(mutex);
      posted.push_back(std::move(work));
      waiting = multi;
    }
    if (waiting) {
      curl->curl_multi_wakeup(waiting);
    } else {
      hasPosted.notify_one();
    }
  }

  void end() {
    post([this] { isEnding = true; });
    thread.join();
  }

  // The client's thread from here on.

  void run() {
    loadLibrary();
    while (!isEnding) {
      runPosted();
      if (!multi) {
        std::unique_lock lock(mutex);
        hasPosted.wait(lock, [this] { return isEnding || !posted.empty(); });
        continue;
      }
      int running = 0;
      curl->curl_multi_perform(multi, &running);
      takeFinished();
      const int wait = endLate();
      if (!isEnding) curl->curl_multi_poll(multi, nullptr, 0, wait, nullptr);
    }
    while (!exchanges.empty()) cancel(exchanges.begin()->first);
  }

  /// Here, since reading some twenty files would hold up the main queue. Without the library this
  /// thread answers every request with what is wrong.
  void loadLibrary() {
    curl.emplace(libraryName);
    problem = curl->isComplete() ? HttpExchange::libraryProblem() : curl->problem();
    if (!problem.empty()) return;
    initialize(*curl);
    CURLM* const made = curl->curl_multi_init();
    if (!made) problem = "libcurl did not start";
    const std::lock_guard lock(mutex);
    multi = made;
  }

  void runPosted() {
    std::vector<Work> batch;
    {
      const std::lock_guard lock(mutex);
      batch.swap(posted);
    }
    for (auto& work : batch) work();
  }

  /// Ends what is past its deadline. Returns the milliseconds to the next one.
  int endLate() {
    Duration wait = std::chrono::minutes(1);
    std::vector<std::uint64_t> late;
    for (const auto& [id, exchange] : exchanges) {
      const Duration left = exchange->deadline() - steadyUptime();
      if (left <= Duration::zero()) {
        late.push_back(id);
      } else {
        wait = std::min(wait, left);
      }
    }
    for (const auto id : late) take(id)->finishLate();
    return static_cast<int>(std::chrono::ceil<std::chrono::milliseconds>(wait).count());
  }

  void add(std::uint64_t id, HttpRequest request, HttpAnswer answer) {
    if (!multi) {
      return answer.give(std::unexpected(
          HttpError{HttpError::Kind::noLibrary,
                    fmt::format("HTTP requests need the library libcurl, which cannot be used: {}.",
                                problem)}));
    }
    auto exchange = std::make_unique<HttpExchange>(std::move(request), std::move(answer), settings);
    void* const handle = exchange->handle();
    ids.emplace(handle, id);
    exchanges.emplace(id, std::move(exchange));
    curl->curl_multi_add_handle(multi, handle);
  }

  void takeFinished() {
    int left = 0;
    while (const CURLMsg* message = curl->curl_multi_info_read(multi, &left)) {
      if (message->msg != CURLMSG_DONE) continue;
      const CURLcode code = message->data.result;  // the message goes with the handle
      take(ids.at(message->easy_handle))->finish(code);
    }
  }

  /// Out of libcurl's hands and ours; null when it is gone already.
  std::unique_ptr<HttpExchange> take(std::uint64_t id) {
    const auto found = exchanges.find(id);
    if (found == exchanges.end()) return nullptr;
    auto exchange = std::move(found->second);
    curl->curl_multi_remove_handle(multi, exchange->handle());
    ids.erase(exchange->handle());
    exchanges.erase(found);
    return exchange;
  }

  void cancel(std::uint64_t id) {
    if (const auto exchange = take(id)) exchange->finishCancelled();
  }

  const HttpSettings settings;
  std::uint64_t lastID = 0;  // main queue

  const std::string libraryName;
  std::optional<Library> curl;
  std::string problem;  // of the library
  std::mutex mutex;
  std::condition_variable hasPosted;  // only without a multi handle, which has a way of its own
  std::vector<Work> posted;
  CURLM* multi = nullptr;  // made by the client's thread, which alone reads it without the mutex
  std::map<std::uint64_t, std::unique_ptr<HttpExchange>> exchanges;
  std::map<void*, std::uint64_t> ids;  // by libcurl's handle
  bool isEnding = false;
  std::thread thread;
};

HttpClient::HttpClient(MainQueue& main) : HttpClient(main, Options{}) {}

HttpClient::HttpClient(MainQueue& main, Options options)
    : main_(main), options_(std::move(options)) {}

HttpClient::~HttpClient() {
  if (impl_) impl_->end();
}

std::shared_ptr<HttpTransfer> HttpClient::send(HttpRequest request, Completion completion) {
  if (!impl_) {
    impl_ = std::make_shared<Impl>(std::move(options_));
    impl_->startThread();
  }
  const auto id = ++impl_->lastID;
  auto transfer = std::make_shared<HttpTransfer>([client = std::weak_ptr(impl_), id] {
    if (const auto impl = client.lock()) impl->post([raw = impl.get(), id] { raw->cancel(id); });
  });
  HttpAnswer answer(main_, impl_, std::move(completion));
  if (auto problem = problemOf(request)) {
    answer.give(std::unexpected(HttpError{HttpError::Kind::invalidRequest, std::move(*problem)}));
    return transfer;
  }
  impl_->post(
      [impl = impl_.get(), id, request = std::move(request), answer = std::move(answer)]() mutable {
        impl->add(id, std::move(request), std::move(answer));
      });
  return transfer;
}

}  // namespace vantrell
