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
#include <vector>

#include "platform/process/process.h"
#include "runtimes/catalog/provider_table.h"

namespace vantrell {

class UserDefaults;

/// The program of a provider's runtime: the custom path when it can be executed, else the usual
/// places, else the PATH of the environment, else the further folders. The local provider uses
/// Grok's program; Tasklet has none.
std::optional<std::string> findExecutable(AgentProvider provider,
                                          std::optional<std::string_view> customPath,
                                          const Environment& environment,
                                          const std::vector<std::string>& moreFolders = {});
/// The same in this process's PATH and the folders of the login shell.
std::optional<std::string> findRuntime(AgentProvider provider,
                                       std::optional<std::string_view> customPath);

/// The environment of a provider's runtime, made from the given one. The further folders come last
/// in PATH: a runtime found there often needs an interpreter from there.
Environment runtimeEnvironment(AgentProvider provider, Environment base,
                               const std::vector<std::string>& moreFolders = {});
/// The same from this process's own environment and the folders of the login shell.
Environment runtimeEnvironment(AgentProvider provider);

/// "codex" and the like; empty for Tasklet.
std::string_view programName(AgentProvider provider);
/// Where the user defaults keep the path that the user has set; empty for Tasklet.
std::string_view customPathKey(AgentProvider provider);
/// That path, as it was typed. Main queue.
std::optional<std::string> customExecutablePath(const UserDefaults& defaults,
                                                AgentProvider provider);
/// The vendor's own installer, one line for a shell, for the user to run: this program never does.
std::string_view installCommand(AgentProvider provider);

/// The model that the user has set, else the provider's usual one; empty for a provider without
/// such a setting. Main queue.
std::string configuredModel(const UserDefaults& defaults, AgentProvider provider);
/// Whether the provider's subscription covers the model. Only GLM's is guarded: OpenCode could
/// reach models that are billed per use.
bool mayUseModel(AgentProvider provider, std::string_view model);

}  // namespace vantrell
