// What a front end has chosen for the turns of one conversation while it drives them: stronger than
// the user's settings and the task's own choices, and never stored.
#pragma once

#include <optional>
#include <string>

#include "records/values/agent_provider.h"
#include "records/values/task_modes.h"

namespace vantrell {

struct RunChoices {
  /// Takes every turn, and none is handed on to another.
  std::optional<AgentProvider> provider;
  std::optional<GrokPermissionMode> permissionMode;
  std::optional<TaskWorkflowMode> workflowMode;
  /// Path of that provider's program.
  std::optional<std::string> executable;
  /// Path of the practice agent, which then stands in for local models.
  std::optional<std::string> practiceAgent;
  /// A front end drives the conversation, though it may not have sent its prompt yet: no other takes
  /// it for a new one.
  bool isDriven = false;

  bool operator==(const RunChoices&) const = default;
};

}  // namespace vantrell
