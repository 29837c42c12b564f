#include "runtimes/wire/json_rpc.h"

namespace vantrell::jsonrpc {

JsonObject request(std::int64_t id, std::string_view method, JsonObject params) {
  return {{"jsonrpc", "2.0"}, {"id", id}, {"method", method}, {"params", std::move(params)}};
}

JsonObject notification(std::string_view method, JsonObject params) {
  return {{"jsonrpc", "2.0"}, {"method", method}, {"params", std::move(params)}};
}

JsonObject notification(std::string_view method) {
  return {{"jsonrpc", "2.0"}, {"method", method}};
}

JsonObject response(Json id, JsonObject result) {
  return {{"jsonrpc", "2.0"}, {"id", std::move(id)}, {"result", std::move(result)}};
}

JsonObject errorResponse(Json id, int code, std::string message) {
  return {{"jsonrpc", "2.0"},
          {"id", std::move(id)},
          {"error", JsonObject{{"code", code}, {"message", std::move(message)}}}};
}

}  // namespace vantrell::jsonrpc
