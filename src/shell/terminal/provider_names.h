// How the user names a provider's program on the command line. Pure functions, any thread.
#pragma once

#include "records/values/agent_provider.h"
#include "shell/terminal/command.h"

namespace vantrell::shell {

/// One of the five providers that have a program of their own, by the provider's id or the
/// program's name ("glm" or "opencode").
std::expected<AgentProvider, UsageError> readProgramOwner(std::string_view word);
/// Any of the seven, likewise.
std::expected<AgentProvider, UsageError> readProvider(std::string_view word);

}  // namespace vantrell::shell
