// The messages of the Agent Client Protocol as this program writes and reads them. Pure functions.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/values/json.h"
#include "runtimes/wire/agent_client.h"
#include "runtimes/wire/provider_options.h"

namespace vantrell::acp {

// Results of a permission request.
JsonObject selectedOutcome(std::string optionID);
JsonObject cancelledOutcome();

/// What the user is shown for a "session/request_permission".
PermissionRequest permissionRequest(std::int64_t id, const JsonObject& params,
                                    const std::string& runtimeName);

/// The models and efforts that a runtime reports in the result of "initialize", "session/new" or
/// "session/load"; empty when it reports none. `providerLabel` is the provider's short label.
std::vector<ProviderModelOption> modelOptions(const JsonObject& result,
                                              std::string_view providerLabel);

}  // namespace vantrell::acp
