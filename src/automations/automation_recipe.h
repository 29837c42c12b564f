// A prompt that is run again and again in one project, and when. Plain values; times come from the
// caller.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "platform/values/date.h"
#include "platform/values/uuid.h"
#include "records/values/agent_provider.h"
#include "records/values/raw_text.h"

namespace vantrell {

struct GitWorkspaceSnapshot;

enum class AutomationTrigger { manual, hourly, daily, weekly, projectChange };
constexpr auto rawTexts(AutomationTrigger) {
  return std::to_array<std::string_view>({"manual", "hourly", "daily", "weekly", "projectChange"});
}

struct AutomationRecipe {
  Uuid id;
  std::string name;
  std::string prompt;
  Uuid workspaceID;
  std::optional<AgentProvider> provider;  // absent: the project's usual choice
  AutomationTrigger trigger = AutomationTrigger::manual;
  bool enabled = true;            // for the scheduler; a run by hand does not ask
  std::optional<Date> nextRunAt;  // when the scheduler looks next; absent: at once
  std::optional<Date> lastRunAt;  // a real run, not a look at the project
  bool requiresApproval = true;   // the prompt begins with the safety preamble
  std::optional<std::string> lastProjectFingerprint;
  std::optional<Uuid> preferredHostID;  // the fleet host that gets the prompt
  /// The conversation of a run that is recorded and whose agent is not known to have begun. It is
  /// stored together with the times of the run, so that after a crash in between the run is made
  /// up for, and no run is made twice.
  std::optional<Uuid> pendingThreadID;

  bool operator==(const AutomationRecipe&) const = default;
};

/// How long after a run, a look at the project or the creation the scheduler looks again; absent
/// for what only the user runs.
std::optional<Seconds> intervalOf(AutomationTrigger trigger);
/// The same as a date.
std::optional<Date> nextRunAfter(AutomationTrigger trigger, Date now);
/// Whether the scheduler runs it now, or looks at its project.
bool isDue(const AutomationRecipe& recipe, Date now);
/// Gives a time that lies too far ahead, since the clock was set back after the last run, its
/// distance from now. False when nothing had to be changed.
bool followClock(AutomationRecipe& recipe, Date now);

/// What the branch and each changed file of a project look like; another text after a change.
std::string projectFingerprint(const GitWorkspaceSnapshot& snapshot);
/// The title of each conversation that the recipe begins.
std::string threadTitle(const AutomationRecipe& recipe);
/// What the agent is told.
std::string promptWithPreamble(const AutomationRecipe& recipe);

}  // namespace vantrell
