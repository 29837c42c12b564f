// What the client says to "codex app-server", and how the failures that it reports are understood.
// Pure functions.
#pragma once

#include <string>
#include <string_view>

#include "platform/values/json.h"
#include "runtimes/wire/agent_configuration.h"
#include "runtimes/wire/agent_error.h"

namespace vantrell::codex {

// Params of the requests.
/// `version` is how the client describes itself, mostly the version of the program.
JsonObject initializeParams(std::string_view version);
JsonObject threadStartParams(const AgentConfiguration& configuration);
JsonObject threadResumeParams(const AgentConfiguration& configuration, const std::string& threadId);
JsonObject turnStartParams(const AgentConfiguration& configuration, const std::string& threadId,
                           std::string prompt);
JsonObject turnInterruptParams(const std::string& threadId, const std::string& turnId);
/// A fresh key each time: one call spends at most one credit, two calls may spend two.
JsonObject consumeResetCreditParams();
/// The word for what came of it: "reset", "noCredit", "nothingToReset" or another.
std::string resetOutcome(const JsonObject& result);

AgentRuntimeError failure(AgentRuntimeError::Kind kind, std::string message);
/// Classifies an error that the runtime reported: that of a response, of a turn or of an "error"
/// notification. `fallback` is its text when it has none of its own.
AgentRuntimeError runtimeError(const JsonObject& from, std::string_view fallback);

}  // namespace vantrell::codex
