// One request to the gateway and its response, as plain values. Any thread.
#pragma once

#include <map>
#include <string>
#include <string_view>

#include "platform/values/json.h"

namespace vantrell {

struct GatewayRequest {
  std::string method;                          // upper case
  std::string path;                            // without the query
  std::map<std::string, std::string> headers;  // names in lower case, values trimmed
  std::string body;                            // any bytes

  /// The value of a header, its name given in lower case; null when there is none.
  const std::string* header(const std::string& name) const;
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
