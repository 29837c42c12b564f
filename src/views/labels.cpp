#include "views/labels.h"

#include "runtimes/catalog/provider_registry.h"

namespace vantrell::views {

namespace {

struct RouteWords {
  std::string_view label, detail;
};
constexpr RouteWords routes[] = {
    {"Auto",
     "Use installed subscriptions first, then a local runtime, and only hand off when an allowance "
     "is exhausted."},
    {"Local first",
     "Prefer a detected local model, then hand off to installed subscriptions if the local runtime "
     "is unavailable."},
    {"Grok", "Always use the signed-in SuperGrok subscription."},
    {"Codex", "Always use the signed-in ChatGPT subscription through Codex."},
    {"Kimi", "Always use the signed-in Kimi membership through Kimi Code."},
    {"GLM", "Always use the GLM Coding Plan configured in OpenCode."},
    {"Claude", "Always use the signed-in Claude subscription through Claude Code."},
    {"Local",
     "Always use a model served by Ollama, LM Studio, or another local OpenAI-compatible runtime."},
    {"Tasklet", "Hand this task to the configured Tasklet webhook as cloud background work."},
};
static_assert(std::size(routes) == rawTexts(ProviderRoutingMode{}).size());

template <typename Enumeration, std::size_t count>
constexpr std::string_view at(const std::string_view (&words)[count], Enumeration value) {
  static_assert(count == rawTexts(Enumeration{}).size());
  return words[static_cast<std::size_t>(value)];
}

}  // namespace

std::string_view label(GrokPermissionMode mode) {
  return at({"Ask", "Auto", "Full access"}, mode);
}

std::string_view label(TaskWorkflowMode mode) {
  return at({"Build", "Plan", "Review"}, mode);
}

std::string_view label(ProviderRoutingMode mode) {
  return routes[static_cast<std::size_t>(mode)].label;
}

std::string_view detail(ProviderRoutingMode mode) {
  return routes[static_cast<std::size_t>(mode)].detail;
}

std::string_view label(RunRecordStatus status) {
  return at(
      {"Starting", "Running", "Needs approval", "Completed", "Failed", "Cancelled", "Interrupted"},
      status);
}

std::vector<RoutingOption> routingOptions(const std::function<bool(AgentProvider)>& isAvailable) {
  std::vector<RoutingOption> options;
  for (std::size_t i = 0; i < std::size(routes); ++i) {
    const auto mode = static_cast<ProviderRoutingMode>(i);
    options.push_back(
        {.mode = mode,
         .id = rawText(mode),
         .label = label(mode),
         .detail = detail(mode),
         .available = allowsAutomaticHandoff(mode) || isAvailable(firstChoice(mode))});
  }
  return options;
}

std::string_view statusWord(ConnectionState::Kind state) {
  constexpr std::string_view words[] = {"idle", "connecting", "ready", "working", "failed"};
  return words[static_cast<std::size_t>(state)];
}

std::string_view connectionLabel(ConnectionState::Kind state) {
  constexpr std::string_view words[] = {"Not connected", "Connecting", "Ready", "Agent is working",
                                        "Needs attention"};
  return words[static_cast<std::size_t>(state)];
}

std::string_view activeProviderLabel(std::optional<AgentProvider> active,
                                     ProviderRoutingMode mode) {
  return active ? std::string_view(ProviderRegistry::descriptor(*active).label) : label(mode);
}

std::string imagineLabel(ConnectionState::Kind state, std::string_view progress) {
  return std::string(progress.empty() ? connectionLabel(state) : progress);
}

}  // namespace vantrell::views
