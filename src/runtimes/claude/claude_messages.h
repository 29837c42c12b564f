// The command line and the messages of Claude Code's stream-JSON mode, as this program writes and
// reads them. Pure functions.
//
// Claude Code renames things between its releases. The older name is read first and the newer one
// only where that is absent, so that both work.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/values/json.h"
#include "runtimes/wire/agent_configuration.h"
#include "runtimes/wire/agent_error.h"
#include "runtimes/wire/provider_options.h"
#include "runtimes/wire/provider_usage.h"

namespace vantrell::claude {

// ---- written ------------------------------------------------------------------------------------

/// A session has the id that it is given here, a new one too.
std::vector<std::string> processArguments(const AgentConfiguration& configuration,
                                          const std::string& sessionID, bool resumes);

/// The id on the wire of the control request with this number, and back; absent for any text that
/// is not such an id.
std::string controlRequestID(std::int64_t number);
std::optional<std::int64_t> numberOfControlRequest(std::string_view id);

// Answers to control requests of Claude Code.
JsonObject allowAnswer(std::string requestID, JsonObject input);
JsonObject denyAnswer(std::string requestID);
JsonObject errorAnswer(std::string requestID, std::string text);

// ---- read ---------------------------------------------------------------------------------------

/// Whether the "result" ends a turn that Claude Code began by itself, as it does to report that a
/// background task has ended. It answers no prompt, though one may be waiting behind it.
bool endsTurnOfItsOwn(const JsonObject& result);
/// What went wrong in the turn, or absent when it went well.
std::optional<AgentRuntimeError> failureOf(const JsonObject& result);
/// `status` is the HTTP status of the model's answer.
AgentRuntimeError::Kind errorKind(std::string_view message, std::optional<std::int64_t> status);

/// Whether these last words say that there is no session to resume: it was removed, or never
/// written, which Claude Code does only when it has read the first prompt.
bool isSessionLost(std::string_view lastWords);

/// The models that the answer to "initialize" names; empty when it names none.
std::vector<ProviderModelOption> modelOptions(const JsonObject& initialized);

/// The "rate_limit_info" of a "rate_limit_event".
ProviderUsage usage(const JsonObject& rateLimitInfo);

}  // namespace vantrell::claude
