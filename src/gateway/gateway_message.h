// One request to the gateway and its response, as plain values. Any thread.
#pragma once

#include <initializer_list>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/values/json.h"

namespace vantrell {

/// The headers of a request, kept as one text: a head of many small ones takes no more memory than
/// it had bytes. Of two of the same name the last one counts.
class GatewayHeaders {
 public:
  using Header = std::pair<std::string_view, std::string_view>;

  GatewayHeaders() = default;
  GatewayHeaders(std::initializer_list<Header> all);
  /// The name in lower case, without a colon; neither has CR LF in it.
  void add(std::string_view name, std::string_view value);

  // Valid until the headers change.

  /// The name given in lower case.
  std::optional<std::string_view> find(std::string_view name) const;
  std::vector<Header> all() const;
  std::size_t size() const { return lines_.capacity(); }  // bytes held
  bool operator==(const GatewayHeaders&) const = default;

 private:
  std::string lines_;  // each "name:value" and CR LF
};

struct GatewayRequest {
  std::string method;      // upper case
  std::string path;        // without the query
  GatewayHeaders headers;  // values trimmed
  std::string body;        // any bytes

  /// Bytes held.
  std::size_t size() const {
    return method.capacity() + path.capacity() + headers.size() + body.capacity();
  }
};

struct GatewayResponse {
  int status = 200;
  std::string body;
  std::string contentType = "application/json; charset=utf-8";
  std::map<std::string, std::string> headers;  // besides those that every response has

  /// Compact, keys sorted. The value has the spelling of the wire (`session_id`).
  static GatewayResponse json(const Json& value, int status = 200);
  /// {"error":{"code":...,"message":...}}
  static GatewayResponse error(int status, std::string_view code, std::string_view message);
};

}  // namespace vantrell
