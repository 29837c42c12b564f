// The five programs, each by its own name: where it is, what it runs in, what it says about itself.
// Thin functions over runtime_locator.h and runtime_information.h, where the rules are. Those with
// a runner belong to the main queue, as their completions do; the others to any thread.
#pragma once

#include "platform/process/process.h"
#include "runtimes/catalog/runtime_information.h"

namespace vantrell {

class UserDefaults;

using VersionCompletion = std::function<void(std::optional<std::string>)>;
using InspectionCompletion =
    std::function<void(std::optional<std::string> version, std::optional<bool> signedIn)>;

namespace GrokLocator {
std::optional<std::string> findExecutable(std::optional<std::string_view> customPath,
                                          const Environment& environment);
/// Only adds to PATH: Grok Build goes by its own sign-in. It also serves the terminals that
/// runtimes open.
Environment augmentedEnvironment();
void version(ProgramRunner& runner, const std::string& executable, VersionCompletion completion);
/// The default option alone when the program cannot be run.
void availableModels(ProgramRunner& runner, const std::string& executable,
                     std::function<void(std::vector<ProviderModelOption>)> completion);
}  // namespace GrokLocator

namespace CodexLocator {
std::optional<std::string> findExecutable(std::optional<std::string_view> customPath,
                                          const Environment& environment);
Environment subscriptionEnvironment();
void inspect(ProgramRunner& runner, const std::string& executable, InspectionCompletion completion);
}  // namespace CodexLocator

namespace KimiLocator {
std::optional<std::string> findExecutable(std::optional<std::string_view> customPath,
                                          const Environment& environment);
Environment subscriptionEnvironment();
void version(ProgramRunner& runner, const std::string& executable, VersionCompletion completion);
}  // namespace KimiLocator

namespace OpenCodeLocator {
std::optional<std::string> findExecutable(std::optional<std::string_view> customPath,
                                          const Environment& environment);
Environment subscriptionEnvironment();
void version(ProgramRunner& runner, const std::string& executable, VersionCompletion completion);
/// The user's choice, else a model of the coding plan. Main queue.
std::string configuredModel(const UserDefaults& defaults);
/// Only models of the coding plan are covered by its subscription.
bool isPlanModel(std::string_view model);
}  // namespace OpenCodeLocator

namespace ClaudeLocator {
std::optional<std::string> findExecutable(std::optional<std::string_view> customPath,
                                          const Environment& environment);
Environment subscriptionEnvironment();
void inspect(ProgramRunner& runner, const std::string& executable, InspectionCompletion completion);
/// The user's choice, else "sonnet". Main queue.
std::string configuredModel(const UserDefaults& defaults);
}  // namespace ClaudeLocator

}  // namespace vantrell
