// How the agents' programs tell of their sessions: each vendor's form is read here and nowhere
// else. Keys that are not known are passed over, and so is a session without an id or a folder.
// Pure functions, any thread.
#pragma once

#include <expected>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "platform/values/json.h"
#include "records/values/external_session.h"

namespace vantrell {

namespace sessionListings {

/// Trimmed; a file URL becomes its path; nullopt for a blank text, and for no text.
std::optional<std::string> nonempty(const Json* value);
/// A number or a text of seconds or milliseconds since 1970, or ISO 8601.
std::optional<Date> date(const Json* value);
/// The folder in which a session works.
std::optional<std::string> workspacePath(const JsonObject& from);

/// A line of `grok sessions list`, without the folder; nullopt for any other line.
std::optional<ExternalProviderSession> grokSession(std::string_view line);
/// An object of Codex's "thread/list".
std::optional<ExternalProviderSession> codexSession(const JsonObject& thread,
                                                    const std::set<std::string>& loaded);
/// The result of "session/list".
std::vector<ExternalProviderSession> parseACPSessions(const JsonObject& result,
                                                      AgentProvider provider,
                                                      std::string_view sourceLabel);
/// The output of `opencode session list`, which lines of another kind may precede. The error is
/// what is wrong with the JSON.
std::expected<std::vector<ExternalProviderSession>, std::string> openCodeSessions(
    std::string_view output);

}  // namespace sessionListings

}  // namespace vantrell
