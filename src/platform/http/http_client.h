// HTTP requests of the whole program: one client, one thread, connections that are used again. No
// cookies, no cache, no credentials but those given; certificates are always checked. Proxies as
// the environment says (http_proxy, https_proxy, no_proxy), but never for this machine itself.
//
// Made, used and destroyed on the main queue, where every callback arrives. The main queue must
// outlive it.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/http/http_message.h"
#include "platform/queues/dispatch.h"

namespace vantrell {

/// A request under way. It goes on when this is destroyed.
class HttpTransfer {
 public:
  explicit HttpTransfer(std::function<void()> cancel) : cancel_(std::move(cancel)) {}
  /// The completion comes with `cancelled`, unless it is on its way already.
  void cancel() const { cancel_(); }

 private:
  std::function<void()> cancel_;
};

class HttpClient {
 public:
  using Completion = HttpCompletion;

  struct Options {
    /// Certificates (PEM) that are trusted besides the system's; when empty, those of the
    /// file that the environment names in SSL_CERT_FILE, if it does.
    std::string extraAuthorities;
    /// Loaded at the first request, since linked it would take longer than the rest of a start.
    std::string library = "libcurl.so.4";
  };
  explicit HttpClient(MainQueue& main);
  HttpClient(MainQueue& main, Options options);
  /// What has not completed yet completes with `cancelled`.
  ~HttpClient();
  HttpClient(const HttpClient&) = delete;
  HttpClient& operator=(const HttpClient&) = delete;

  /// The completion comes exactly once, never from inside this call. A status of 400 or more is an
  /// answer, not an error.
  std::shared_ptr<HttpTransfer> send(HttpRequest request, Completion completion);

 private:
  struct Impl;
  MainQueue& main_;
  Options options_;
  std::shared_ptr<Impl> impl_;  // from the first request on: many starts of the program have none
};

}  // namespace vantrell
