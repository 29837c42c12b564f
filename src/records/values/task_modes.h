// The global choices that shape a turn: how much the agent may do unasked, what kind of work it is
// asked for, and who does it.
#pragma once

#include "records/values/agent_provider.h"
#include "records/values/raw_text.h"

namespace vantrell {

/// One value for all providers, from safest to least safe. It chooses how a runtime is started, so
/// a change takes effect with the next client.
enum class GrokPermissionMode { ask, auto_, fullAccess };

constexpr auto rawTexts(GrokPermissionMode) {
  return std::to_array<std::string_view>({"ask", "auto", "full_access"});
}

enum class TaskWorkflowMode { build, plan, review };

constexpr auto rawTexts(TaskWorkflowMode) {
  return std::to_array<std::string_view>({"build", "plan", "review"});
}

/// Which provider takes a turn: two automatic routes, and one that fixes each provider.
enum class ProviderRoutingMode {
  automatic,
  localFirst,
  grok,
  codex,
  kimi,
  glm,
  claude,
  local,
  tasklet
};

constexpr auto rawTexts(ProviderRoutingMode) {
  return std::to_array<std::string_view>(
      {"automatic", "local_first", "grok", "codex", "kimi", "glm", "claude", "local", "tasklet"});
}

/// Whether an exhausted allowance may hand the task on by itself.
constexpr bool allowsAutomaticHandoff(ProviderRoutingMode mode) {
  return mode == ProviderRoutingMode::automatic || mode == ProviderRoutingMode::localFirst;
}

/// The provider that the route prefers; on a fixed one the only one.
constexpr AgentProvider firstChoice(ProviderRoutingMode mode) {
  switch (mode) {
    case ProviderRoutingMode::automatic:
    case ProviderRoutingMode::grok: break;
    case ProviderRoutingMode::codex: return AgentProvider::codex;
    case ProviderRoutingMode::kimi: return AgentProvider::kimi;
    case ProviderRoutingMode::glm: return AgentProvider::glm;
    case ProviderRoutingMode::claude: return AgentProvider::claude;
    case ProviderRoutingMode::localFirst:
    case ProviderRoutingMode::local: return AgentProvider::local;
    case ProviderRoutingMode::tasklet: return AgentProvider::tasklet;
  }
  return AgentProvider::grok;
}

}  // namespace vantrell
