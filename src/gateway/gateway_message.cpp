#include "gateway/gateway_message.h"

namespace vantrell {

const std::string* GatewayRequest::header(const std::string& name) const {
  const auto found = headers.find(name);
  return found == headers.end() ? nullptr : &found->second;
}

GatewayResponse GatewayResponse::json(const Json& value, int status) {
  return {.status = status, .body = vantrell::json::writeSorted(value)};
}

GatewayResponse GatewayResponse::error(int status, std::string_view code,
                                       std::string_view message) {
  return json(JsonObject{{"error", JsonObject{{"code", code}, {"message", message}}}}, status);
}

}  // namespace vantrell
