// The values of an HTTP request and its answer.
#pragma once

#include <chrono>
#include <cstddef>
#include <expected>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace vantrell {

struct HttpHeader {
  std::string name;
  std::string value;
};

struct HttpResponse {
  int status = 0;
  std::vector<HttpHeader> headers;  // of the last answer, in its order
  std::string body;                 // any bytes

  bool isSuccess() const { return status >= 200 && status <= 299; }
  /// The first header of that name in any case of letters.
  const std::string* header(std::string_view name) const;
};

struct HttpError {
  enum class Kind {
    invalidRequest,  // no HTTP URL, or a header with a line end
    cannotFindHost,
    cannotConnect,
    notSecure,       // the certificate or the handshake failed
    connectionLost,  // before the end of the answer
    badAnswer,       // not HTTP, or a redirect to what may not be followed
    tooLarge,
    timedOut,
    cancelled,
    noLibrary  // libcurl is not installed, or too old
  };
  Kind kind = Kind::connectionLost;
  /// A sentence for people. It names host and port at most: paths may be secrets.
  std::string description;
};

struct HttpRequest {
  std::string method = "GET";
  std::string url;  // http or https
  std::vector<HttpHeader> headers;
  std::string body;
  /// Longest time without a byte in either direction, from the start on.
  std::chrono::milliseconds requestTimeout{60'000};
  /// Longest time for the whole of it, redirects included.
  std::chrono::milliseconds resourceTimeout{std::chrono::days(7)};
  /// Followed up to ten times and never from https to http; a POST that is answered with 301, 302
  /// or 303 goes on as a GET without its body. Refused, a redirect is an answer like any other.
  enum class Redirects { follow, refuse };
  Redirects redirects = Redirects::follow;
  /// Bytes of the answer's body, and what happens beyond them: an error, or the rest is read and
  /// forgotten.
  std::size_t longestBody = std::size_t{16} << 20;
  enum class Excess { fail, drop };
  Excess excess = Excess::fail;
  /// Takes the bytes of the answer's body as they come, in place of the answer; the head is that of
  /// the answer that they belong to. False ends the request with connectionLost. On the client's
  /// own thread, where it holds up all other requests while it runs.
  std::function<bool(const HttpResponse& head, std::string_view bytes)> takeBody = nullptr;
};

using HttpCompletion = std::move_only_function<void(std::expected<HttpResponse, HttpError>)>;

}  // namespace vantrell
