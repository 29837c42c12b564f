#include "shell/terminal/provider_names.h"

#include <fmt/format.h>

#include "runtimes/catalog/provider_registry.h"
#include "runtimes/catalog/runtime_login.h"
#include "views/provider_rows.h"

namespace vantrell::shell {

std::expected<AgentProvider, UsageError> readProvider(std::string_view word) {
  if (const auto provider = views::providerNamed(word)) return *provider;
  return usageError(fmt::format(
      "There is no provider \"{}\".{} There are grok, codex, kimi, glm, claude, local and tasklet.",
      word, suggestion(word, views::providerWords())));
}

std::expected<AgentProvider, UsageError> readProgramOwner(std::string_view word) {
  const auto provider = readProvider(word);
  if (!provider || loginFlow(*provider)) return provider;
  return usageError(fmt::format("{} has no program of its own. {}", rawText(*provider),
                                ProviderRegistry::setupHint(*provider)));
}

}  // namespace vantrell::shell
