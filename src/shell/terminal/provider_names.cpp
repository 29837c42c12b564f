#include "shell/terminal/provider_names.h"

#include <fmt/format.h>

#include "runtimes/catalog/provider_registry.h"
#include "runtimes/catalog/runtime_locator.h"
#include "runtimes/catalog/runtime_login.h"

namespace vantrell::shell {

std::expected<AgentProvider, UsageError> readProgramOwner(std::string_view word) {
  std::vector<std::string_view> known;
  for (const auto provider : allAgentProviders) {
    const bool isNamed = word == rawText(provider);
    if (!loginFlow(provider)) {
      if (!isNamed) continue;
      return usageError(fmt::format("{} has no program of its own. {}", rawText(provider),
                                    ProviderRegistry::setupHint(provider)));
    }
    if (isNamed || word == programName(provider)) return provider;
    known.push_back(rawText(provider));
    known.push_back(programName(provider));
  }
  return usageError(
      fmt::format("There is no provider \"{}\".{} There are grok, codex, kimi, glm and claude.",
                  word, suggestion(word, known)));
}

std::expected<AgentProvider, UsageError> readProvider(std::string_view word) {
  std::vector<std::string_view> known;
  for (const auto provider : allAgentProviders) {
    const bool isNamedByProgram = loginFlow(provider) && word == programName(provider);
    if (word == rawText(provider) || isNamedByProgram) return provider;
    known.push_back(rawText(provider));
    if (loginFlow(provider)) known.push_back(programName(provider));
  }
  return usageError(fmt::format(
      "There is no provider \"{}\".{} There are grok, codex, kimi, glm, claude, local and tasklet.",
      word, suggestion(word, known)));
}

}  // namespace vantrell::shell
