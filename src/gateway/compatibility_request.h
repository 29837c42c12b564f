// Requests in the formats of other vendors' HTTP interfaces, translated into one
// `chat/completions` request to the local runtime, which never streams. Only text goes through.
// Pure, any thread.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "gateway/gateway_error.h"
#include "gateway/gateway_message.h"
#include "platform/http/http_message.h"
#include "runtimes/local/local_runtime.h"

namespace vantrell {

enum class CompatibilityRoute { openAIChat, openAIResponses, anthropicMessages };

/// True for the routes below /openai, /xai and /anthropic, the lists of models included.
bool isCompatibilityRequest(const GatewayRequest& request);

struct PreparedCompatibilityRequest {
  HttpRequest upstream;
  CompatibilityRoute route = CompatibilityRoute::openAIChat;
  std::string requestedModel;  // "default" when the caller names none
  std::string actualModel;
  bool stream = false;  // for the caller: the upstream request has none
};

GatewayResult<PreparedCompatibilityRequest> prepareCompatibility(
    const GatewayRequest& request, const LocalRuntimeConnection& connection);

/// The model of that id, also with "local/" in front, else the fallback: the name of a vendor's own
/// model runs on the user's default.
std::string resolveModel(std::string_view requested, const std::vector<ProviderModelOption>& models,
                         std::string_view fallback);

}  // namespace vantrell
