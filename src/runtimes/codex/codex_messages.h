// What the client says to "codex app-server", and how the failures and models that it reports are
// understood. Pure functions.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/values/json.h"
#include "runtimes/wire/agent_configuration.h"
#include "runtimes/wire/agent_error.h"
#include "runtimes/wire/provider_options.h"

namespace vantrell::codex {

// Params of the requests.
/// Of "thread/resume" with the thread's id, else of "thread/start".
JsonObject threadParams(const AgentConfiguration& configuration,
                        const std::optional<std::string>& threadId);
JsonObject turnStartParams(const AgentConfiguration& configuration, const std::string& threadId,
                           std::string prompt);
/// A fresh key each time: one call spends at most one credit, two calls may spend two.
JsonObject consumeResetCreditParams();
/// The word for what came of it: "reset", "noCredit", "nothingToReset" or another.
std::string resetOutcome(const JsonObject& result);

AgentRuntimeError failure(AgentRuntimeError::Kind kind, std::string message);
/// Classifies an error that the runtime reported: that of a response, of a turn or of an "error"
/// notification. `fallback` is its text when it has none of its own.
AgentRuntimeError runtimeError(const JsonObject& from, std::string_view fallback);

/// What can be chosen when Codex has not said what it offers: its own choice.
std::vector<ProviderModelOption> unknownModels();
/// Reads the result of "model/list": Codex's own choice and then each model that is not hidden.
/// Empty when it names none.
std::vector<ProviderModelOption> modelOptions(const JsonObject& result);

}  // namespace vantrell::codex
