// The five programs, each by its own name. Thin functions over runtime_locator.h and
// runtime_information.h, where the rules are. Those with a runner belong to the main queue, as
// their completions do; the others to any thread.
#pragma once

#include "platform/process/login_shell.h"
#include "runtimes/catalog/runtime_information.h"
#include "runtimes/catalog/runtime_locator.h"

namespace vantrell {

template <AgentProvider provider>
struct ProgramLocator {
  static std::optional<std::string> findExecutable(std::optional<std::string_view> customPath,
                                                   const Environment& environment) {
    return vantrell::findExecutable(provider, customPath, environment, loginShell::keptFolders());
  }
  static Environment subscriptionEnvironment() { return runtimeEnvironment(provider); }
  static void version(ProgramRunner& runner, const std::string& executable,
                      std::function<void(std::optional<std::string>)> completion) {
    inspect(runner, executable,
            [completion = std::move(completion)](auto version, auto) { completion(version); });
  }
  /// The version, and whether the runtime is signed in.
  static void inspect(
      ProgramRunner& runner, const std::string& executable,
      std::function<void(std::optional<std::string>, std::optional<bool>)> completion) {
    inspectRuntime(runner, provider, executable,
                   [completion = std::move(completion)](const RuntimeInspection& found) {
                     completion(found.version, found.signedIn);
                   });
  }
  static std::string configuredModel(const UserDefaults& defaults) {
    return vantrell::configuredModel(defaults, provider);
  }
};

struct GrokLocator : ProgramLocator<AgentProvider::grok> {
  /// Only adds to PATH: Grok Build goes by its own sign-in. It also serves the terminals that
  /// runtimes open.
  static Environment augmentedEnvironment() { return runtimeEnvironment(AgentProvider::grok); }
  /// The default option alone when the program cannot be run.
  static void availableModels(ProgramRunner& runner, const std::string& executable,
                              std::function<void(std::vector<ProviderModelOption>)> completion) {
    askGrokModels(runner, executable, std::move(completion));
  }
};
using CodexLocator = ProgramLocator<AgentProvider::codex>;
using KimiLocator = ProgramLocator<AgentProvider::kimi>;
using ClaudeLocator = ProgramLocator<AgentProvider::claude>;
struct OpenCodeLocator : ProgramLocator<AgentProvider::glm> {
  /// Only models of the coding plan are covered by its subscription.
  static bool isPlanModel(std::string_view model) { return mayUseModel(AgentProvider::glm, model); }
};

}  // namespace vantrell
