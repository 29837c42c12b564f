// Where the agent programs are and the environment they run in.
//
// The environment is the guarantee against metered billing: a subscription runtime never sees an
// API key that happens to lie in the user's environment, so its requests can go out only under the
// signed-in subscription. No code path starts one with the plain environment of this process.
//
// Pure functions of their arguments and the file system; any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/process.h"
#include "records/agent_provider.h"

namespace vantrell {

/// The program of a provider's runtime: the custom path when it can be executed, else the usual
/// places, else the PATH of the environment. The local provider uses Grok's program; Tasklet has
/// none.
std::optional<std::string> findExecutable(AgentProvider provider,
                                          std::optional<std::string_view> customPath,
                                          const Environment& environment);

/// The environment of a provider's runtime, made from the given one (this process's own, usually).
Environment runtimeEnvironment(AgentProvider provider, Environment base);

namespace GrokLocator {
/// Only adds to PATH. It also serves the terminals that runtimes open.
Environment augmentedEnvironment();
}  // namespace GrokLocator

}  // namespace vantrell
