// The frames of JSON-RPC 2.0, which every dialect that speaks it shares. Pure functions.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/values/json.h"

namespace vantrell::jsonrpc {

JsonObject request(std::int64_t id, std::string_view method, JsonObject params);
JsonObject notification(std::string_view method, JsonObject params);
/// Without "params".
JsonObject notification(std::string_view method);
/// `id` is that of the request, in the form in which it came.
JsonObject response(Json id, JsonObject result);
JsonObject errorResponse(Json id, int code, std::string message);

// Error codes of JSON-RPC 2.0.
inline constexpr int methodNotFound = -32601;
inline constexpr int internalError = -32603;

}  // namespace vantrell::jsonrpc
