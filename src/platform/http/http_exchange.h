// One request on its way through libcurl: the settings of its handle, the answer that gathers, what
// stopped it. Part of HttpClient; lives on the client's thread.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/http/http_message.h"
#include "platform/queues/dispatch.h"
#include "platform/queues/mailbox.h"

namespace vantrell {

/// What every request of a client shares.
struct HttpSettings {
  std::string extraAuthorities;  // PEM
  std::string noProxy;           // as curl reads it
};

/// What both ends of a request see.
struct HttpLink {
  HttpLink(MainQueue& main, HttpCompletion whenComplete, HttpRequest& request)
      : mailbox(std::make_shared<Mailbox>(main)),
        isStreamed(static_cast<bool>(request.onBody)),
        completion(std::move(whenComplete)),
        onHead(std::move(request.onHead)),
        onBody(std::move(request.onBody)) {}

  const std::shared_ptr<Mailbox> mailbox;
  const bool isStreamed;
  std::atomic<bool> isFull = false;  // the main queue is behind

  // Main queue. What the callbacks hold is let go of there, too.
  HttpCompletion completion;
  std::function<void(const HttpResponse&)> onHead;
  std::function<void(std::string)> onBody;
  bool isCancelled = false;

  /// Any thread; the last thing that is delivered.
  static void complete(const std::shared_ptr<HttpLink>& link,
                       std::expected<HttpResponse, HttpError> result) {
    link->mailbox->deliver([link, result = std::move(result)]() mutable {
      link->onHead = nullptr;
      link->onBody = nullptr;
      std::exchange(link->completion, nullptr)(std::move(result));
    });
  }
};

class HttpExchange {
 public:
  /// Loads libcurl. Unless it is empty there must be no exchange.
  static const std::string& libraryProblem();

  HttpExchange(HttpRequest request, std::shared_ptr<HttpLink> link, const HttpSettings& settings);
  ~HttpExchange();
  HttpExchange(const HttpExchange&) = delete;
  HttpExchange& operator=(const HttpExchange&) = delete;

  /// libcurl's handle of the request; its private pointer is this object.
  void* handle() const { return easy_; }
  const HttpRequest& request() const { return request_; }
  bool isPaused() const { return isPaused_; }
  /// Reads on after the main queue has caught up.
  void resume();
  /// When the last byte went either way.
  Duration lastActivity() const { return lastActivity_; }

  /// Delivers the completion; `code` is libcurl's (CURLcode). Once, and the last call.
  void finish(int code);
  void finish(HttpError::Kind kind, std::string description);
  /// Host and port of what was asked last, for sentences.
  std::string server() const;

  // The completions of the two that overran their time.
  void finishIdle();
  void finishOverdue();

  Timer idleTimer;
  Timer wholeTimer;

 private:
  void configure(const HttpSettings& settings);
  void configureMethod();
  std::size_t takeHeaderLine(std::string_view line);
  std::size_t takeBody(std::string_view bytes);
  void headIsComplete();
  HttpError errorOf(int code) const;

  static std::size_t onHeaderLine(char* bytes, std::size_t size, std::size_t count, void* self);
  static std::size_t onBodyBytes(char* bytes, std::size_t size, std::size_t count, void* self);
  static int onProgress(void* self, std::int64_t, std::int64_t down, std::int64_t, std::int64_t up);

  struct HeaderList;
  HttpRequest request_;
  const std::shared_ptr<HttpLink> link_;
  void* easy_;
  std::unique_ptr<HeaderList> headers_;
  std::array<char, 256> words_{};  // libcurl's, of a failure

  HttpResponse response_;
  bool isHeadComplete_ = false;
  std::size_t headBytes_ = 0;
  std::size_t bodyBytes_ = 0;
  std::optional<HttpError> failure_;  // found in a callback, in which nothing may be finished
  bool isPaused_ = false;
  Duration lastActivity_;
  std::int64_t bytesMoved_ = 0;
};

}  // namespace vantrell
