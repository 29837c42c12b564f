// One request in libcurl: the settings of its handle, its answer so far, and what stopped it. Part
// of HttpClient, on the client's thread.
#pragma once

#include <array>
#include <cstdint>
#include <expected>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/http/http_message.h"
#include "platform/queues/dispatch.h"

namespace vantrell {

/// What every request of a client shares.
struct HttpSettings {
  std::string extraAuthorities;  // PEM
  std::string noProxy;           // as curl reads it
};

/// Hands the result of one request to its owner on the main queue. Once the client is gone the
/// result is `cancelled`, also of what has been answered and waits for its turn: an owner who goes
/// on with another request after any other result must find the client there.
class HttpAnswer {
 public:
  HttpAnswer(MainQueue& main, std::weak_ptr<const void> client, HttpCompletion completion)
      : main_(main),
        client_(std::move(client)),
        completion_(std::make_shared<HttpCompletion>(std::move(completion))) {}

  /// Once. Any thread; what the completion holds is destroyed on the main queue.
  void give(std::expected<HttpResponse, HttpError> result) {
    main_.post([client = std::move(client_), completion = std::move(completion_),
                result = std::move(result)]() mutable {
      if (client.expired()) {
        result =
            std::unexpected(HttpError{HttpError::Kind::cancelled, "The request was cancelled."});
      }
      (*completion)(std::move(result));
    });
  }

 private:
  MainQueue& main_;
  std::weak_ptr<const void> client_;
  std::shared_ptr<HttpCompletion> completion_;
};

class HttpExchange {
 public:
  /// Loads libcurl. Unless it is empty there must be no exchange.
  static const std::string& libraryProblem();

  HttpExchange(HttpRequest request, HttpAnswer answer, const HttpSettings& settings);
  ~HttpExchange();
  HttpExchange(const HttpExchange&) = delete;
  HttpExchange& operator=(const HttpExchange&) = delete;

  /// libcurl's handle of the request; its private pointer is this object.
  void* handle() const { return easy_; }
  /// The uptime at which it has been idle for too long or takes too long as a whole, unless
  /// something moves before.
  Duration deadline() const;

  /// Delivers the completion; `code` is libcurl's (CURLcode). Once, and the last call.
  void finish(int code);
  void finishCancelled();
  /// The completion of one that is past its deadline.
  void finishLate();

 private:
  void fail(HttpError::Kind kind, std::string description);
  /// Host and port of what was asked last, for sentences.
  std::string server() const;
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
  HttpAnswer answer_;
  void* easy_;
  std::unique_ptr<HeaderList> headers_;
  std::array<char, 256> words_{};  // libcurl's, of a failure

  HttpResponse response_;
  bool isHeadComplete_ = false;
  std::size_t headBytes_ = 0;
  std::optional<HttpError> failure_;  // found in a callback, in which nothing may be finished
  const Duration start_;
  Duration lastActivity_;  // when the last byte went either way
  std::int64_t bytesMoved_ = 0;
};

}  // namespace vantrell
