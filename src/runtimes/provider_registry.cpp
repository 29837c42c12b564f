#include "runtimes/provider_registry.h"

#include <array>

namespace vantrell::ProviderRegistry {

namespace {
constexpr std::array<ProviderDescriptor, allAgentProviders.size()> descriptors{{
    {AgentProvider::grok, "Grok", "Grok",
     "Install the Grok CLI, then sign in with your SuperGrok account."},
    {AgentProvider::codex, "ChatGPT / Codex", "Codex",
     "Install Codex (or the ChatGPT Mac app), then sign in with your ChatGPT account."},
    {AgentProvider::kimi, "Kimi Code", "Kimi",
     "Install Kimi Code, then sign in with your Kimi membership."},
    {AgentProvider::glm, "GLM Coding Plan", "GLM",
     "Install OpenCode, configure Z.AI Coding Plan, and choose a zai-coding-plan/GLM model in "
     "Settings."},
    {AgentProvider::claude, "Claude", "Claude",
     "Install Claude Code, then sign in with your Claude subscription."},
    {AgentProvider::local, "Local Models", "Local",
     "Start Ollama or LM Studio, load a model, and install Grok Build as the local ACP tool "
     "harness."},
    {AgentProvider::tasklet, "Tasklet", "Tasklet",
     "Add an HTTPS inbound webhook for Tasklet in Settings."},
}};

constexpr bool isInOrder() {
  for (std::size_t i = 0; i < descriptors.size(); ++i) {
    if (descriptors[i].provider != allAgentProviders[i]) return false;
  }
  return true;
}
static_assert(isInOrder(), "descriptor() finds a row by its place");
}  // namespace

std::span<const ProviderDescriptor> all() {
  return descriptors;
}

const ProviderDescriptor& descriptor(AgentProvider provider) {
  return descriptors[static_cast<std::size_t>(provider)];
}

}  // namespace vantrell::ProviderRegistry
