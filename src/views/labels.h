// The words for states and choices, the same wherever they are shown: window, terminal, and the
// snapshot that a paired device draws. Pure functions, any thread.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/core/connection_state.h"
#include "records/values/agent_provider.h"
#include "records/values/conversation_records.h"
#include "records/values/task_modes.h"

namespace vantrell::views {

std::string_view label(GrokPermissionMode mode);
std::string_view label(TaskWorkflowMode mode);
std::string_view label(ProviderRoutingMode mode);
std::string_view label(RunRecordStatus status);

/// What a route does, in one sentence.
std::string_view detail(ProviderRoutingMode mode);

struct RoutingOption {
  ProviderRoutingMode mode = ProviderRoutingMode::automatic;
  std::string_view id, label, detail;
  bool available = false;
};
/// All routes in their order. The automatic ones can always be chosen; the others as far as
/// `isAvailable` says so of their provider.
std::vector<RoutingOption> routingOptions(const std::function<bool(AgentProvider)>& isAvailable);

/// "idle", "connecting", "ready", "working" or "failed": the word for wires.
std::string_view statusWord(ConnectionState::Kind state);
/// The same for people.
std::string_view connectionLabel(ConnectionState::Kind state);
/// The provider at work; before there is one, the route that will choose it.
std::string_view activeProviderLabel(std::optional<AgentProvider> active, ProviderRoutingMode mode);
/// What the media generator does: its own line where it has one, else its state.
std::string imagineLabel(ConnectionState::Kind state, std::string_view progress);

}  // namespace vantrell::views
