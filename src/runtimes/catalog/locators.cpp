#include "runtimes/catalog/locators.h"

#include "platform/process/login_shell.h"
#include "platform/storage/user_defaults.h"
#include "platform/text/text.h"
#include "runtimes/catalog/runtime_locator.h"

namespace vantrell {

namespace {

using CustomPath = std::optional<std::string_view>;

std::optional<std::string> find(AgentProvider provider, CustomPath customPath,
                                const Environment& environment) {
  return findExecutable(provider, customPath, environment, loginShell::keptFolders());
}

void askVersion(ProgramRunner& runner, AgentProvider provider, const std::string& executable,
                VersionCompletion completion) {
  runRuntime(runner, provider, executable, {"--version"}, informationLimit,
             [completion = std::move(completion)](const RuntimeAnswer& answer) {
               completion(versionIn(answer));
             });
}

void ask(ProgramRunner& runner, AgentProvider provider, const std::string& executable,
         InspectionCompletion completion) {
  inspectRuntime(runner, provider, executable,
                 [completion = std::move(completion)](RuntimeInspection inspection) {
                   completion(std::move(inspection.version), inspection.signedIn);
                 });
}

std::string configured(const UserDefaults& defaults, std::string_view key,
                       std::string_view usually) {
  const std::string chosen = defaults.text(key).value_or("");
  const std::string_view trimmed = text::trimmed(chosen);
  return std::string(trimmed.empty() ? usually : trimmed);
}

}  // namespace

namespace GrokLocator {
std::optional<std::string> findExecutable(CustomPath customPath, const Environment& environment) {
  return find(AgentProvider::grok, customPath, environment);
}
Environment augmentedEnvironment() {
  return runtimeEnvironment(AgentProvider::grok);
}
void version(ProgramRunner& runner, const std::string& executable, VersionCompletion completion) {
  askVersion(runner, AgentProvider::grok, executable, std::move(completion));
}
void availableModels(ProgramRunner& runner, const std::string& executable,
                     std::function<void(std::vector<ProviderModelOption>)> completion) {
  runRuntime(runner, AgentProvider::grok, executable, {"models"}, informationLimit,
             [completion = std::move(completion)](const RuntimeAnswer& answer) {
               completion(grokModelsIn(answer.status < 0 ? "" : answer.text));
             });
}
}  // namespace GrokLocator

namespace CodexLocator {
std::optional<std::string> findExecutable(CustomPath customPath, const Environment& environment) {
  return find(AgentProvider::codex, customPath, environment);
}
Environment subscriptionEnvironment() {
  return runtimeEnvironment(AgentProvider::codex);
}
void inspect(ProgramRunner& runner, const std::string& executable,
             InspectionCompletion completion) {
  ask(runner, AgentProvider::codex, executable, std::move(completion));
}
}  // namespace CodexLocator

namespace KimiLocator {
std::optional<std::string> findExecutable(CustomPath customPath, const Environment& environment) {
  return find(AgentProvider::kimi, customPath, environment);
}
Environment subscriptionEnvironment() {
  return runtimeEnvironment(AgentProvider::kimi);
}
void version(ProgramRunner& runner, const std::string& executable, VersionCompletion completion) {
  askVersion(runner, AgentProvider::kimi, executable, std::move(completion));
}
}  // namespace KimiLocator

namespace OpenCodeLocator {
std::optional<std::string> findExecutable(CustomPath customPath, const Environment& environment) {
  return find(AgentProvider::glm, customPath, environment);
}
Environment subscriptionEnvironment() {
  return runtimeEnvironment(AgentProvider::glm);
}
void version(ProgramRunner& runner, const std::string& executable, VersionCompletion completion) {
  askVersion(runner, AgentProvider::glm, executable, std::move(completion));
}
std::string configuredModel(const UserDefaults& defaults) {
  return configured(defaults, "openCodeGLMModel", "zai-coding-plan/glm-4.7");
}
bool isPlanModel(std::string_view model) {
  return text::lowercased(model).starts_with("zai-coding-plan/glm-");
}
}  // namespace OpenCodeLocator

namespace ClaudeLocator {
std::optional<std::string> findExecutable(CustomPath customPath, const Environment& environment) {
  return find(AgentProvider::claude, customPath, environment);
}
Environment subscriptionEnvironment() {
  return runtimeEnvironment(AgentProvider::claude);
}
void inspect(ProgramRunner& runner, const std::string& executable,
             InspectionCompletion completion) {
  ask(runner, AgentProvider::claude, executable, std::move(completion));
}
std::string configuredModel(const UserDefaults& defaults) {
  return configured(defaults, "claudeModel", "sonnet");
}
}  // namespace ClaudeLocator

}  // namespace vantrell
